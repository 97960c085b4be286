// inf_decoration.h - which Windows a decorated section of an INF is for.
#pragma once

#include "image_windows.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kestro::servicing {

// NT[architecture][.[major][.[minor][.[product type][.[suite mask]][.[build]]]]]; any field may be
// empty.
struct Decoration {
    bool undecorated = false;
    std::string architecture; // in lower case; empty for any
    std::optional<std::uint32_t> major;
    std::optional<std::uint32_t> minor;
    std::optional<std::uint32_t> productType;
    std::optional<std::uint32_t> suiteMask;
    std::optional<std::uint32_t> build;

    bool FitsArchitecture(Architecture image) const;
    bool FitsVersion(const ImageWindows& windows) const;
    // Of those that fit, the greatest is the one to take.
    bool IsLessExactThan(const Decoration& other) const;
    // major << 24 | minor << 16 | build; 0 without a version.
    std::uint32_t Floor() const;
};

// `text` without a leading dot, empty for no decoration; nothing for what Windows does not understand.
std::optional<Decoration> ParseDecoration(const std::string& text);

} // namespace kestro::servicing
