// hive_names.cpp - the names of keys and values as a hive stores and orders them.
#include "hive_names.h"

#include "hive_values.h"

#include <clocale>
#include <cwctype>

namespace kestro::servicing {

namespace {

std::u16string Units(std::string_view bytes, bool narrow)
{
    std::u16string units;
    const std::size_t step = narrow ? 1 : 2;
    for (std::size_t i = 0; i + step <= bytes.size(); i += step) {
        auto unit = static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
        if (!narrow)
            unit = static_cast<char16_t>(unit | static_cast<unsigned char>(bytes[i + 1]) << 8);
        units += unit;
    }
    return units;
}

// As Windows' table has it: Unicode's, but none of the letters beyond Latin-1 becomes one of it (as the
// dotless i would), and of Latin-1 only the sharp s and the micro sign stay what they are.
char16_t Upper(char16_t unit)
{
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if ((unit >= u'a' && unit <= u'z') || (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7))
        return static_cast<char16_t>(unit - 0x20);
    if (unit == 0xFF)
        return 0x178;
    if (unit < 0x100 || !unicode)
        return unit;
    const wint_t upper = towupper_l(unit, unicode);
    return upper > 0xFF && upper < 0x10000 ? static_cast<char16_t>(upper) : unit;
}

void AppendUtf8(std::string& text, char32_t character)
{
    const auto part = [&](int shift) {
        text += static_cast<char>(0x80 | (character >> shift & 0x3F));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | character >> 6);
        part(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | character >> 12);
        part(6), part(0);
    } else {
        text += static_cast<char>(0xF0 | character >> 18);
        part(12), part(6), part(0);
    }
}

} // namespace

StoredName NameBytes(const std::string& utf8)
{
    StoredName name{Utf16(utf8), true};
    std::string narrow;
    for (std::size_t i = 0; i < name.bytes.size(); i += 2) {
        narrow += name.bytes[i];
        name.narrow = name.narrow && name.bytes[i + 1] == '\0';
    }
    if (name.narrow)
        name.bytes = narrow;
    return name;
}

std::string NameText(std::string_view bytes, bool narrow)
{
    const std::u16string units = Units(bytes, narrow);
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t character = units[i];
        if (character >= 0xD800 && character < 0xE000) {
            const bool pair = character < 0xDC00 && i + 1 < units.size() &&
                              units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000;
            character = pair ? 0x10000 + (character - 0xD800) * 0x400 + (units[++i] - 0xDC00)
                             : char32_t{0xFFFD};
        }
        AppendUtf8(text, character);
    }
    return text;
}

std::u16string UpperName(std::string_view bytes, bool narrow)
{
    std::u16string name = Units(bytes, narrow);
    for (auto& unit : name)
        unit = Upper(unit);
    return name;
}

std::uint32_t NameHash(const std::u16string& upper)
{
    std::uint32_t hash = 0;
    for (const char16_t unit : upper)
        hash = hash * 37 + unit;
    return hash;
}

std::string NameHint(std::string_view bytes, bool narrow)
{
    std::string hint;
    for (const char16_t unit : Units(bytes, narrow).substr(0, 4)) {
        // A hint of other characters is none.
        if (unit > 0xFF)
            return std::string(4, '\0');
        hint += static_cast<char>(unit);
    }
    hint.resize(4, '\0');
    return hint;
}

} // namespace kestro::servicing
