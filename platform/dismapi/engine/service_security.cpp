// service_security.cpp - who may do what with a service, from an INF's text to the registry's bytes.
#include "service_security.h"

#include "hive_values.h"
#include "inf_number.h"

#include <string_view>
#include <utility>
#include <vector>

namespace kestro::servicing {
namespace {

struct NamedBits {
    const char* name;
    std::uint32_t bits;
};

constexpr NamedBits kServiceRights[] = {
    {"CC", 0x1},        {"DC", 0x2},        {"LC", 0x4},        {"SW", 0x8},
    {"RP", 0x10},       {"WP", 0x20},       {"DT", 0x40},       {"LO", 0x80},
    {"CR", 0x100},      {"SD", 0x10000},    {"RC", 0x20000},    {"WD", 0x40000},
    {"WO", 0x80000},    {"FA", 0x1F01FF},   {"FR", 0x120089},   {"FW", 0x120116},
    {"FX", 0x1200A0},   {"KA", 0xF003F},    {"KR", 0x20019},    {"KW", 0x20006},
    {"KX", 0x20019},    {"GA", 0x10000000}, {"GX", 0x20000000}, {"GW", 0x40000000},
    {"GR", 0x80000000},
};

// What the generic rights are with services.
constexpr std::pair<std::uint32_t, std::uint32_t> kGenericRights[] = {
    {0x10000000, 0xF01FF}, {0x20000000, 0x20170}, {0x40000000, 0x20002}, {0x80000000, 0x2008D}};

constexpr NamedBits kAccessFlags[] = {{"OI", 0x1},  {"CI", 0x2},  {"NP", 0x4}, {"IO", 0x8},
                                      {"ID", 0x10}, {"SA", 0x40}, {"FA", 0x80}};

// The accounts and groups that every Windows has.
constexpr std::pair<const char*, const char*> kWellKnownAccounts[] = {
    {"WD", "S-1-1-0"},      {"CO", "S-1-3-0"},      {"CG", "S-1-3-1"},      {"OW", "S-1-3-4"},
    {"NU", "S-1-5-2"},      {"IU", "S-1-5-4"},      {"SU", "S-1-5-6"},      {"AN", "S-1-5-7"},
    {"ED", "S-1-5-9"},      {"PS", "S-1-5-10"},     {"AU", "S-1-5-11"},     {"RC", "S-1-5-12"},
    {"SY", "S-1-5-18"},     {"LS", "S-1-5-19"},     {"NS", "S-1-5-20"},     {"BA", "S-1-5-32-544"},
    {"BU", "S-1-5-32-545"}, {"BG", "S-1-5-32-546"}, {"PU", "S-1-5-32-547"}, {"AO", "S-1-5-32-548"},
    {"SO", "S-1-5-32-549"}, {"PO", "S-1-5-32-550"}, {"BO", "S-1-5-32-551"}, {"RE", "S-1-5-32-552"},
    {"RU", "S-1-5-32-554"}, {"RD", "S-1-5-32-555"}, {"NO", "S-1-5-32-556"}, {"MU", "S-1-5-32-558"},
    {"LU", "S-1-5-32-559"}, {"WR", "S-1-5-33"},     {"AC", "S-1-15-2-1"},
};

std::vector<std::string> SplitAt(std::string_view text, char at)
{
    std::vector<std::string> parts;
    for (;;) {
        const auto end = text.find(at);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

// Words of two letters each, without anything between them.
template <std::size_t Count>
std::optional<std::uint32_t> BitsOf(const NamedBits (&words)[Count], std::string_view text)
{
    std::uint32_t bits = 0;
    for (; !text.empty(); text.remove_prefix(2)) {
        const NamedBits* found = nullptr;
        for (const NamedBits& word : words)
            if (text.substr(0, 2) == word.name)
                found = &word;
        if (!found)
            return std::nullopt;
        bits |= found->bits;
    }
    return bits;
}

std::optional<std::uint32_t> RightsOf(const std::string& text)
{
    std::uint32_t number = 0;
    const bool isNumber = text.starts_with("0x") && IsNumber(text.substr(2), 16, number);
    const auto rights = isNumber ? std::optional(number) : BitsOf(kServiceRights, text);
    if (!rights)
        return std::nullopt;
    std::uint32_t mapped = *rights & 0x0FFFFFFF;
    for (const auto& [generic, ofServices] : kGenericRights)
        mapped |= *rights & generic ? ofServices : 0;
    return mapped;
}

// "S-1-5-32-544" or a word for it, as bytes.
std::optional<std::string> AccountBytes(std::string text)
{
    for (const auto& [word, account] : kWellKnownAccounts)
        if (text == word)
            text = account;
    const auto parts = SplitAt(text, '-');
    constexpr std::size_t most = 15;
    if (parts.size() < 4 || parts.size() > 3 + most || parts[0] != "S" || parts[1] != "1")
        return std::nullopt;
    std::string bytes = NumberBytes(1, 1) + NumberBytes(parts.size() - 3, 1) + NumberBytes(0, 2);
    for (std::size_t i = 2; i < parts.size(); ++i) {
        std::uint32_t number = 0;
        if (!IsNumber(parts[i], 10, number))
            return std::nullopt;
        if (i == 2) // the high byte first
            for (const int shift : {24, 16, 8, 0})
                bytes += static_cast<char>(number >> shift & 0xFF);
        else
            bytes += NumberBytes(number, 4);
    }
    return bytes;
}

std::string AccessEntry(std::uint32_t type, std::uint32_t flags, std::uint32_t rights,
                        const std::string& account)
{
    return NumberBytes(type, 1) + NumberBytes(flags, 1) + NumberBytes(8 + account.size(), 2) +
           NumberBytes(rights, 4) + account;
}

// "A;;GA;;;SY"
std::optional<std::string> AccessEntry(std::string_view text)
{
    const auto fields = SplitAt(text, ';');
    if (fields.size() != 6 || !fields[3].empty() || !fields[4].empty() ||
        (fields[0] != "A" && fields[0] != "D"))
        return std::nullopt;
    const auto flags = BitsOf(kAccessFlags, fields[1]);
    const auto rights = RightsOf(fields[2]);
    const auto account = AccountBytes(fields[5]);
    if (!flags || !rights || !account)
        return std::nullopt;
    return AccessEntry(fields[0] == "A" ? 0 : 1, *flags, *rights, *account);
}

std::string AccessList(const std::string& entries, std::size_t count)
{
    return NumberBytes(2, 2) + NumberBytes(8 + entries.size(), 2) + NumberBytes(count, 4) + entries;
}

// "P(A;;GA;;;SY)(A;;GR;;;WD)". That it is protected from what is above it says nothing of a service.
std::optional<std::string> AccessList(std::string_view text)
{
    std::string entries;
    std::size_t count = 0;
    text.remove_prefix(std::min(text.find('('), text.size()));
    for (; !text.empty(); ++count) {
        const auto end = text.find(')');
        if (text.front() != '(' || end == std::string_view::npos)
            return std::nullopt;
        const auto entry = AccessEntry(text.substr(1, end - 1));
        constexpr std::size_t longest = 0xFFF0;
        if (!entry || entries.size() + entry->size() > longest)
            return std::nullopt;
        entries += *entry;
        text.remove_prefix(end + 1);
    }
    return AccessList(entries, count);
}

} // namespace

std::optional<std::string> ServiceSecurity(const std::string& sddl)
{
    // What stands behind it ("S:...") is about auditing, which Windows sets itself.
    const auto begin = sddl.find("D:");
    if (begin == std::string::npos)
        return std::nullopt;
    const std::string_view rest = std::string_view(sddl).substr(begin + 2);
    const auto access = AccessList(rest.substr(0, rest.find("S:")));
    if (!access)
        return std::nullopt;
    constexpr std::uint32_t audit = 2, failures = 0x80, all = 0xF01FF;
    constexpr std::uint32_t header = 20, selfRelativeWithBothLists = 0x8014;
    const std::string system = *AccountBytes("SY");
    const std::string audited =
        AccessList(AccessEntry(audit, failures, all, *AccountBytes("WD")), 1);
    const std::size_t accessAt = header + audited.size();
    const std::size_t ownerAt = accessAt + access->size();
    return NumberBytes(1, 2) + NumberBytes(selfRelativeWithBothLists, 2) + NumberBytes(ownerAt, 4) +
           NumberBytes(ownerAt + system.size(), 4) + NumberBytes(header, 4) +
           NumberBytes(accessAt, 4) + audited + *access + system + system;
}

} // namespace kestro::servicing
