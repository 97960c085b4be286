// mount_record.cpp - what is known of each mounted image, kept on disk.
//
// A mount's folder holds record.json, tree (what was in the mount when it was last saved), lock, the
// layers of a lazy mount, and while a commit is under way stand-in.wim, next.json and next-tree.
#include "mount_record.h"

#include "image_append.h"
#include "image_server.h"
#include "image_writer.h"
#include "mount_table.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>
#include <utility>

namespace kestro::servicing {
namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* const kStatusNames[] = {"mounting", "mounted", "unmounting"};

json ToJson(const FileIdentity& identity)
{
    return {identity.device, identity.inode, identity.size, identity.modified};
}

std::string ToHex(const std::string& bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes)
        for (const int shift : {4, 0})
            hex.push_back(digits[static_cast<unsigned char>(byte) >> shift & 15]);
    return hex;
}

WimHeader HeaderFromHex(const std::string& hex)
{
    std::string bytes(hex.size() / 2, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* const end = hex.data() + i * 2 + 2;
        unsigned char byte = 0;
        if (std::from_chars(end - 2, end, byte, 16).ptr != end)
            throw ServicingError(code::not_a_valid_mount,
                                 "a record of a mount holds bytes that are none: " + hex);
        bytes[i] = static_cast<char>(byte);
    }
    return WimHeader(bytes);
}

json ToJson(const ImageIdentity& identity)
{
    return {identity.device, identity.inode, ToHex(identity.header.Bytes())};
}

// JSON's own conversions cut off what a field cannot hold.
template <class Number>
Number NumberFromJson(const json& value)
{
    const bool fits =
        value.is_number_unsigned()
            ? std::in_range<Number>(value.get<std::uint64_t>())
            : value.is_number_integer() && std::in_range<Number>(value.get<std::int64_t>());
    if (!fits)
        throw ServicingError(code::not_a_valid_mount,
                             "a record of a mount holds the number " + value.dump());
    return value.get<Number>();
}

FileIdentity IdentityFromJson(const json& value)
{
    return {NumberFromJson<unsigned long long>(value.at(0)),
            NumberFromJson<unsigned long long>(value.at(1)), NumberFromJson<long long>(value.at(2)),
            NumberFromJson<long long>(value.at(3))};
}

ImageIdentity ImageIdentityFromJson(const json& value)
{
    return {NumberFromJson<unsigned long long>(value.at(0)),
            NumberFromJson<unsigned long long>(value.at(1)), HeaderFromHex(value.at(2))};
}

std::string ToText(const MountRecord& record)
{
    json value = {{"image", record.image},
                  {"imageIdentity", ToJson(record.imageIdentity)},
                  {"index", record.index},
                  {"directory", record.directory},
                  {"directoryIdentity", ToJson(record.directoryIdentity)},
                  {"readOnly", record.readOnly},
                  {"status", kStatusNames[static_cast<int>(record.status)]},
                  {"layers", record.layers},
                  {"layersAreOld", record.layersAreOld}};
    if (!record.appendedTo.IsEmpty())
        value["appendedTo"] = ToHex(record.appendedTo.Bytes());
    try {
        return value.dump(2) + "\n";
    } catch (const json::exception& error) {
        throw ServicingError(code::invalid_name,
                             std::string("a path is not UTF-8: ") + error.what());
    }
}

MountRecord Load(const std::string& path)
{
    try {
        const json value = json::parse(ReadWholeFile(path));
        MountRecord record;
        record.image = value.at("image");
        record.imageIdentity = ImageIdentityFromJson(value.at("imageIdentity"));
        record.index = NumberFromJson<unsigned>(value.at("index"));
        record.directory = value.at("directory");
        record.directoryIdentity = IdentityFromJson(value.at("directoryIdentity"));
        record.readOnly = value.at("readOnly");
        const std::string status = value.at("status");
        const auto* const name =
            std::find(std::begin(kStatusNames), std::end(kStatusNames), status);
        if (name == std::end(kStatusNames))
            throw ServicingError(code::not_a_valid_mount, path + " names no known status");
        record.status = static_cast<MountStatus>(name - std::begin(kStatusNames));
        record.appendedTo = HeaderFromHex(value.value("appendedTo", ""));
        record.layers = value.value("layers", "");
        record.layersAreOld = value.value("layersAreOld", false);
        return record;
    } catch (const json::exception& error) {
        throw ServicingError(code::not_a_valid_mount, path + " is damaged: " + error.what());
    }
}

bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// A crash leaves of a file that was not synced an empty one. What cannot be looked at is there.
bool IsWritten(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return errno != ENOENT && errno != ENOTDIR;
    return status.st_size != 0 || !S_ISREG(status.st_mode);
}

void RenameOver(const std::string& from, const std::string& to)
{
    if (rename(from.c_str(), to.c_str()) != 0)
        throw SystemError("cannot replace " + to);
}

FileDescriptor OpenLock(const std::string& path)
{
    FileDescriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!lock)
        throw SystemError("cannot open " + path);
    return lock;
}

// Locks the file, where its file system has locks. False when another process keeps it locked.
bool TryToLock(const FileDescriptor& file, WhenBusy whenBusy)
{
    constexpr std::chrono::milliseconds pause(5), moment(1000);
    // Only the time counts in which this process ran.
    for (auto waited = pause; flock(file.Get(), LOCK_EX | LOCK_NB) != 0; waited += pause) {
        if (errno != EWOULDBLOCK)
            return true;
        if (whenBusy == WhenBusy::Throw || waited > moment)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

std::string MountNameOf(const std::string& folder)
{
    return "kestro-" + fs::path(folder).filename().string();
}

std::string LayersPrefix(const std::string& folder, const std::string& image, LayersIn place)
{
    return place == LayersIn::Record ? folder + "/layers-"
                                     : image + "." + MountNameOf(folder) + "-layers-";
}

// What is in them is removed in the end: they must be the mount's own.
void RequireOwnLayers(const std::string& folder, const MountRecord& record)
{
    const auto isIn = [&](LayersIn place) {
        const std::string prefix = LayersPrefix(folder, record.image, place);
        return record.layers.starts_with(prefix) &&
               record.layers.find_first_not_of("0123456789", prefix.size()) == std::string::npos;
    };
    if (record.IsLazy() && !isIn(LayersIn::Record) && !isIn(LayersIn::ImageFolder))
        throw ServicingError(code::not_a_valid_mount,
                             folder + "/record.json names layers that are not its own");
}

// Whatever keeps a record from being read, it is damaged; but for a lack of memory or of handles.
MountRecord LoadWhole(const std::string& folder, const std::string& name)
{
    try {
        MountRecord record = Load(folder + "/" + name);
        RequireOwnLayers(folder, record);
        return record;
    } catch (const ServicingError& error) {
        if (error.GetCode() == code::out_of_memory || error.GetCode() == code::too_many_open_files)
            throw;
        throw ServicingError(code::mount_damaged, error.what());
    }
}

// The record that a save has prepared, if there is one.
std::optional<MountRecord> PreparedIn(const std::string& folder, const MountRecord& record)
{
    if (!Exists(folder + "/next.json"))
        return std::nullopt;
    MountRecord next = LoadWhole(folder, "next.json");
    // An unmount empties the record's directory: it must be the one that was mounted.
    if (next.directory != record.directory || next.image != record.image)
        throw ServicingError(code::mount_damaged, folder + "/next.json is about another mount");
    return next;
}

// What a record that holds something impossible, or is left of one that ToText made, says.
std::string DirectoryIn(const std::string& text)
{
    if (const json whole = json::parse(text, nullptr, false); whole.is_object()) {
        const auto directory = whole.find("directory");
        return directory != whole.end() && directory->is_string() ? directory->get<std::string>()
                                                                  : "";
    }
    const std::string key = "\"directory\": ";
    const auto at = text.find(key);
    if (at == std::string::npos)
        return {};
    const auto begin = at + key.size(), end = text.find('\n', begin);
    if (end == std::string::npos || text[end - 1] != ',')
        return {};
    const json value = json::parse(text.substr(begin, end - 1 - begin), nullptr, false);
    return value.is_string() ? value.get<std::string>() : "";
}

// The directory of a mount whose record is damaged, where that can be seen: what is mounted there is called
// like the folder.
std::string DirectoryOfDamaged(const std::string& folder)
{
    const std::string name = MountNameOf(folder), layers = name + "-layers-";
    for (const MountPoint& mount : ReadMountTable())
        if (mount.source == name && !mount.directory.starts_with(folder + "/") &&
            mount.directory.find(layers) == std::string::npos)
            return mount.directory;
    try {
        return DirectoryIn(ReadWholeFile(folder + "/record.json"));
    } catch (const ServicingError&) {
        return {};
    }
}

// A folder that no record speaks for any more, unless something of it is still mounted somewhere.
void RemoveFolder(const std::string& folder)
{
    std::error_code error;
    std::vector<std::string> locks;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        locks.push_back(entry.path() / "served");
    if (std::any_of(locks.begin(), locks.end(), IsServedElsewhere))
        return;
    const bool isOverlaid = UnmountNamed(MountNameOf(folder)), isShown = UnmountBelow(folder);
    const auto isFree = isOverlaid || isShown ? AwaitEndOfServing : [](const std::string& lock) {
        return !IsServed(lock);
    };
    // Other mount namespaces may have copies of what was mounted.
    if (!std::all_of(locks.begin(), locks.end(), isFree))
        return;
    EmptyDirectory(folder);
    rmdir(folder.c_str());
}

} // namespace

void RequireUnchangedImage(const MountRecord& record)
{
    if (ImageIdentityOf(record.image) != record.imageIdentity)
        throw ServicingError(code::image_file_changed,
                             record.image + " was changed after it was mounted");
}

FileDescriptor LockImage(const std::string& image)
{
    // A pipe in its place must not hold the call.
    FileDescriptor file(open(image.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open the image file " + image);
    if (!TryToLock(file, WhenBusy::WaitAMoment))
        throw ServicingError(code::busy, "another process works on the image file " + image);
    return file;
}

// --- one mount ------------------------------------------------------------------------------------

std::string MountEntry::State() const
{
    return ReadWholeFile(folder_ + "/tree");
}

std::string MountEntry::Name() const
{
    return MountNameOf(folder_);
}

std::string MountEntry::NewLayers(LayersIn place) const
{
    const std::string prefix = LayersPrefix(folder_, record_.image, place);
    int number = 1;
    while (Exists(prefix + std::to_string(number)))
        ++number;
    return prefix + std::to_string(number);
}

bool MountEntry::HasLayersIn(LayersIn place) const
{
    return record_.layers.starts_with(LayersPrefix(folder_, record_.image, place));
}

std::vector<std::string> MountEntry::OtherLayers(LayersIn place) const
{
    const std::string prefix = LayersPrefix(folder_, record_.image, place);
    std::vector<std::string> others;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::path(prefix).parent_path(), error))
        if (entry.path().string().starts_with(prefix) && entry.path() != record_.layers)
            others.push_back(entry.path());
    return others;
}

std::string MountEntry::UnfinishedImage() const
{
    // No other name of the mount's beside the image file begins like this one.
    return record_.image + "." + Name() + ".new";
}

void MountEntry::Write(const MountRecord& record, Sync sync)
{
    WriteWholeFile(folder_ + "/record.json", ToText(record), sync);
    record_ = record;
}

void MountEntry::SetStatus(MountStatus status)
{
    MountRecord changed = record_;
    changed.status = status;
    Write(changed);
}

void MountEntry::SetLayers(const std::string& layers)
{
    MountRecord changed = record_;
    changed.layers = layers;
    // A crash unmounts everything; what lies in the record's folder goes with that.
    const bool isBesideImage = !layers.empty() && !layers.starts_with(folder_ + "/");
    Write(changed, isBesideImage ? Sync::Everything : Sync::Nothing);
}

void MountEntry::SetExtracting()
{
    Write(record_);
}

void MountEntry::SetUnmounting()
{
    try {
        SetStatus(MountStatus::Unmounting);
    } catch (const ServicingError& error) {
        if (error.GetCode() != code::disk_full)
            throw;
        // Only a save needs it. Dropping a mount is how room is made on a full disk.
        unlink((folder_ + "/tree").c_str());
        SetStatus(MountStatus::Unmounting);
    }
}

void MountEntry::PrepareMounted(const std::string& state) const
{
    // Of a lazy mount it says nothing yet, and keeps the room that dropping the mount needs on a full disk.
    WriteWholeFile(folder_ + "/tree", state, record_.IsLazy() ? Sync::Nothing : Sync::Content);
    MountRecord mounted = record_;
    mounted.status = MountStatus::Mounted;
    WriteWholeFile(folder_ + "/mounted.json", ToText(mounted), Sync::Content);
}

void MountEntry::SetMounted()
{
    RenameOver(folder_ + "/mounted.json", folder_ + "/record.json");
    SyncDirectoryOf(folder_ + "/record.json");
    record_.status = MountStatus::Mounted;
}

void MountEntry::Prepare(const MountRecord& next, const std::string* state)
{
    if (state != nullptr)
        WriteWholeFile(folder_ + "/next-tree", *state, Sync::Content);
    WriteWholeFile(folder_ + "/next.json", ToText(next));
}

void MountEntry::Adopt()
{
    record_ = Load(folder_ + "/next.json");
    record_.appendedTo = {};
    if (Exists(folder_ + "/next-tree")) {
        RenameOver(folder_ + "/next-tree", folder_ + "/tree");
        SyncDirectoryOf(folder_ + "/tree");
    }
    // If a crash takes that back, the next call adopts once more.
    RenameOver(folder_ + "/next.json", folder_ + "/record.json");
}

std::optional<MountRecord> MountEntry::Prepared() const
{
    return PreparedIn(folder_, record_);
}

void MountEntry::DropPrepared() const
{
    unlink((folder_ + "/next.json").c_str());
    unlink((folder_ + "/next-tree").c_str());
    RemoveUnfinished();
}

void MountEntry::Recover()
{
    const std::optional<MountRecord> next = Prepared();
    if (next && !next->appendedTo.IsEmpty() && Exists(next->image)) {
        const FileDescriptor lock = LockImage(next->image);
        RecoverLocked();
    } else {
        RecoverLocked();
    }
}

void MountEntry::RecoverLocked()
{
    if (const std::optional<MountRecord> next = Prepared()) {
        if (!next->appendedTo.IsEmpty())
            TakeBackAppend(*next);
        if (ImageIdentityOf(next->image) == next->imageIdentity)
            Adopt();
    }
    DropPrepared();
}

void MountEntry::RemoveUnfinished() const
{
    // libwim puts what it writes anew into a file of its own first, and a suffix to the name.
    for (const fs::path unfinished : {UnfinishedImage(), StandIn()}) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(unfinished.parent_path(), error))
            if (entry.path().filename().string().starts_with(unfinished.filename().string()))
                entry.is_directory(error) ? ClearWriterFolder(entry.path())
                                          : void(unlink(entry.path().c_str()));
    }
}

