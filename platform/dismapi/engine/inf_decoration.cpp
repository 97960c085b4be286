// inf_decoration.cpp - which Windows a decorated section of an INF is for.
#include "inf_decoration.h"

#include "inf_number.h"

#include <array>
#include <tuple>
#include <vector>

namespace kestro::servicing {

static std::vector<std::string> FieldsOf(const std::string& text)
{
    std::vector<std::string> fields{""};
    for (const char c : text) {
        if (c == '.')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

static bool IsArchitecture(const std::string& name)
{
    for (const char* known : {"", "x86", "amd64", "arm", "arm64", "ia64"})
        if (name == known)
            return true;
    return false;
}

std::optional<Decoration> ParseDecoration(const std::string& text)
{
    Decoration decoration;
    decoration.undecorated = text.empty();
    if (text.empty())
        return decoration;
    const auto fields = FieldsOf(text);
    const std::string first = LowerCase(fields[0]);
    if (!first.starts_with("nt") || !IsArchitecture(first.substr(2)))
        return std::nullopt;
    decoration.architecture = first.substr(2);
    const std::array places{&decoration.major, &decoration.minor, &decoration.productType,
                            &decoration.suiteMask, &decoration.build};
    if (fields.size() > places.size() + 1)
        return std::nullopt;
    for (std::size_t i = 1; i < fields.size(); ++i) {
        if (fields[i].empty())
            continue;
        const bool hexadecimal = fields[i].starts_with("0x") || fields[i].starts_with("0X");
        std::uint32_t number = 0;
        if (!IsNumber(hexadecimal ? fields[i].substr(2) : fields[i], hexadecimal ? 16 : 10, number))
            return std::nullopt;
        *places[i - 1] = number;
    }
    return decoration;
}

bool Decoration::FitsArchitecture(Architecture image) const
{
    if (undecorated)
        return image == Architecture::X86;
    return architecture.empty() || architecture == ArchitectureName(image);
}

bool Decoration::FitsVersion(const ImageWindows& windows) const
{
    if (productType && *productType != windows.productType)
        return false;
    if (suiteMask && (*suiteMask & windows.suiteMask) != *suiteMask)
        return false;
    // An image that does not tell its version is taken for the newest Windows.
    if (windows.major == 0)
        return true;
    const std::tuple image(windows.major, windows.minor);
    const std::tuple wanted(major.value_or(0), minor.value_or(0));
    if (!build)
        return wanted <= image;
    // The first build of Windows that knows the field; earlier ones do not understand the decoration.
    constexpr std::tuple first(10u, 0u, 14310u);
    if (std::tuple(windows.major, windows.minor, windows.build) < first)
        return false;
    return wanted < image || (wanted == image && *build <= windows.build);
}

bool Decoration::IsLessExactThan(const Decoration& other) const
{
    const auto rank = [](const Decoration& one) {
        return std::tuple(one.major.value_or(0), one.minor.value_or(0), one.build.value_or(0),
                          one.productType.has_value(), one.suiteMask.has_value(),
                          !one.architecture.empty(), !one.undecorated);
    };
    return rank(*this) < rank(other);
}

std::uint32_t Decoration::Floor() const
{
    return (major.value_or(0) & 0xFF) << 24 | (minor.value_or(0) & 0xFF) << 16 |
           (build.value_or(0) & 0xFFFF);
}

} // namespace kestro::servicing
