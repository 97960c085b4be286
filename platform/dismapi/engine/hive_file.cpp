// hive_file.cpp - a registry hive of an offline image: keys and values, read and written.
#include "hive_file.h"

#include "file_system.h"
#include "hive_check.h"
#include "hive_header.h"
#include "hive_log.h"
#include "image_tree.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <hivex.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace fs = std::filesystem;

namespace kestro::servicing {

namespace {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Malloced = std::unique_ptr<T, FreeMemory>;

// hivex reads files; this one is nowhere but in memory.
FileDescriptor MemoryFile(const std::string& content)
{
    FileDescriptor file(memfd_create("hive", MFD_CLOEXEC));
    if (!file)
        throw SystemError("cannot make a file in memory");
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = write(file.Get(), content.data() + done, content.size() - done);
        if (count < 0)
            throw SystemError("cannot write a file in memory");
        done += static_cast<std::size_t>(count);
    }
    return file;
}

// A type beyond the ones that hivex names is copied past its enumeration.
hive_type HivexType(std::uint32_t type)
{
    hive_type result;
    static_assert(sizeof result == sizeof type);
    std::memcpy(&result, &type, sizeof result);
    return result;
}

std::uint32_t TypeNumber(const hive_type& type)
{
    std::uint32_t number;
    std::memcpy(&number, &type, sizeof number);
    return number;
}

} // namespace

void HiveFile::Close::operator()(hive_h* hive) const
{
    hivex_close(hive);
}

HiveFile::HiveFile(const fs::path& file) : file_(file)
{
    const HiveContent content = ReadHive(file);
    FileDescriptor inMemory;
    std::string path = file.string();
    if (content.fromLog) {
        inMemory = MemoryFile(content.bytes);
        path = "/proc/self/fd/" + std::to_string(inMemory.Get());
    }
    hive_.reset(hivex_open(path.c_str(), HIVEX_OPEN_WRITE));
    if (!hive_)
        throw ServicingError(code::bad_hive, "cannot read the registry hive " + file.string());
}

void HiveFile::CheckForChanges(const std::vector<std::string>& paths) const
{
    CheckHive(ReadHive(file_).bytes, paths, file_.string());
}

HiveFile::Names& HiveFile::NamesBelow(Key key) const
{
    const auto [names, isNew] = names_.try_emplace(key);
    if (isNew)
        for (const Key child : Children(key))
            names->second.emplace(LowerCase(Name(child)), child);
    return names->second;
}

HiveFile::Key HiveFile::Child(Key parent, const std::string& name) const
{
    const Names& names = NamesBelow(parent);
    const auto found = names.find(LowerCase(name));
    return found == names.end() ? 0 : found->second;
}

HiveFile::Key HiveFile::MakeChild(Key parent, const std::string& name)
{
    if (const Key child = Child(parent, name))
        return child;
    Utf16(name); // hivex reads from nowhere when a name is not UTF-8
    const Key child = hivex_node_add_child(hive_.get(), parent, name.c_str());
    if (!child)
        throw SystemError("cannot make the registry key " + name);
    NamesBelow(parent).emplace(LowerCase(name), child);
    ++changes_;
    return child;
}

HiveFile::Key HiveFile::Find(std::string_view path) const
{
    return Find(hivex_root(hive_.get()), path);
}

HiveFile::Key HiveFile::Make(std::string_view path)
{
    return Make(hivex_root(hive_.get()), path);
}

