// image_tree.h - finds files of an offline Windows tree as Windows would: without regard to case.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kestro::servicing {

enum class Architecture { X86, Amd64, Arm, Arm64 };

std::string LowerCase(std::string_view text);
bool EqualNames(std::string_view left, std::string_view right);

// The existing file or folder that `relative` ('/' between its parts) names below `folder`.
std::optional<std::filesystem::path> FindPath(const std::filesystem::path& folder,
                                              std::string_view relative);

// As FindPath, but for the tree of an image: a symbolic link on the way is refused, because it may
// lead out of the image, and parts that do not exist yet keep the spelling of `relative`.
std::filesystem::path PathInImage(const std::filesystem::path& root, std::string_view relative);

// The architecture the image's Windows is built for; amd64 if the image does not tell.
Architecture ImageArchitecture(const std::filesystem::path& root);

// The word that INF decorations and driver store folders use: "amd64", "x86", "arm64", "arm".
const char* ArchitectureName(Architecture architecture);

} // namespace kestro::servicing
