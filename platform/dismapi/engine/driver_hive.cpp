// driver_hive.cpp - the driver database in an offline image's registry.
#include "driver_hive.h"

#include "file_system.h"
#include "hive_check.h"
#include "hive_values.h"
#include "servicing_error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;

namespace kestro::servicing {

// Signer scores as SetupAPI defines them.
constexpr std::uint32_t kScoreAuthenticode = 0x0F000000;
constexpr std::uint32_t kScoreUnsigned = 0x80000000;

std::optional<unsigned> OemNumber(std::string_view published)
{
    const std::string name = LowerCase(published);
    unsigned number = 0;
    if (!name.starts_with("oem") || !name.ends_with(".inf") || name.size() < 8)
        return std::nullopt;
    const char* const end = name.data() + name.size() - 4;
    const auto read = std::from_chars(name.data() + 3, end, number);
    return read.ec == std::errc() && read.ptr == end ? std::optional(number) : std::nullopt;
}

void DriverHive::Close::operator()(hive_h* hive) const
{
    hivex_close(hive);
}

// Windows leaves the two sequence numbers different while a transaction log holds newer content.
static void RefuseDirtyHive(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::array<char, 12> header{};
    if (!in.read(header.data(), header.size()) || std::string_view(header.data(), 4) != "regf")
        throw ServicingError(code::bad_hive, file.string() + " is not a registry hive");
    if (!std::equal(header.begin() + 4, header.begin() + 8, header.begin() + 8))
        throw ServicingError(code::bad_hive,
                             file.string() +
                                 " has changes in its log that were never written into it");
}

DriverHive::DriverHive(const fs::path& file) : file_(file)
{
    RefuseDirtyHive(file);
    hive_.reset(hivex_open(file.c_str(), HIVEX_OPEN_WRITE));
    if (!hive_)
        throw ServicingError(code::bad_hive, "cannot read the registry hive " + file_);
    CheckHive(ReadWholeFile(file_), "DriverDatabase", file_);
}

// The node at `path` ('\' between keys) below the hive's root; 0 if there is none.
DriverHive::Node DriverHive::Find(const std::string& path) const
{
    Node node = hivex_root(hive_.get());
    for (std::size_t start = 0; node && start <= path.size();) {
        const auto end = std::min(path.find('\\', start), path.size());
        node = hivex_node_get_child(hive_.get(), node, path.substr(start, end - start).c_str());
        start = end + 1;
    }
    return node;
}

DriverHive::Node DriverHive::Make(Node parent, const std::string& path)
{
    for (std::size_t start = 0; start <= path.size();) {
        const auto end = std::min(path.find('\\', start), path.size());
        const std::string name = path.substr(start, end - start);
        start = end + 1;
        if (name.empty())
            continue;
        const Node child = hivex_node_get_child(hive_.get(), parent, name.c_str());
        parent = child ? child : hivex_node_add_child(hive_.get(), parent, name.c_str());
        if (!parent)
            throw SystemError("make registry key " + name);
    }
    return parent;
}

bool DriverHive::HasDatabase() const
{
    return Find("DriverDatabase") != 0;
}

bool DriverHive::Knows(const std::string& published) const
{
    return Find("DriverDatabase\\DriverInfFiles\\" + published) != 0;
}

std::optional<std::string> DriverHive::FolderOf(const std::string& published) const
{
    const Node key = Find("DriverDatabase\\DriverInfFiles\\" + published);
    if (!key)
        return std::nullopt;
    std::string folder = TextOf(hive_.get(), key, "Active");
    if (folder.empty())
        folder = TextOf(hive_.get(), key, "");
    return folder.empty() ? std::nullopt : std::optional(folder);
}

void DriverHive::Register(const HiveEntry& entry)
{
    const Node database = Make(hivex_root(hive_.get()), "DriverDatabase");
    const Node inf = Make(database, "DriverInfFiles\\" + entry.published);
    SetTexts(hive_.get(), inf, "", {entry.folder});
    SetText(hive_.get(), inf, "Active", entry.folder);
    std::vector<std::string> configurations;
    for (const auto& model : entry.package->models)
        if (std::find(configurations.begin(), configurations.end(), model.installSection) ==
            configurations.end())
            configurations.push_back(model.installSection);
    SetTexts(hive_.get(), inf, "Configurations", configurations);
    WritePackage(database, entry);
    MarkNumber(database, entry.published, true);
}

void DriverHive::WritePackage(Node database, const HiveEntry& entry)
{
    const DriverPackage& package = *entry.package;
    hive_h* const hive = hive_.get();
    const Node key = Make(database, "DriverPackages\\" + entry.folder);
    SetText(hive, key, "", entry.published);
    SetText(hive, key, "InfName", entry.storedInf);
    SetText(hive, key, "OemPath", package.origin);
    SetText(hive, key, "Provider", package.provider);
    SetText(hive, key, "Catalog", package.catalog);
    SetText(hive, key, "SignerName", entry.signer);
    SetNumber(hive, key, "SignerScore", entry.signer.empty() ? kScoreUnsigned : kScoreAuthenticode);
    SetBytes(hive, key, "Version", VersionRecord(package));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    SetBytes(hive, key, "ImportDate",
             FileTimeBytes(static_cast<std::uint64_t>(
                 std::chrono::duration_cast<std::chrono::seconds>(now).count())));
    const Node strings = Make(key, "Strings");
    for (const auto& [name, text] : package.strings)
        SetText(hive, strings, LowerCase(name), text);
    WriteModels(database, key, entry);
}

void DriverHive::WriteModels(Node database, Node package, const HiveEntry& entry)
{
    hive_h* const hive = hive_.get();
    for (const auto& model : entry.package->models) {
        const Node configuration = Make(package, "Configurations\\" + model.installSection);
        SetText(hive, configuration, "Service", model.service);
        SetNumber(hive, configuration, "ConfigScope", 1);
        if (model.hardwareId.empty())
            continue;
        const Node descriptor = Make(package, "Descriptors\\" + model.hardwareId);
        SetText(hive, descriptor, "Configuration", model.installSection);
        SetText(hive, descriptor, "Description", model.description);
        SetText(hive, descriptor, "Manufacturer", model.manufacturer);
        const std::string hardwareMatch("\x01\xFF\x00\x00", 4);
        SetBytes(hive, Make(database, "DeviceIds\\" + model.hardwareId), entry.published,
                 hardwareMatch);
        const std::string compatibleMatch("\x02\xFF\x00\x00", 4);
        for (const auto& id : model.compatibleIds)
            SetBytes(hive, Make(database, "DeviceIds\\" + id), entry.published, compatibleMatch);
    }
}

// OemInfMap has one bit for each number in use, lowest number in the lowest bit.
void DriverHive::MarkNumber(Node database, const std::string& published, bool used)
{
    const auto number = OemNumber(published);
    if (!number)
        return;
    std::string map = BytesOf(hive_.get(), database, "OemInfMap");
    const std::size_t byte = *number / 8;
    const char bit = static_cast<char>(1 << *number % 8);
    if (map.size() <= byte && !used)
        return;
    if (map.size() <= byte)
        map.resize(byte + 1);
    map[byte] = static_cast<char>(used ? map[byte] | bit : map[byte] & ~bit);
    SetBytes(hive_.get(), database, "OemInfMap", map);
}

using Nodes = std::unique_ptr<hive_node_h, decltype(&std::free)>;

void DriverHive::Unregister(const std::string& published)
{
    hive_h* const hive = hive_.get();
    const Node database = Find("DriverDatabase");
    if (!database)
        return;
    if (const Node packages = Find("DriverDatabase\\DriverPackages")) {
        const Nodes children(hivex_node_children(hive, packages), &std::free);
        for (hive_node_h* child = children.get(); child && *child; ++child)
            if (EqualNames(TextOf(hive, *child, ""), published) &&
                hivex_node_delete_child(hive, *child) != 0)
                throw SystemError("remove a registry key of " + published);
    }
    const Node inf = Find("DriverDatabase\\DriverInfFiles\\" + published);
    if (inf && hivex_node_delete_child(hive, inf) != 0)
        throw SystemError("remove the registry key of " + published);
    if (const Node ids = Find("DriverDatabase\\DeviceIds"))
        RemoveDeviceIds(ids, published);
    MarkNumber(database, published, false);
}

// Removes the package's values in and below a key; true if the key lost something and is empty now.
bool DriverHive::RemoveDeviceIds(Node node, const std::string& published)
{
    hive_h* const hive = hive_.get();
    bool changed = RemoveValue(hive, node, published);
    const Nodes children(hivex_node_children(hive, node), &std::free);
    for (hive_node_h* child = children.get(); child && *child; ++child) {
        if (!RemoveDeviceIds(*child, published))
            continue;
        if (hivex_node_delete_child(hive, *child) != 0)
            throw SystemError("remove a device id of " + published);
        changed = true;
    }
    return changed && hivex_node_nr_children(hive, node) == 0 &&
           hivex_node_nr_values(hive, node) == 0;
}

void DriverHive::Save(const fs::path& file)
{
    if (hivex_commit(hive_.get(), file.c_str(), 0) != 0)
        throw SystemError("write the registry hive " + file.string());
}

} // namespace kestro::servicing
