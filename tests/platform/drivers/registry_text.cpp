// registry_text.cpp - a hive as hivexregedit, which is not ours, reads it.
#include "registry_text.h"

#include "image_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace kestro::test {

namespace {

using servicing::LowerCase;

std::string HexOf(const std::string& bytes)
{
    std::string hex;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        hex += digits;
    }
    return hex;
}

std::string BytesOf(const std::string& list)
{
    std::string bytes;
    std::istringstream in(list);
    for (std::string byte; std::getline(in, byte, ',');)
        bytes += static_cast<char>(std::strtoul(byte.c_str(), nullptr, 16));
    return bytes;
}

// UTF-16 without its end; several texts with '|' between them.
std::string TextsOf(const std::string& bytes)
{
    std::string text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += bytes[i] == '\0' && bytes[i + 1] == '\0' ? '|' : bytes[i];
    while (!text.empty() && text.back() == '|')
        text.pop_back();
    return text;
}

std::string NumberOf(const std::string& bytes)
{
    std::string digits;
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte)
        digits += HexOf({*byte});
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    return "0x" + digits;
}

std::string ValueOf(const std::string& written)
{
    if (written.starts_with("dword:"))
        return "DW 0x" + [](std::string digits) {
            digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
            return digits;
        }(written.substr(6));
    const auto end = written.find("):");
    const std::string type = written.substr(4, end - 4);
    const std::string bytes = BytesOf(written.substr(end + 2));
    if (type == "0")
        return bytes.empty() ? "NONE" : "NONE " + HexOf(bytes);
    if (type == "1")
        return "SZ " + TextsOf(bytes);
    if (type == "2")
        return "EX " + TextsOf(bytes);
    if (type == "7")
        return "MSZ " + TextsOf(bytes);
    if (type == "b")
        return "QW " + NumberOf(bytes);
    if (type == "3")
        return "BIN " + HexOf(bytes);
    return "0x" + type + " " + TextsOf(bytes);
}

std::string Name(const std::string& key, const std::string& name)
{
    return LowerCase(key + "  " + name);
}

// The name at the start of a line, '"' around it, and where it ends.
std::string QuotedName(const std::string& line, std::size_t& end)
{
    std::string name;
    for (end = 1; end < line.size() && line[end] != '"'; ++end) {
        if (line[end] == '\\')
            ++end;
        name += line[end];
    }
    ++end;
    return name;
}

} // namespace

RegistryText ReadRegistry(const fs::path& hive, const std::string& key)
{
    RegistryText registry;
    std::istringstream in(
        Shell("hivexregedit --export '" + hive.string() + "' '\\" + key + "' 2>/dev/null || true"));
    std::string at;
    bool empty = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("[")) {
            at = line.substr(1, line.size() - 2);
            at = at.size() > key.size() + 1 ? at.substr(key.size() + 2) : "";
            registry[Name(at, "")] = "";
            empty = true;
        } else if (line.starts_with("\"") || line.starts_with("@")) {
            if (empty)
                registry.erase(Name(at, ""));
            empty = false;
            std::size_t end = 1;
            const std::string name = line.front() == '@' ? "@" : QuotedName(line, end);
            registry[Name(at, name)] = ValueOf(line.substr(end + 1));
        }
    }
    return registry;
}

RegistryText Expected(const std::string& lines)
{
    RegistryText registry;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        const auto first = line.find("  ");
        const auto second = line.find("  ", first + 2);
        if (second != std::string::npos)
            registry[Name(line.substr(0, first), line.substr(first + 2, second - first - 2))] =
                line.substr(second + 2);
        else if (!line.empty())
            registry[Name(line, "")] = "";
    }
    return registry;
}

std::string Differences(const RegistryText& actual, const RegistryText& expected,
                        const std::vector<std::string>& ignored)
{
    const auto isIgnored = [&](const std::string& name) {
        return std::any_of(ignored.begin(), ignored.end(), [&](const std::string& part) {
            return name.find(LowerCase(part)) != std::string::npos;
        });
    };
    std::string text;
    for (const auto& [name, value] : expected) {
        const auto found = actual.find(name);
        if (!isIgnored(name) && (found == actual.end() || found->second != value))
            text += "expected " + name + " = " + value + ", is " +
                    (found == actual.end() ? "not there" : found->second) + "\n";
    }
    for (const auto& [name, value] : actual)
        if (!isIgnored(name) && !expected.contains(name) && !value.empty())
            text += "not expected: " + name + " = " + value + "\n";
    return text;
}

// The tool makes a key only below one that is there.
static std::string WithParents(const std::string& text)
{
    std::string result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line); result += line + "\n")
        if (line.starts_with("[\\"))
            for (auto at = line.find('\\', 2); at != std::string::npos;
                 at = line.find('\\', at + 1))
                result += line.substr(0, at) + "]\n\n";
    return result;
}

void MergeRegistry(const fs::path& hive, const std::string& text)
{
    const fs::path file = hive.string() + ".reg";
    WriteFile(file, "Windows Registry Editor Version 5.00\n\n" + WithParents(text));
    Shell("hivexregedit --merge '" + hive.string() + "' '" + file.string() + "'");
    fs::remove(file);
}

} // namespace kestro::test
