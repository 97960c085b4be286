// sample_packages.h - the driver packages of the maker "Kestro Samples".
#pragma once

#include <cstddef>
#include <filesystem>

namespace kestro::samples {

// Writes them: `folder`/signed with INFs, catalogs and files side by side, and `folder`/unsigned, which is
// for ARM boards alone. Drivers and data have about that many bytes. Every run writes the same.
void WriteSamplePackages(const std::filesystem::path& folder, std::size_t sizeOfFiles);

} // namespace kestro::samples
