// result_codes.h - what the platform's result codes mean to a person.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::host {

struct CodeText {
    std::string hex;     // 0xC0040004
    std::string name;    // DISMAPI_E_INVALID_DISM_SESSION; empty when the platform has none
    std::string message; // may be empty
    std::string hint;    // what to do; may be empty
};

CodeText Describe(std::int32_t code);

} // namespace kestro::host
