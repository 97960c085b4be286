// write_test.h - fixed keys by which a host checks that it can read what the library writes.
#pragma once

namespace kestro::library {

void WriteTest(const char* resultFile);
void WriteTestW(const wchar_t* resultFile) noexcept;

} // namespace kestro::library
