// outcome.h - results that the contract tests use and what the exports make of them.
#pragma once

#include "support/kestro_library.h"

#include <string>

namespace kestro::test {

inline constexpr HRESULT file_not_found = static_cast<HRESULT>(0x80070002);
inline constexpr HRESULT not_initialized = static_cast<HRESULT>(0xC0040001);
inline constexpr HRESULT open_handles = static_cast<HRESULT>(0xC004000A);
inline constexpr HRESULT smallest = static_cast<HRESULT>(0x80000000);
inline constexpr HRESULT restart_required = 3010;

// The value of an export whose steps all succeeded, and of one with a failed step.
unsigned SuccessValue(Form form, HRESULT shutdown);
unsigned FailureValue(Form form);

// The name of an argument in events, or NULL when it is null.
std::string Shown(const void* argument, const char* name);

} // namespace kestro::test
