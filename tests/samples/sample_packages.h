// sample_packages.h - the driver packages of the maker "Kestro Samples".
#pragma once

#include <filesystem>

namespace kestro::samples {

// Writes them: `folder`/signed with INFs, catalogs and files side by side, and `folder`/unsigned, which is
// for ARM boards alone. Every run writes the same bytes.
void WriteSamplePackages(const std::filesystem::path& folder);

} // namespace kestro::samples
