// hive_values.cpp - registry values as a hive stores them.
#include "hive_values.h"

#include "servicing_error.h"

#include <algorithm>
#include <chrono>
#include <iconv.h>

namespace kestro::servicing {

// Empty if `text` is not in the encoding `from`.
static std::string Converted(std::string_view text, const char* to, const char* from)
{
    const iconv_t converter = iconv_open(to, from);
    std::string source(text);
    std::string result(text.size() * 3, '\0');
    char* in = source.data();
    char* out = result.data();
    std::size_t inLeft = source.size();
    std::size_t outLeft = result.size();
    const bool whole =
        iconv(converter, &in, &inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    result.resize(whole ? result.size() - outLeft : 0);
    return result;
}

std::string Utf16(std::string_view utf8)
{
    if (std::all_of(utf8.begin(), utf8.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        std::string wide(utf8.size() * 2, '\0');
        for (std::size_t i = 0; i < utf8.size(); ++i)
            wide[i * 2] = utf8[i];
        return wide;
    }
    std::string wide = Converted(utf8, "UTF-16LE", "UTF-8");
    if (wide.empty() && !utf8.empty())
        throw ServicingError(code::invalid_parameter,
                             "text that is not UTF-8: " + std::string(utf8));
    return wide;
}

std::string NumberBytes(std::uint64_t number, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(number >> 8 * i & 0xFF);
    return text;
}

constexpr std::uint64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;

std::string FileTimeNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() / 100;
    return NumberBytes(static_cast<std::uint64_t>(ticks) + kTicksFrom1601To1970, 8);
}

static const std::string& Terminator()
{
    static const std::string terminator(2, '\0');
    return terminator;
}

HiveValue TextValue(const std::string& name, const std::string& text)
{
    return {name, registry::text, Utf16(text) + Terminator()};
}

HiveValue ExpandableValue(const std::string& name, const std::string& text)
{
    return {name, registry::expandable, Utf16(text) + Terminator()};
}

HiveValue TextsValue(const std::string& name, const std::vector<std::string>& texts)
{
    std::string data;
    for (const auto& text : texts)
        data += Utf16(text) + Terminator();
    return {name, registry::texts, data + Terminator()};
}

HiveValue NumberValue(const std::string& name, std::uint32_t number)
{
    return {name, registry::number, NumberBytes(number, 4)};
}

HiveValue LongNumberValue(const std::string& name, std::uint64_t number)
{
    return {name, registry::longNumber, NumberBytes(number, 8)};
}

HiveValue BytesValue(const std::string& name, const std::string& bytes)
{
    return {name, registry::binary, bytes};
}

std::vector<std::string> TextsOf(const HiveValue& value)
{
    std::vector<std::string> texts;
    const std::string_view data = value.data;
    for (std::size_t start = 0; start + 1 < data.size();) {
        std::size_t end = start;
        while (end + 1 < data.size() && (data[end] != '\0' || data[end + 1] != '\0'))
            end += 2;
        if (end == start)
            break;
        texts.push_back(Converted(data.substr(start, end - start), "UTF-8", "UTF-16LE"));
        start = end + 2;
    }
    return texts;
}

std::string TextOf(const HiveValue& value)
{
    const auto texts = TextsOf(value);
    return texts.empty() ? "" : texts.front();
}

std::uint32_t NumberOf(const HiveValue& value)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4 && value.data.size() >= 4; ++i)
        number |= static_cast<std::uint32_t>(static_cast<unsigned char>(value.data[i])) << 8 * i;
    return number;
}

} // namespace kestro::servicing
