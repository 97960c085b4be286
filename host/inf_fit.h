// inf_fit.h - for which architectures an INF has something, to tell why a package does not fit an image.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::host {

// "for another architecture (arm64)" or "for another Windows version", when the system took neither.
std::string WhyUnfit(const std::wstring& inf, std::uint32_t imageArchitecture);

// Whether a catalog that the INF names lies beside it.
bool HasCatalog(const std::wstring& inf);

} // namespace kestro::host
