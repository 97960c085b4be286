// image_info.cpp - what an image file tells of its images, in its XML data.
#include "image_info.h"

#include "servicing_error.h"
#include "wim_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>

namespace kestro::servicing {
namespace {

// A number as the XML data has it: decimal, or hexadecimal after 0x. Anything else is no number.
template <class Number>
Number ParseNumber(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

// A pipe in its place must not hold the call.
void RequireFile(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        throw SystemError("cannot find the image file " + path);
    if (!S_ISREG(status.st_mode))
        throw ServicingError(code::access_denied, path + " is not a file");
}

class Properties {
  public:
    Properties(const WimFile& wim, unsigned index) : wim_(wim), index_(index) {}

    std::string Text(const std::string& name) const { return wim_.Property(index_, name); }
    template <class Number = unsigned>
    Number Value(const std::string& name) const
    {
        return ParseNumber<Number>(Text(name));
    }
    std::uint64_t Time(const std::string& name) const
    {
        return std::uint64_t{Value(name + "/HIGHPART")} << 32 | Value(name + "/LOWPART");
    }

  private:
    const WimFile& wim_;
    unsigned index_;
};

void ReadWindows(const Properties& properties, ImageInfo& info)
{
    if (const std::string architecture = properties.Text("WINDOWS/ARCH"); !architecture.empty())
        info.architecture = ParseNumber<unsigned>(architecture);
    info.productName = properties.Text("WINDOWS/PRODUCTNAME");
    info.edition = properties.Text("WINDOWS/EDITIONID");
    info.installationType = properties.Text("WINDOWS/INSTALLATIONTYPE");
    info.hal = properties.Text("WINDOWS/HAL");
    info.productType = properties.Text("WINDOWS/PRODUCTTYPE");
    info.productSuite = properties.Text("WINDOWS/PRODUCTSUITE");
    info.systemRoot = properties.Text("WINDOWS/SYSTEMROOT");
    info.version = {
        properties.Value("WINDOWS/VERSION/MAJOR"), properties.Value("WINDOWS/VERSION/MINOR"),
        properties.Value("WINDOWS/VERSION/BUILD"), properties.Value("WINDOWS/VERSION/SPBUILD")};
    info.servicePack = properties.Value("WINDOWS/VERSION/SPLEVEL");
}

void ReadLanguages(const Properties& properties, ImageInfo& info)
{
    const std::string byDefault = properties.Text("WINDOWS/LANGUAGES/DEFAULT");
    for (unsigned i = 1;; ++i) {
        const std::string language =
            properties.Text("WINDOWS/LANGUAGES/LANGUAGE[" + std::to_string(i) + "]");
        if (language.empty())
            break;
        info.languages.push_back(language);
    }
    const auto found = std::find(info.languages.begin(), info.languages.end(), byDefault);
    if (found != info.languages.end())
        info.defaultLanguage = static_cast<unsigned>(found - info.languages.begin());
}

ImageInfo InfoOf(const WimFile& wim, unsigned index)
{
    const Properties properties(wim, index);
    ImageInfo info;
    info.index = index;
    info.name = properties.Text("NAME");
    info.description = properties.Text("DESCRIPTION");
    info.totalBytes = properties.Value<std::uint64_t>("TOTALBYTES");
    info.directories = properties.Value("DIRCOUNT");
    info.files = properties.Value("FILECOUNT");
    info.created = properties.Time("CREATIONTIME");
    info.modified = properties.Time("LASTMODIFICATIONTIME");
    info.bootable = wim.BootIndex() == index;
    ReadWindows(properties, info);
    ReadLanguages(properties, info);
    return info;
}

} // namespace

std::vector<ImageInfo> ReadImageInfo(const std::string& path)
{
    RequireFile(path);
    const WimFile wim(path, WimFile::Access::Read, false, {});
    std::vector<ImageInfo> images;
    for (unsigned index = 1; index <= wim.ImageCount(); ++index)
        images.push_back(InfoOf(wim, index));
    return images;
}

} // namespace kestro::servicing