// Calls `step` with each name of the path.
template <class Step>
static void ForEachName(std::string_view path, const Step& step)
{
    while (!path.empty()) {
        const auto end = std::min(path.find('\\'), path.size());
        if (end != 0)
            step(std::string(path.substr(0, end)));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
}

HiveFile::Key HiveFile::Find(Key parent, std::string_view path) const
{
    ForEachName(path, [&](const std::string& name) { parent = parent ? Child(parent, name) : 0; });
    return parent;
}

HiveFile::Key HiveFile::Make(Key parent, std::string_view path)
{
    ForEachName(path, [&](const std::string& name) { parent = MakeChild(parent, name); });
    return parent;
}

std::vector<HiveFile::Key> HiveFile::Children(Key key) const
{
    std::vector<Key> children;
    if (!key)
        return children;
    const Malloced<hive_node_h> nodes(hivex_node_children(hive_.get(), key));
    for (const hive_node_h* node = nodes.get(); node && *node; ++node)
        children.push_back(*node);
    return children;
}

std::string HiveFile::Name(Key key) const
{
    const Malloced<char> name(hivex_node_name(hive_.get(), key));
    return name ? name.get() : "";
}

bool HiveFile::IsEmpty(Key key) const
{
    return hivex_node_nr_children(hive_.get(), key) == 0 &&
           hivex_node_nr_values(hive_.get(), key) == 0;
}

void HiveFile::Remove(Key key)
{
    const std::string name = Name(key);
    const Key parent = hivex_node_parent(hive_.get(), key);
    if (hivex_node_delete_child(hive_.get(), key) != 0)
        throw SystemError("cannot remove the registry key " + name);
    NamesBelow(parent).erase(LowerCase(name));
    ++changes_;
}

std::vector<HiveValue> HiveFile::Values(Key key) const
{
    const Malloced<hive_value_h> values(hivex_node_values(hive_.get(), key));
    if (!values)
        throw ServicingError(code::bad_hive, "cannot read registry values of " + file_.string());
    std::vector<HiveValue> result;
    for (const hive_value_h* value = values.get(); *value; ++value) {
        const Malloced<char> name(hivex_value_key(hive_.get(), *value));
        hive_type type = hive_t_REG_NONE;
        std::size_t length = 0;
        const Malloced<char> data(hivex_value_value(hive_.get(), *value, &type, &length));
        if (!name || !data)
            throw ServicingError(code::bad_hive,
                                 "cannot read a registry value of " + file_.string());
        result.push_back({name.get(), TypeNumber(type), std::string(data.get(), length)});
    }
    return result;
}

std::optional<HiveValue> HiveFile::Value(Key key, const std::string& name) const
{
    const hive_value_h value = key ? hivex_node_get_value(hive_.get(), key, name.c_str()) : 0;
    if (!value)
        return std::nullopt;
    hive_type type = hive_t_REG_NONE;
    std::size_t length = 0;
    const Malloced<char> data(hivex_value_value(hive_.get(), value, &type, &length));
    if (!data)
        return std::nullopt;
    return HiveValue{name, TypeNumber(type), std::string(data.get(), length)};
}

// hivex sets all values of a key or one, and each time makes every one of them anew.
void HiveFile::Replace(Key key, const std::vector<HiveValue>& values)
{
    std::vector<HiveValue> kept = values;
    std::vector<hive_set_value> all;
    for (auto& value : kept) {
        Utf16(value.name);
        all.push_back(
            {value.name.data(), HivexType(value.type), value.data.size(), value.data.data()});
    }
    if (hivex_node_set_values(hive_.get(), key, all.size(), all.data(), 0) != 0)
        throw SystemError("cannot set registry values of " + Name(key));
    ++changes_;
}

static std::vector<HiveValue>::iterator FindNamed(std::vector<HiveValue>& values,
                                                  const std::string& name)
{
    return std::find_if(values.begin(), values.end(),
                        [&](const HiveValue& value) { return EqualNames(value.name, name); });
}

void HiveFile::Set(Key key, const std::vector<HiveValue>& values)
{
    if (values.empty())
        return;
    std::vector<HiveValue> all = Values(key);
    bool differs = false;
    for (const auto& value : values) {
        const auto there = FindNamed(all, value.name);
        if (there == all.end()) {
            all.push_back(value);
        } else {
            if (there->type == value.type && there->data == value.data)
                continue;
            *there = value;
        }
        differs = true;
    }
    if (differs)
        Replace(key, all);
}

bool HiveFile::RemoveValue(Key key, const std::string& name)
{
    std::vector<HiveValue> all = Values(key);
    const auto there = FindNamed(all, name);
    if (there == all.end())
        return false;
    all.erase(there);
    Replace(key, all);
    return true;
}

// hivex counts the sequence numbers up and leaves the times: an old log of the same time would seem to
// belong to the hive when Windows next marks it.
static void StampHive(const fs::path& file)
{
    constexpr std::size_t timeInFirstBin = 20;
    const FileDescriptor handle(open(file.c_str(), O_RDWR | O_CLOEXEC));
    std::string header(kHiveSector, '\0');
    const std::string time = FileTimeNow();
    if (!handle || pread(handle.Get(), header.data(), header.size(), 0) != kHiveSector)
        throw SystemError("cannot read " + file.string());
    header.replace(hive_field::written, time.size(), time);
    SetHiveChecksum(header);
    if (pwrite(handle.Get(), header.data(), header.size(), 0) != kHiveSector ||
        pwrite(handle.Get(), time.data(), time.size(), kHiveBins + timeInFirstBin) != 8)
        throw SystemError("cannot write " + file.string());
}

void HiveFile::Save(const fs::path& file)
{
    if (hivex_commit(hive_.get(), file.c_str(), 0) != 0)
        throw SystemError("cannot write the registry hive " + file.string());
    StampHive(file);
}

} // namespace kestro::servicing
