// image_choice.cpp - the images of a file that --index means.
#include "image_choice.h"

#include "paths.h"
#include "usage_error.h"

#include <algorithm>
#include <iterator>

namespace kestro::host {
namespace {

[[noreturn]] void Refuse(const std::wstring& file, const std::vector<ImageDetails>& images,
                         const std::string& why)
{
    std::string text = Shown(file) + " " + why + "; it holds";
    for (const ImageDetails& image : images)
        text += (image.index > 1 ? ", " : " ") + std::to_string(image.index) +
                (image.name.empty() ? "" : " (" + image.name + ")");
    throw UsageError(text + (images.empty() ? " none" : ""));
}

bool SameName(const std::string& left, const std::string& right)
{
    const std::wstring a = detail::Wide(left, CP_UTF8), b = detail::Wide(right, CP_UTF8);
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

} // namespace

std::vector<ImageDetails> ChooseImages(const std::wstring& file,
                                       const std::vector<ImageDetails>& images,
                                       const std::string& choice)
{
    if (choice == "all" && !images.empty())
        return images;
    const std::string wanted = choice.empty() ? "1" : choice;
    const bool isNumber = wanted.find_first_not_of("0123456789") == std::string::npos;
    std::vector<ImageDetails> found;
    std::copy_if(
        images.begin(), images.end(), std::back_inserter(found), [&](const ImageDetails& image) {
            return isNumber ? std::to_string(image.index) == wanted : SameName(image.name, wanted);
        });
    if (found.empty())
        Refuse(file, images, "has no image " + wanted);
    if (found.size() > 1)
        Refuse(file, images, "has several images of the name " + wanted);
    return found;
}

ImageDetails ChooseImage(const std::wstring& file, const std::vector<ImageDetails>& images,
                         const std::string& choice)
{
    const auto chosen = ChooseImages(file, images, choice);
    if (chosen.size() > 1)
        throw UsageError("one image is mounted at a time: --index takes a number or a name");
    return chosen.front();
}

std::string ArchitectureText(std::uint32_t architecture)
{
    switch (architecture) {
    case PROCESSOR_ARCHITECTURE_AMD64:
        return "x64";
    case PROCESSOR_ARCHITECTURE_INTEL:
        return "x86";
    case PROCESSOR_ARCHITECTURE_ARM64:
        return "arm64";
    case PROCESSOR_ARCHITECTURE_ARM:
        return "arm";
    default:
        return "-";
    }
}

} // namespace kestro::host
