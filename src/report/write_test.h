// write_test.h - fixed keys by which a host checks that it can read what the library writes.
#pragma once

namespace kestro::library {

void WriteTestKeys(const char* resultFile);
void WriteTestKeysW(const wchar_t* resultFile) noexcept;

} // namespace kestro::library
