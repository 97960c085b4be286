// hive_file.cpp - a registry hive of an offline image: finds keys, reads and writes values.
#include "hive_file.h"

#include "file_system.h"
#include "hive_check.h"
#include "hive_layout.h"
#include "hive_log.h"
#include "hive_names.h"
#include "image_tree.h"
#include "servicing_error.h"

#include <fcntl.h>

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

using namespace hive_layout;

HiveFile::HiveFile(const fs::path& file) : file_(file), cells_(ReadHive(file).bytes, file.string())
{
}

void HiveFile::CheckForChanges(const std::vector<std::string>& paths) const
{
    CheckHive(cells_.Content(), paths, file_.string());
}

HiveFile::Key HiveFile::Find(std::string_view path) const
{
    return Find(cells_.Root(), path);
}

HiveFile::Key HiveFile::Make(std::string_view path)
{
    return Make(cells_.Root(), path);
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

bool HiveFile::IsEmpty(Key key) const
{
    return SubkeysOf(key).cells.empty() &&
           cells_.Word(static_cast<Cell>(key), key_field::values) == 0;
}

// --- values ------------------------------------------------------------------------------------------

std::vector<HiveFile::Cell> HiveFile::ValueCells(Cell key) const
{
    std::vector<Cell> values;
    const std::size_t count = cells_.Word(key, key_field::values);
    if (count == 0)
        return values;
    const Cell list = cells_.Word(key, key_field::valueList);
    if (count > cells_.Room(list) / 4)
        cells_.Refuse("a list of values is too long");
    for (std::size_t i = 0; i < count; ++i) {
        values.push_back(cells_.Word(list, 4 + i * 4));
        cells_.Expect(values.back(), "vk");
    }
    return values;
}

std::string HiveFile::ValueName(Cell value) const
{
    return NameText(
        cells_.Bytes(value, value_field::name, cells_.Half(value, value_field::nameLength)),
        (cells_.Half(value, value_field::flags) & kNarrowValue) != 0);
}

std::string HiveFile::Data(Cell value) const
{
    const std::uint32_t length = cells_.Word(value, value_field::length);
    if (length & kInline)
        return std::string(
            cells_.Bytes(value, value_field::data, std::min<std::size_t>(length & ~kInline, 4)));
    if (length == 0)
        return {};
    const Cell data = cells_.Word(value, value_field::data);
    if (length <= kLargestData || length <= cells_.Room(data))
        return std::string(cells_.Bytes(data, 4, length));
    // In pieces.
    cells_.Expect(data, "db");
    const Cell list = cells_.Word(data, pieces_field::list);
    std::string bytes;
    for (std::size_t i = 0; i < cells_.Half(data, pieces_field::count); ++i) {
        const std::size_t more = std::min<std::size_t>(kLargestData, length - bytes.size());
        bytes += cells_.Bytes(cells_.Word(list, 4 + i * 4), 4, more);
    }
    if (bytes.size() != length)
        cells_.Refuse("a value is cut off");
    return bytes;
}

std::vector<HiveValue> HiveFile::Values(Key key) const
{
    std::vector<HiveValue> result;
    for (const Cell value : ValueCells(static_cast<Cell>(key)))
        result.push_back({ValueName(value), cells_.Word(value, value_field::type), Data(value)});
    return result;
}

std::optional<HiveValue> HiveFile::Value(Key key, const std::string& name) const
{
    if (key)
        for (const Cell value : ValueCells(static_cast<Cell>(key)))
            if (EqualNames(ValueName(value), name))
                return HiveValue{name, cells_.Word(value, value_field::type), Data(value)};
    return std::nullopt;
}

// Windows takes values of that size, the largest that a cell of an old hive may have.
constexpr std::size_t kLargestValue = 1'000'000;

HiveFile::Cell HiveFile::NewData(std::string_view bytes)
{
    const auto filled = [&](std::string_view part, std::size_t behind) {
        const Cell cell = cells_.Allocate(part.size() + behind);
        cells_.Put(cell, 4, part);
        return cell;
    };
    if (bytes.size() <= kLargestData || !cells_.HasPieces())
        return filled(bytes, 0);
    const std::size_t count = (bytes.size() + kLargestData - 1) / kLargestData;
    const Cell record = cells_.Allocate(pieces_field::list);
    const Cell list = cells_.Allocate(count * 4);
    cells_.Put(record, 4, "db");
    cells_.PutHalf(record, pieces_field::count, static_cast<std::uint16_t>(count));
    cells_.PutWord(record, pieces_field::list, list);
    // Behind a whole piece are four bytes of padding, and hivex takes them for granted behind all.
    for (std::size_t i = 0; i < count; ++i)
        cells_.PutWord(list, 4 + i * 4, filled(bytes.substr(i * kLargestData, kLargestData), 4));
    return record;
}

HiveFile::Cell HiveFile::NewValue(const HiveValue& value)
{
    if (value.data.size() > kLargestValue)
        throw ServicingError(code::invalid_parameter,
                             "the registry value " + value.name + " is too large");
    const StoredName name = NameBytes(value.name);
    const Cell cell = cells_.Allocate(value_field::name - 4 + name.bytes.size());
    cells_.Put(cell, 4, "vk");
    cells_.PutHalf(cell, value_field::nameLength, static_cast<std::uint16_t>(name.bytes.size()));
    cells_.PutWord(cell, value_field::type, value.type);
    cells_.PutHalf(cell, value_field::flags, name.narrow && !value.name.empty() ? kNarrowValue : 0);
    cells_.Put(cell, value_field::name, name.bytes);
    const auto length = static_cast<std::uint32_t>(value.data.size());
    if (length <= 4) {
        cells_.PutWord(cell, value_field::length, length | kInline);
        cells_.Put(cell, value_field::data, value.data);
        return cell;
    }
    const Cell data = NewData(value.data);
    cells_.PutWord(cell, value_field::length, length);
    cells_.PutWord(cell, value_field::data, data);
    return cell;
}

void HiveFile::FreeValue(Cell value)
{
    const std::uint32_t length = cells_.Word(value, value_field::length);
    if (!(length & kInline) && length != 0) {
        const Cell data = cells_.Word(value, value_field::data);
        if (length > cells_.Room(data)) {
            const Cell list = cells_.Word(data, pieces_field::list);
            for (std::size_t i = 0; i < cells_.Half(data, pieces_field::count); ++i)
                cells_.Free(cells_.Word(list, 4 + i * 4));
            cells_.Free(list);
        }
        cells_.Free(data);
    }
    cells_.Free(value);
}

void HiveFile::SetValueCells(Cell key, const std::vector<Cell>& values)
{
    const std::size_t before = cells_.Word(key, key_field::values);
    Cell list = before == 0 ? HiveCells::kNone : cells_.Word(key, key_field::valueList);
    if (list != HiveCells::kNone && (values.empty() || values.size() * 4 > cells_.Room(list))) {
        cells_.Free(list);
        list = HiveCells::kNone;
    }
    if (list == HiveCells::kNone && !values.empty())
        list = cells_.Allocate(values.size() * 4);
    for (std::size_t i = 0; i < values.size(); ++i)
        cells_.PutWord(list, 4 + i * 4, values[i]);
    cells_.PutWord(key, key_field::values, static_cast<std::uint32_t>(values.size()));
    cells_.PutWord(key, key_field::valueList, list);
}

void HiveFile::NoteChange(Cell key)
{
    cells_.Put(key, key_field::written, FileTimeNow());
    ++changes_;
}

void HiveFile::Grow(Cell key, std::size_t field, std::size_t size)
{
    cells_.PutWord(key, field, std::max(cells_.Word(key, field), static_cast<std::uint32_t>(size)));
}

void HiveFile::Set(Key key, const std::vector<HiveValue>& values)
{
    const auto cell = static_cast<Cell>(key);
    std::vector<Cell> all = ValueCells(cell);
    bool differs = false;
    for (const auto& value : values) {
        const auto there = std::find_if(all.begin(), all.end(), [&](Cell one) {
            return EqualNames(ValueName(one), value.name);
        });
        if (there != all.end() && cells_.Word(*there, value_field::type) == value.type &&
            Data(*there) == value.data)
            continue;
        const Cell written = NewValue(value);
        if (there == all.end()) {
            all.push_back(written);
        } else {
            FreeValue(*there);
            *there = written;
        }
        differs = true;
        Grow(cell, key_field::longestValueName, Utf16(value.name).size());
        Grow(cell, key_field::largestData, value.data.size());
    }
    if (!differs)
        return;
    SetValueCells(cell, all);
    NoteChange(cell);
}

bool HiveFile::RemoveValue(Key key, const std::string& name)
{
    const auto cell = static_cast<Cell>(key);
    std::vector<Cell> all = ValueCells(cell);
    const auto there = std::find_if(all.begin(), all.end(),
                                    [&](Cell value) { return EqualNames(ValueName(value), name); });
    if (there == all.end())
        return false;
    FreeValue(*there);
    all.erase(there);
    SetValueCells(cell, all);
    NoteChange(cell);
    return true;
}

void HiveFile::Save(const fs::path& file)
{
    WriteLists();
    const FileDescriptor handle(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!handle)
        throw SystemError("cannot write the registry hive " + file.string());
    WriteRange(handle.Get(), 0, cells_.Finished(FileTimeNow()));
}

} // namespace kestro::servicing
