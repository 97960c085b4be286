// sample_packages.cpp - the driver packages of the maker "Kestro Samples".
#include "sample_packages.h"

#include "sample_catalog.h"
#include "sample_image.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace kestro::samples {
namespace {

enum class Encoding { Utf8, Ansi, Utf16 };

struct Payload {
    const char* path;
    std::uint16_t machine; // 0: data
    bool isSigned = false; // has a signature of its own
};

struct Package {
    std::vector<const char*> infs;
    Encoding encoding;
    const char* catalog; // none: unsigned
    const SampleSigner* (*signer)();
    SampleCatalog::Members members;
    std::map<std::string, std::string> attributes;
    std::vector<Payload> files;
};

const SampleSigner* None()
{
    return nullptr;
}
template <auto Signer>
const SampleSigner* By()
{
    return &Signer();
}

const std::map<std::string, std::string> kSubmitted = {
    {"Submission ID", "20240924_10000000000000001_1152921500000000001"},
    {"Universal", "False"},
    {"Declarative", "True"},
    {"OS", "_v100,_v100_X64"}};

const std::vector<Package>& Packages()
{
    using enum SampleCatalog::Members;
    static const std::vector<Package> packages = {
        {{"kestrohid.inf"},
         Encoding::Utf8,
         "kestrohid.cat",
         By<WhqlSigner>,
         Both,
         kSubmitted,
         {{"x86/kestrohid.sys", kX86},
          {"amd64/kestrohid.sys", kAmd64},
          {"arm64/kestrohid.sys", kArm64}}},
        {{"kestrobus.inf", "kestroport.inf"},
         Encoding::Ansi,
         "kestroserial.cat",
         By<AttestedSigner>,
         Both,
         kSubmitted,
         {{"x86/kestrobus.sys", kX86},
          {"x86/kestroui.dll", kX86},
          {"x86/kestroport.sys", kX86},
          {"amd64/kestrobus.sys", kAmd64},
          {"amd64/kestroui.dll", kAmd64},
          {"amd64/kestroport.sys", kAmd64}}},
        {{"kestrostor.inf"},
         Encoding::Utf8,
         "kestrostor.cat",
         By<WhqlSigner>,
         Both,
         {{"Submission ID", "20211202_10000000000000002_1152921500000000002"},
          {"Universal", "True"},
          {"Declarative", "True"}},
         {{"x86/kestrostor.sys", kX86, true},
          {"amd64/kestrostor.sys", kAmd64, true},
          {"arm64/kestrostor.sys", kArm64, true}}},
        {{"kestrodisplay.inf"},
         Encoding::Utf16,
         "KestroDisplay.cat",
         By<MakerSigner>,
         Sha256,
         {},
         {{"amd64/kestrodisplay.sys", kAmd64},
          {"arm64/kestrodisplay.sys", kArm64},
          {"firmware/kestrodisplay.bin", 0}}},
        {{"kestrohealth.inf"},
         Encoding::Utf8,
         "health_driver.cat",
         By<SystemSigner>,
         FirstGeneration,
         {},
         {{"x86/kestrohealth.sys", kX86},
          {"x86/kestrocoinst.dll", kX86},
          {"amd64/kestrohealth.sys", kAmd64},
          {"amd64/kestrocoinst.dll", kAmd64}}},
        {{"kestroaudio.inf"},
         Encoding::Utf8,
         nullptr,
         None,
         Both,
         {},
         {{"arm64/kestroaudio.sys", kArm64}}},
        {{"kestropins.inf"},
         Encoding::Utf8,
         nullptr,
         None,
         Both,
         {},
         {{"arm/kestropins.sys", kArm}}}};
    return packages;
}

// --- texts -----------------------------------------------------------------------------------------

// The sources are UTF-8 whose characters have three bytes at most.
std::u16string CodePoints(const std::string& utf8)
{
    std::u16string text;
    for (std::size_t i = 0; i < utf8.size();) {
        const auto next = [&] {
            return static_cast<unsigned>(static_cast<unsigned char>(utf8.at(i++)));
        };
        unsigned code = next();
        if (code >= 0xE0) {
            code = (code & 0x0F) << 12;
            code |= (next() & 0x3F) << 6;
            code |= next() & 0x3F;
        } else if (code >= 0xC0) {
            code = (code & 0x1F) << 6;
            code |= next() & 0x3F;
        }
        text += static_cast<char16_t>(code);
    }
    return text;
}

std::string Encoded(const std::string& utf8, Encoding encoding)
{
    if (encoding == Encoding::Utf8)
        return utf8;
    std::string text = encoding == Encoding::Utf16 ? "\xFF\xFE" : "";
    for (const char16_t code : CodePoints(utf8)) {
        text += static_cast<char>(code);
        if (encoding == Encoding::Utf16)
            text += static_cast<char>(code >> 8);
        else if (code > 0xFF)
            throw std::runtime_error("the ANSI code page lacks a character of an INF");
    }
    return text;
}

// With the line ends of Windows.
std::string InfText(const std::string& name)
{
    std::ifstream file(fs::path(KESTRO_SAMPLE_INFS) / name, std::ios::binary);
    if (!file)
        throw std::runtime_error("there is no INF " + name);
    std::string text;
    for (std::string line; std::getline(file, line);)
        text += line + "\r\n";
    return text;
}

void Write(const fs::path& path, const std::string& content)
{
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path.string());
}

// --- packages --------------------------------------------------------------------------------------

std::string ContentOf(const Payload& file, std::size_t size)
{
    std::string content;
    for (int line = 0; content.size() < size; ++line)
        content += std::string(file.path) + " of the Kestro Samples, line " + std::to_string(line) +
                   ".\r\n";
    return content;
}

ListedFile WriteFile(const fs::path& folder, const Payload& file, std::size_t size)
{
    const std::string content = ContentOf(file, size);
    const std::string name = fs::path(file.path).filename();
    if (file.machine == 0) {
        Write(folder / file.path, content);
        return Listing(name, content);
    }
    SampleImage image(file.machine, content);
    if (file.isSigned)
        image.Sign(MakerSigner());
    Write(folder / file.path, image.Bytes());
    return Listing(name, image);
}

void WritePackage(const fs::path& folder, const Package& package, std::size_t size)
{
    SampleCatalog catalog;
    catalog.members = package.members;
    catalog.attributes = package.attributes;
    for (const char* inf : package.infs) {
        const std::string text = Encoded(InfText(inf), package.encoding);
        Write(folder / inf, text);
        catalog.files.push_back(Listing(inf, text));
    }
    for (const Payload& file : package.files)
        catalog.files.push_back(WriteFile(folder, file, size));
    if (const SampleSigner* signer = package.signer())
        Write(folder / package.catalog, catalog.SignedBy(*signer));
}

} // namespace

void WriteSamplePackages(const fs::path& folder, std::size_t sizeOfFiles)
{
    for (const Package& package : Packages())
        WritePackage(folder / (package.catalog ? "signed" : "unsigned"), package, sizeOfFiles);
}

} // namespace kestro::samples
