// result_codes.cpp - what the platform's result codes mean to a person.
#include "result_codes.h"

#include "kestro.hpp"

#include <cstdio>

namespace kestro::host {
namespace {

struct Known {
    std::uint32_t code;
    const char* name;
    const char* message; // empty: the system has one
    const char* hint;
};

constexpr Known kKnown[] = {
#define SECTION(heading)
#define CODE(value, name, meaning, advice, hint) {value, name, meaning, hint},
#define SYSTEM_CODE(value, name, meaning, advice, hint) {value, name, "", hint},
#include "result_codes.inc"
#undef SECTION
#undef CODE
#undef SYSTEM_CODE
};

std::string SystemMessage(std::uint32_t code)
{
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string message = detail::Utf8({text, length});
    LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r'))
        message.pop_back();
    return message;
}

} // namespace

CodeText Describe(std::int32_t code)
{
    const auto bits = static_cast<std::uint32_t>(code);
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", bits);
    for (const Known& known : kKnown)
        if (known.code == bits)
            return {hex, known.name, *known.message != 0 ? known.message : SystemMessage(bits),
                    known.hint};
    return {hex, "", SystemMessage(bits), ""};
}

} // namespace kestro::host
