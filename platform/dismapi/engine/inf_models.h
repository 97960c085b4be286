// inf_models.h - which devices an INF is for, and which of its sections install them.
#pragma once

#include "driver_package.h"
#include "inf_sections.h"

#include <string>
#include <vector>

namespace kestro::servicing {

// The decoration of a section name: NT[architecture][.major[.minor[...[.build]]]].
struct Decoration {
    std::string architecture; // empty for any
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;

    bool Fits(const std::string& imageArchitecture) const
    {
        return architecture.empty() || EqualNames(architecture, imageArchitecture);
    }
};

// `text` without a leading dot.
Decoration ParseDecoration(const std::string& text);

// The section that Windows takes for `section` on the architecture: the one with the most exact
// decoration, or the undecorated one; `section` itself if there is none at all. The version of an
// offline Windows is not looked at: of several, the one for the newest Windows counts.
std::string SectionToInstall(const InfSections& inf, const std::string& section,
                             const std::string& architecture);

// The models for the architecture. `applies` says if there are any; if not, the result holds those
// for other architectures.
std::vector<DriverModel> ReadModels(const InfSections& inf, const std::string& architecture,
                                    bool& applies);

} // namespace kestro::servicing