void MountEntry::Remove()
{
    // The record first: without it the rest of the folder means nothing.
    if (unlink((folder_ + "/record.json").c_str()) != 0)
        throw SystemError("cannot remove " + folder_ + "/record.json");
    SyncDirectoryOf(folder_ + "/record.json");
    try {
        RemoveFolder(folder_);
    } catch (const ServicingError&) {
        // The next mount tries again.
    }
}

// --- all mounts -----------------------------------------------------------------------------------

std::vector<std::string> MountRegistry::Folders() const
{
    std::vector<std::string> folders;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_, error))
        // A folder without a record is what a killed creation left: it never held anything.
        if (IsWritten(entry.path() / "record.json"))
            folders.push_back(entry.path());
    if (error && error != std::errc::no_such_file_or_directory)
        throw ServicingError(CodeOfErrno(error.value()),
                             "cannot list " + folder_ + ": " + error.message());
    return folders;
}

void MountRegistry::ForEach(const std::string& directory, const Visit& visit) const
{
    for (const std::string& folder : Folders()) {
        try {
            if (visit(folder, LoadWhole(folder, "record.json")))
                return;
        } catch (const ServicingError& error) {
            if (!IsWritten(folder + "/record.json")) // unmounted meanwhile
                continue;
            if (error.GetCode() != code::mount_damaged)
                throw;
            if (!directory.empty() && DirectoryOfDamaged(folder) == directory)
                throw ServicingError(
                    code::mount_damaged,
                    "the record of the mount in " + directory +
                        " is damaged, only clearing away invalid mounts helps: " + error.what());
            log_.Warning(std::string(error.what()) + "; it is left out");
        }
    }
}

