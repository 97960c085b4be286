// authenticode.cpp - how Windows hashes a file for a catalog or for the signature inside it.
#include "authenticode.h"

#include "servicing_error.h"

#include <algorithm>
#include <fcntl.h>
#include <openssl/asn1t.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace fs = std::filesystem;

namespace kestro::servicing {

using DigestState = std::unique_ptr<EVP_MD_CTX, Freed<EVP_MD_CTX_free>>;

// --- the file --------------------------------------------------------------------------------------

HashableFile::HashableFile(const fs::path& file)
    : path_(file), file_(open(file.c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat status = {};
    if (!file_ || fstat(file_.Get(), &status) != 0)
        throw SystemError("cannot open " + file.string());
    size_ = static_cast<std::uint64_t>(status.st_size);
    image_ = ReadImage();
}

// As much of it as the file has.
std::string HashableFile::Read(std::uint64_t from, std::uint64_t length) const
{
    if (from >= size_)
        return {};
    std::string bytes(static_cast<std::size_t>(std::min(length, size_ - from)), '\0');
    const ssize_t count = pread(file_.Get(), bytes.data(), bytes.size(), static_cast<off_t>(from));
    if (count < 0)
        throw SystemError("cannot read " + path_.string());
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

// Zero beyond the end of the file.
std::uint32_t HashableFile::Number(std::uint64_t at, int bytes) const
{
    std::uint32_t number = 0;
    const std::string text = Read(at, static_cast<std::uint64_t>(bytes));
    for (std::size_t i = 0; i < text.size(); ++i)
        number |= std::uint32_t{static_cast<unsigned char>(text[i])} << (8 * i);
    return number;
}

std::optional<HashableFile::Image> HashableFile::ReadImage() const
{
    if (Read(0, 2) != "MZ")
        return std::nullopt;
    const std::uint64_t header = Number(0x3C, 4);
    if (Read(header, 4) != std::string("PE\0\0", 4))
        return std::nullopt;
    const std::uint64_t optional = header + 24;
    const std::uint32_t magic = Number(optional, 2);
    constexpr std::uint32_t pe32 = 0x10B, pe32plus = 0x20B;
    if (magic != pe32 && magic != pe32plus)
        return std::nullopt;
    Image image;
    image.checksum = optional + 64;
    const std::uint64_t directories = optional + (magic == pe32 ? 92 : 108);
    constexpr unsigned certificates = 4; // the directory's fifth entry
    const std::uint64_t entry = directories + 4 + certificates * 8;
    if (entry + 8 > size_ || entry + 8 > optional + Number(header + 20, 2) ||
        Number(directories, 4) <= certificates)
        return image.checksum + 4 <= size_ ? std::optional(image) : std::nullopt;
    image.entry = entry;
    if (const std::uint64_t length = Number(entry + 4, 4)) {
        image.certificates = Number(entry, 4);
        image.certificatesEnd = image.certificates + length;
    }
    return image;
}

void HashableFile::AddTo(EVP_MD_CTX& digest, std::uint64_t from, std::uint64_t to) const
{
    constexpr std::uint64_t blockSize = 1 << 18;
    while (from < to) {
        const std::string block = Read(from, std::min(blockSize, to - from));
        if (block.empty())
            throw ServicingError(code::read_fault,
                                 path_.string() + " became shorter while it was read");
        EVP_DigestUpdate(&digest, block.data(), block.size());
        from += block.size();
    }
}

std::string HashableFile::Digest(const EVP_MD* algorithm) const
{
    const DigestState state(EVP_MD_CTX_new());
    if (EVP_DigestInit_ex(state.get(), algorithm, nullptr) != 1)
        return {};
    std::uint64_t done = 0;
    const auto addUpTo = [&](std::uint64_t end, std::uint64_t next) {
        AddTo(*state, done, end);
        done = next;
    };
    if (image_) {
        addUpTo(image_->checksum, image_->checksum + 4);
        if (image_->entry)
            addUpTo(image_->entry, image_->entry + 8);
        if (image_->certificatesEnd) {
            if (image_->certificates < done || image_->certificatesEnd > size_)
                return {};
            addUpTo(image_->certificates, image_->certificatesEnd);
        }
    }
    AddTo(*state, done, size_);
    // Who signs an image pads it first.
    constexpr unsigned char zeros[8] = {};
    if (image_ && !image_->certificatesEnd)
        EVP_DigestUpdate(state.get(), zeros, (8 - size_ % 8) % 8);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(state.get(), digest, &length);
    return {digest, digest + length};
}

std::vector<std::string> HashableFile::Signatures() const
{
    std::vector<std::string> signatures;
    if (!image_ || image_->certificatesEnd > size_)
        return signatures;
    constexpr std::uint32_t headerSize = 8, signedData = 2;
    for (std::uint64_t at = image_->certificates; at + headerSize < image_->certificatesEnd;) {
        const std::uint64_t length = Number(at, 4);
        if (length <= headerSize || length > image_->certificatesEnd - at)
            break;
        if (Number(at + 6, 2) == signedData)
            signatures.push_back(Read(at + headerSize, length - headerSize));
        at += (length + 7) / 8 * 8;
    }
    return signatures;
}

// --- what is stated of it --------------------------------------------------------------------------

struct IndirectType {
    ASN1_OBJECT* type;
    ASN1_TYPE* value;
};
ASN1_SEQUENCE(IndirectType) = {ASN1_SIMPLE(IndirectType, type, ASN1_OBJECT),
                               ASN1_OPT(IndirectType, value, ASN1_ANY)} //
static_ASN1_SEQUENCE_END(IndirectType)

    struct IndirectData {
    IndirectType* data;
    X509_SIG* hash;
};
ASN1_SEQUENCE(IndirectData) = {ASN1_SIMPLE(IndirectData, data, IndirectType),
                               ASN1_SIMPLE(IndirectData, hash, X509_SIG)} //
static_ASN1_SEQUENCE_END(IndirectData)

    static void FreeIndirectData(IndirectData * data)
{
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(data), ASN1_ITEM_rptr(IndirectData));
}

std::optional<StatedHash> ReadStatedHash(ByteView bytes)
{
    const unsigned char* at = bytes.data();
    const std::unique_ptr<IndirectData, Freed<FreeIndirectData>> data(
        reinterpret_cast<IndirectData*>(ASN1_item_d2i(nullptr, &at, static_cast<long>(bytes.size()),
                                                      ASN1_ITEM_rptr(IndirectData))));
    if (!data)
        return std::nullopt;
    const std::string type = TextOf(data->data->type);
    constexpr char image[] = "1.3.6.1.4.1.311.2.1.15", flatFile[] = "1.3.6.1.4.1.311.2.1.25";
    const X509_ALGOR* algorithm = nullptr;
    const ASN1_OCTET_STRING* digest = nullptr;
    X509_SIG_get0(data->hash, &algorithm, &digest);
    const EVP_MD* known = EVP_get_digestbyobj(algorithm->algorithm);
    if ((type != image && type != flatFile) || !known)
        return std::nullopt;
    return StatedHash{type == image, known, {digest->data, digest->data + digest->length}};
}

bool CarriesSignature(const fs::path& path)
{
    const HashableFile file(path);
    for (const std::string& bytes : file.Signatures()) {
        const auto message = SignedMessage::Parse(
            {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()},
            "1.3.6.1.4.1.311.2.1.4");
        const auto stated = message ? ReadStatedHash(message->ContentSequence()) : std::nullopt;
        if (stated && stated->ofImage && !stated->digest.empty() &&
            stated->digest == file.Digest(stated->algorithm) && message->SignatureFits())
            return true;
    }
    return false;
}

} // namespace kestro::servicing
