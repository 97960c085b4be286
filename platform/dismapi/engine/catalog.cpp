// catalog.cpp - what a package's signed catalog says about its files.
#include "catalog.h"

#include "authenticode.h"
#include "image_tree.h"
#include "servicing_error.h"
#include "trust_list.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <fstream>
#include <openssl/evp.h>

namespace fs = std::filesystem;

namespace kestro::servicing {

// --- a file ----------------------------------------------------------------------------------------

// "10.0" or "5.x"; nothing if it is neither.
static std::optional<WindowsVersion> ParseVersion(std::string_view text)
{
    WindowsVersion version;
    const char* end = text.data() + text.size();
    const auto major = std::from_chars(text.data(), end, version.major);
    if (major.ec != std::errc() || major.ptr == end || *major.ptr != '.')
        return std::nullopt;
    if (std::string_view(major.ptr, end) == ".x")
        return version;
    const auto minor = std::from_chars(major.ptr + 1, end, version.minor);
    return minor.ec == std::errc() && minor.ptr == end ? std::optional(version) : std::nullopt;
}

// An OSAttr is a list such as "2:6.1,2:10.0", where 2 stands for NT. Windows takes drivers of its
// predecessors.
static bool IsFor(WindowsVersion windows, const std::string& osAttribute)
{
    bool saysAny = false;
    std::string_view rest = osAttribute;
    while (!rest.empty()) {
        const auto entry = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(rest.size(), entry.size() + 1));
        const auto version = entry.starts_with("2:") ? ParseVersion(entry.substr(2)) : std::nullopt;
        if (version && *version <= windows)
            return true;
        saysAny = saysAny || version;
    }
    return !saysAny;
}

static std::string ValueOf(const CatalogAttributes& attributes, const char* name)
{
    const auto found = attributes.find(name);
    return found == attributes.end() ? std::string() : found->second;
}

namespace {

enum class Listed { No, ForOtherWindows, Yes };

class Members {
  public:
    Members(const TrustList& list, std::optional<WindowsVersion> windows)
        : list_(list), windows_(windows)
    {
        for (const auto& [hash, member] : list.members)
            if (hash.size() == kSha256Size)
                namesWithSha256_.insert(LowerCase(ValueOf(member.attributes, "File")));
    }

    Listed Find(const PackageFile& file) const
    {
        const HashableFile content(file.path);
        const Listed bySha256 = FindHash(content, EVP_sha256());
        // A member with the better hash is not to be passed over for one with the weaker.
        if (bySha256 != Listed::No ||
            namesWithSha256_.contains(LowerCase(file.path.filename().string())))
            return bySha256;
        return FindHash(content, EVP_sha1());
    }

  private:
    static constexpr std::size_t kSha256Size = 32;

    Listed FindHash(const HashableFile& content, const EVP_MD* algorithm) const
    {
        Listed result = Listed::No;
        const auto [first, last] = list_.members.equal_range(content.Digest(algorithm));
        for (auto member = first; member != last; ++member) {
            const CatalogAttributes& own = member->second.attributes;
            const CatalogAttributes& said = own.contains("OSAttr") ? own : list_.attributes;
            if (member->second.ofImage.value_or(content.IsImage()) != content.IsImage())
                continue;
            if (!windows_ || IsFor(*windows_, ValueOf(said, "OSAttr")))
                return Listed::Yes;
            result = Listed::ForOtherWindows;
        }
        return result;
    }

    const TrustList& list_;
    std::optional<WindowsVersion> windows_;
    std::set<std::string> namesWithSha256_;
};

} // namespace

// --- the catalog -----------------------------------------------------------------------------------

// Its bits are inferred from one recording, in which both attributes were true.
static std::optional<std::uint32_t> DatabaseAttributes(const CatalogAttributes& attributes)
{
    constexpr std::uint32_t known = 0x80000000, universal = 1, declarative = 2;
    if (!attributes.contains("Universal") && !attributes.contains("Declarative"))
        return std::nullopt;
    const auto isTrue = [&](const char* name) {
        return EqualNames(ValueOf(attributes, name), "true");
    };
    return known | (isTrue("Universal") ? universal : 0) |
           (isTrue("Declarative") ? declarative : 0);
}

static CatalogVerdict Refused(CatalogState state, const std::string& reason)
{
    CatalogVerdict verdict;
    verdict.state = state;
    verdict.reason = reason;
    return verdict;
}