std::vector<DamagedMount> MountRegistry::Damaged() const
{
    std::vector<DamagedMount> damaged;
    for (const std::string& folder : Folders()) {
        try {
            LoadWhole(folder, "record.json");
        } catch (const ServicingError& error) {
            if (error.GetCode() != code::mount_damaged)
                throw;
            if (IsWritten(folder + "/record.json"))
                damaged.push_back({DirectoryOfDamaged(folder), error.what()});
        }
    }
    return damaged;
}

std::optional<MountEntry> MountRegistry::FindDirectory(const std::string& directory,
                                                       WhenBusy whenBusy) const
{
    std::optional<MountEntry> found;
    ForEach(directory, [&](const std::string& folder, const MountRecord& record) {
        if (record.directory != directory)
            return false;
        FileDescriptor lock = OpenLock(folder + "/lock");
        if (!TryToLock(lock, whenBusy))
            throw ServicingError(code::busy, "another process works on the mount in " + directory);
        found.emplace(folder, std::move(lock), LoadWhole(folder, "record.json"));
        return true;
    });
    if (found)
        found->Recover();
    return found;
}

std::optional<MountRecord> MountRegistry::Peek(const std::string& directory) const
{
    std::optional<MountRecord> found;
    ForEach(directory, [&](const std::string&, MountRecord record) {
        if (record.directory == directory)
            found = std::move(record);
        return found.has_value();
    });
    return found;
}

