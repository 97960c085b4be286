// hive_values.cpp - registry values as a hive stores them.
#include "hive_values.h"

#include "servicing_error.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iconv.h>
#include <memory>

namespace kestro::servicing {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Malloced = std::unique_ptr<T, FreeMemory>;

// Registry text is UTF-16.
static std::string Utf16(std::string utf8)
{
    const iconv_t converter = iconv_open("UTF-16LE", "UTF-8");
    std::string wide(utf8.size() * 2, '\0');
    char* in = utf8.data();
    char* out = wide.data();
    std::size_t inLeft = utf8.size();
    std::size_t outLeft = wide.size();
    const bool whole =
        iconv(converter, &in, &inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    if (!whole)
        throw ServicingError(code::invalid_parameter, "text that is not UTF-8: " + utf8);
    wide.resize(wide.size() - outLeft);
    return wide;
}

static void SetValue(hive_h* hive, hive_node_h key, const std::string& name, hive_type type,
                     std::string data)
{
    Utf16(name); // hivex reads from nowhere when a name is not UTF-8
    std::string keyName = name;
    const hive_set_value value{keyName.data(), type, data.size(), data.data()};
    if (hivex_node_set_value(hive, key, &value, 0) != 0)
        throw SystemError("set registry value " + name);
}

void SetText(hive_h* hive, hive_node_h key, const std::string& name, const std::string& text)
{
    SetValue(hive, key, name, hive_t_REG_SZ, Utf16(text) + std::string(2, '\0'));
}

void SetTexts(hive_h* hive, hive_node_h key, const std::string& name,
              const std::vector<std::string>& texts)
{
    std::string data;
    for (const auto& text : texts)
        data += Utf16(text) + std::string(2, '\0');
    SetValue(hive, key, name, hive_t_REG_MULTI_SZ, data + std::string(2, '\0'));
}

static std::string LittleEndian(std::uint64_t number, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(number >> 8 * i & 0xFF);
    return text;
}

void SetNumber(hive_h* hive, hive_node_h key, const std::string& name, std::uint32_t number)
{
    SetValue(hive, key, name, hive_t_REG_DWORD, LittleEndian(number, 4));
}

void SetBytes(hive_h* hive, hive_node_h key, const std::string& name, const std::string& bytes)
{
    SetValue(hive, key, name, hive_t_REG_BINARY, bytes);
}

std::string BytesOf(hive_h* hive, hive_node_h key, const std::string& name)
{
    const hive_value_h value = hivex_node_get_value(hive, key, name.c_str());
    hive_type type;
    std::size_t length = 0;
    const Malloced<char> data(value ? hivex_value_value(hive, value, &type, &length) : nullptr);
    return data ? std::string(data.get(), length) : std::string();
}

std::string TextOf(hive_h* hive, hive_node_h key, const std::string& name)
{
    const hive_value_h value = hivex_node_get_value(hive, key, name.c_str());
    const Malloced<char> text(value ? hivex_value_string(hive, value) : nullptr);
    return text ? text.get() : "";
}

bool RemoveValue(hive_h* hive, hive_node_h key, const std::string& name)
{
    const Malloced<hive_value_h> values(hivex_node_values(hive, key));
    if (!values)
        throw SystemError("read registry values");
    struct Kept {
        std::string name;
        hive_type type;
        std::string data;
    };
    std::vector<Kept> kept;
    bool found = false;
    for (hive_value_h* value = values.get(); *value; ++value) {
        const Malloced<char> valueName(hivex_value_key(hive, *value));
        if (valueName && EqualNames(valueName.get(), name)) {
            found = true;
            continue;
        }
        Kept one{valueName ? valueName.get() : "", hive_t_REG_NONE, ""};
        std::size_t length = 0;
        const Malloced<char> data(hivex_value_value(hive, *value, &one.type, &length));
        if (!data)
            throw SystemError("read registry value " + one.name);
        one.data.assign(data.get(), length);
        kept.push_back(std::move(one));
    }
    if (!found)
        return false;
    std::vector<hive_set_value> again;
    for (auto& one : kept)
        again.push_back({one.name.data(), one.type, one.data.size(), one.data.data()});
    if (hivex_node_set_values(hive, key, again.size(), again.data(), 0) != 0)
        throw SystemError("remove registry value " + name);
    return true;
}

std::string FileTimeBytes(std::uint64_t secondsSince1970)
{
    constexpr std::uint64_t from1601To1970 = 11644473600;
    return LittleEndian((secondsSince1970 + from1601To1970) * 10'000'000, 8);
}

// A GUID's text as its 16 bytes in memory; zeros if it is malformed.
static std::string GuidBytes(const std::string& text)
{
    std::string hex;
    for (const char c : text)
        if (std::isxdigit(static_cast<unsigned char>(c)))
            hex += c;
    if (hex.size() != 32)
        return std::string(16, '\0');
    constexpr int order[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    std::string bytes;
    for (const int i : order)
        bytes += static_cast<char>(
            std::stoi(hex.substr(static_cast<std::size_t>(i) * 2, 2), nullptr, 16));
    return bytes;
}

std::string VersionRecord(const DriverPackage& package)
{
    const std::chrono::year_month_day date{std::chrono::year(package.date.year),
                                           std::chrono::month(package.date.month),
                                           std::chrono::day(package.date.day)};
    std::string record = LittleEndian(0x00FF090000000000, 8) + GuidBytes(package.classGuid);
    if (date.ok() && package.date.year >= 1970) {
        const auto since = std::chrono::sys_days(date).time_since_epoch();
        record += FileTimeBytes(static_cast<std::uint64_t>(std::chrono::seconds(since).count()));
    } else {
        record += std::string(8, '\0');
    }
    for (auto part = package.version.rbegin(); part != package.version.rend(); ++part)
        record += LittleEndian(*part, 2);
    return record + std::string(8, '\0');
}

} // namespace kestro::servicing
