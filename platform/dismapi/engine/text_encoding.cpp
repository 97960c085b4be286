// text_encoding.cpp - the encodings of INF files and of the registry, to and from UTF-8.
#include "text_encoding.h"

#include <array>
#include <cstdint>

namespace kestro::servicing {

constexpr char32_t kNoCharacter = 0xFFFD;

static void Append(std::string& text, char32_t character)
{
    const auto byte = [&](char32_t bits) { text += static_cast<char>(bits); };
    if (character < 0x80) {
        byte(character == 0 ? U' ' : character);
    } else if (character < 0x800) {
        byte(0xC0 | character >> 6);
        byte(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        byte(0xE0 | character >> 12);
        byte(0x80 | (character >> 6 & 0x3F));
        byte(0x80 | (character & 0x3F));
    } else {
        byte(0xF0 | character >> 18);
        byte(0x80 | (character >> 12 & 0x3F));
        byte(0x80 | (character >> 6 & 0x3F));
        byte(0x80 | (character & 0x3F));
    }
}

static bool IsSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit < 0xE000;
}

static std::string FromUtf16(std::string_view bytes, bool bigEndian)
{
    std::string text;
    const auto unit = [&](std::size_t at) {
        const auto first = static_cast<unsigned char>(bytes[at]);
        const auto second = static_cast<unsigned char>(bytes[at + 1]);
        return static_cast<char32_t>(bigEndian ? first << 8 | second : second << 8 | first);
    };
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const char32_t high = unit(at);
        if (!IsSurrogate(high)) {
            Append(text, high);
            continue;
        }
        const char32_t low = high < 0xDC00 && at + 3 < bytes.size() ? unit(at + 2) : 0;
        const bool pair = low >= 0xDC00 && low < 0xE000;
        Append(text, pair ? 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00) : kNoCharacter);
        at += pair ? 2 : 0;
    }
    return text;
}

// The character that begins at `at`, which moves on behind it.
static char32_t NextOfUtf8(std::string_view text, std::size_t& at)
{
    const auto lead = static_cast<unsigned char>(text[at++]);
    if (lead < 0x80)
        return lead;
    const int more = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 && lead < 0xF0 ? 2 : 1;
    if (lead < 0xC2 || lead >= 0xF5)
        return kNoCharacter;
    char32_t character = lead & (0x3F >> more);
    for (int i = 0; i < more; ++i, ++at) {
        const auto next = at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
        if ((next & 0xC0) != 0x80)
            return kNoCharacter;
        character = character << 6 | (next & 0x3F);
    }
    constexpr std::array<char32_t, 4> lowest{0, 0x80, 0x800, 0x10000};
    return character < lowest[static_cast<std::size_t>(more)] || character > 0x10FFFF ||
                   IsSurrogate(character)
               ? kNoCharacter
               : character;
}

static std::string FromUtf8(std::string_view bytes)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size();)
        Append(text, NextOfUtf8(bytes, at));
    return text;
}

// The code page of Western Windows; where it has no character, Windows takes the control code.
static std::string FromAnsi(std::string_view bytes)
{
    constexpr std::array<char32_t, 32> upper{
        0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};
    std::string text;
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        Append(text, code >= 0x80 && code < 0xA0 ? upper[code - 0x80u] : code);
    }
    return text;
}

// Plain text has no zero bytes; in UTF-16 every second byte of plain text is one.
static bool LooksLikeUtf16(std::string_view bytes)
{
    std::size_t zeros = 0;
    for (std::size_t at = 1; at < bytes.size(); at += 2)
        zeros += bytes[at] == '\0';
    return bytes.size() % 2 == 0 && zeros > bytes.size() / 4;
}

std::string TextOfFile(std::string_view bytes)
{
    if (bytes.starts_with("\xFF\xFE"))
        return FromUtf16(bytes.substr(2), false);
    if (bytes.starts_with("\xFE\xFF"))
        return FromUtf16(bytes.substr(2), true);
    if (bytes.starts_with("\xEF\xBB\xBF"))
        return FromUtf8(bytes.substr(3));
    return LooksLikeUtf16(bytes) ? FromUtf16(bytes, false) : FromAnsi(bytes);
}

std::string Utf16Of(std::string_view utf8)
{
    std::string bytes;
    const auto unit = [&](char32_t bits) {
        bytes += static_cast<char>(bits & 0xFF);
        bytes += static_cast<char>(bits >> 8);
    };
    for (std::size_t at = 0; at < utf8.size();) {
        const char32_t character = NextOfUtf8(utf8, at);
        if (character < 0x10000) {
            unit(character);
        } else {
            unit(0xD800 + ((character - 0x10000) >> 10));
            unit(0xDC00 + ((character - 0x10000) & 0x3FF));
        }
    }
    return bytes;
}

} // namespace kestro::servicing