std::vector<MountRecord> MountRegistry::All() const
{
    std::vector<MountRecord> all;
    ForEach({}, [&](const std::string&, MountRecord record) {
        all.push_back(std::move(record));
        return false;
    });
    return all;
}

std::optional<MountRecord> MountRegistry::FindImage(const std::string& image, unsigned index) const
{
    std::optional<MountRecord> found;
    ForEach({}, [&](const std::string&, MountRecord record) {
        if (record.image == image && record.index == index)
            found = std::move(record);
        return found.has_value();
    });
    return found;
}

MountEntry MountRegistry::Create(const MountRecord& record) const
{
    std::random_device random;
    char name[24];
    std::snprintf(name, sizeof name, "%08x%08x", random(), random());
    const std::string folder = folder_ + "/" + name;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw ServicingError(CodeOfErrno(error.value()),
                             "cannot create " + folder + ": " + error.message());
    FileDescriptor lock = OpenLock(folder + "/lock");
    flock(lock.Get(), LOCK_EX);
    WriteWholeFile(folder + "/record.json", ToText(record), Sync::Nothing);
    return MountEntry(folder, std::move(lock), record);
}

FileDescriptor MountRegistry::Lock() const
{
    std::error_code error;
    fs::create_directories(folder_, error);
    FileDescriptor lock = OpenLock(folder_ + "/lock");
    if (flock(lock.Get(), LOCK_EX) != 0)
        throw SystemError("cannot lock " + folder_);
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_, error)) {
        if (!entry.is_directory() || IsWritten(entry.path() / "record.json"))
            continue;
        try {
            RemoveFolder(entry.path());
        } catch (const ServicingError& left) {
            log_.Warning(std::string(left.what()) + "; " + entry.path().string() + " stays");
        }
    }
    return lock;
}

void MountRegistry::RemoveDamaged() const
{
    const FileDescriptor all = Lock();
    for (const std::string& folder : Folders()) {
        try {
            const FileDescriptor lock = OpenLock(folder + "/lock");
            if (TryToLock(lock, WhenBusy::Throw)) // else somebody works on it
                RemoveIfDamaged(folder);
        } catch (const ServicingError& error) {
            log_.Warning(std::string(error.what()) + "; " + folder + " stays");
        }
    }
}

void MountRegistry::RemoveIfDamaged(const std::string& folder) const
{
    try {
        PreparedIn(folder, LoadWhole(folder, "record.json"));
    } catch (const ServicingError& error) {
        if (error.GetCode() != code::mount_damaged)
            throw;
        log_.Warning(std::string(error.what()) + "; it is removed");
        // What of it is in use keeps the record, too: it is still a mount.
        RemoveFolder(folder);
    }
}

} // namespace kestro::servicing