static CatalogVerdict CheckFiles(const TrustList& list, const std::vector<PackageFile>& files,
                                 std::optional<WindowsVersion> windows)
{
    const Members members(list, windows);
    CatalogVerdict verdict;
    verdict.state = CatalogState::Signed;
    for (const PackageFile& file : files) {
        const Listed listed = members.Find(file);
        if (listed == Listed::No) {
            verdict.notListed.push_back(file.name);
            verdict.state = CatalogState::FileNotListed;
        } else if (listed == Listed::ForOtherWindows && verdict.state == CatalogState::Signed) {
            verdict.state = CatalogState::ForOtherWindows;
            verdict.reason = "lists " + file.name + " for later versions of Windows only";
        }
    }
    if (verdict.state == CatalogState::FileNotListed) {
        verdict.reason = "does not list";
        for (const std::string& name : verdict.notListed)
            verdict.reason += (name == verdict.notListed.front() ? " " : ", ") + name;
        verdict.reason += " as it is";
    }
    return verdict;
}

CatalogVerdict CheckCatalog(const fs::path& catalog, const std::vector<PackageFile>& files,
                            std::optional<WindowsVersion> windows)
{
    std::error_code error;
    if (!fs::is_regular_file(catalog, error))
        return Refused(CatalogState::Missing, "is missing");
    // The largest that Windows comes with has a few megabytes.
    constexpr std::uintmax_t largest = 64 << 20;
    if (fs::file_size(catalog) > largest)
        return Refused(CatalogState::NotSigned, "is too large for a catalog");
    const std::string bytes = ReadWholeFile(catalog);
    constexpr char trustList[] = "1.3.6.1.4.1.311.10.1";
    const auto message = SignedMessage::Parse(
        {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, trustList);
    const auto list = message ? ReadTrustList(message->ContentSequence()) : std::nullopt;
    if (!list)
        return Refused(CatalogState::NotSigned, "is no signed catalog");
    if (!message->SignatureFits())
        return Refused(CatalogState::Altered, "was changed after it was signed");
    const Signer signer = message->FindSigner(std::time(nullptr));
    if (!signer.distrust.empty())
        return Refused(CatalogState::NotTrusted, "is not trusted: " + signer.distrust);

    CatalogVerdict verdict = CheckFiles(*list, files, windows);
    if (verdict.state == CatalogState::Signed) {
        verdict.signer = signer.name;
        verdict.signerScore = signer.score;
        verdict.attributes = DatabaseAttributes(list->attributes);
        verdict.submissionId = ValueOf(list->attributes, "Submission ID");
    }
    return verdict;
}

Code CodeOf(CatalogState state)
{
    switch (state) {
    case CatalogState::Missing:
        return code::catalog_missing;
    case CatalogState::NotSigned:
        return code::package_unsigned;
    case CatalogState::Altered:
        return code::bad_digest;
    case CatalogState::NotTrusted:
        return code::signer_not_trusted;
    case CatalogState::FileNotListed:
        return code::file_not_in_catalog;
    case CatalogState::ForOtherWindows:
        return code::catalog_for_other_windows;
    case CatalogState::Signed:
        break;
    }
    return code::ok;
}

ContentHash::ContentHash() : state_(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(state_), EVP_sha256(), nullptr);
}

ContentHash::~ContentHash()
{
    EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(state_));
}

void ContentHash::Add(std::string_view text)
{
    // The length keeps neighbouring texts apart.
    const std::uint64_t size = text.size();
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), &size, sizeof size);
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), text.data(), text.size());
}

void ContentHash::AddFile(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ServicingError(code::file_not_found, "cannot read " + file.string());
    std::uint64_t size = 0;
    char block[1 << 16];
    while (in.read(block, sizeof block), in.gcount() > 0) {
        const auto length = static_cast<std::size_t>(in.gcount());
        EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), block, length);
        size += length;
    }
    if (in.bad())
        throw ServicingError(code::read_fault, "cannot read " + file.string());
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), &size, sizeof size);
}

std::string ContentHash::Finish()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(state_), digest, &length);
    std::string text;
    for (int i = 0; i < 8; ++i) {
        constexpr char digits[] = "0123456789abcdef";
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

} // namespace kestro::servicing
