// sample_image.cpp - small programs and drivers (PE images) for the sample packages.
#include "sample_image.h"

#include "der.h"
#include "sample_catalog.h"

namespace kestro::samples {

static std::string Little(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value);
    return text;
}

std::string HashOf(const std::string& bytes, const EVP_MD* algorithm)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, algorithm, nullptr);
    return {digest, digest + length};
}

SampleImage::SampleImage(std::uint16_t machine, const std::string& content,
                         const std::string& beyond)
{
    const bool wide = machine == kAmd64 || machine == kArm64;
    constexpr std::uint32_t headerAt = 0x80, headersSize = 0x200, codeAt = 0x1000;
    const std::string section = content + std::string((512 - content.size() % 512) % 512, '\0');
    const std::string optional =
        Little(wide ? 0x20B : 0x10B, 2) + std::string(2, '\0') + Little(section.size(), 4) +
        std::string(8, '\0') + Little(codeAt, 4) + Little(codeAt, 4) +
        (wide ? Little(0x140000000, 8) : Little(0, 4) + Little(0x400000, 4)) + Little(0x1000, 4) +
        Little(512, 4) + Little(10, 4) + Little(0, 4) + Little(10, 4) + Little(0, 4) +
        Little(codeAt + (section.size() + 0xFFF) / 0x1000 * 0x1000, 4) + Little(headersSize, 4);
    const std::string rest = Little(1, 2) + Little(0, 2) + std::string(wide ? 32 : 16, '\0') +
                             Little(0, 4) + Little(16, 4);
    const std::size_t optionalSize = optional.size() + 4 + rest.size() + 16 * 8;
    beforeChecksum_ = "MZ" + std::string(58, '\0') + Little(headerAt, 4) + std::string(64, '\0') +
                      std::string("PE\0\0", 4) + Little(machine, 2) + Little(1, 2) +
                      std::string(12, '\0') + Little(optionalSize, 2) +
                      Little(wide ? 0x22 : 0x102, 2) + optional;
    beforeEntry_ = rest + std::string(4 * 8, '\0');
    afterEntry_ = std::string(11 * 8, '\0') + std::string(".text\0\0\0", 8) +
                  Little(content.size(), 4) + Little(codeAt, 4) + Little(section.size(), 4) +
                  Little(headersSize, 4) + std::string(12, '\0') + Little(0x60000020, 4);
    const std::size_t headers =
        beforeChecksum_.size() + 4 + beforeEntry_.size() + 8 + afterEntry_.size();
    afterEntry_ += std::string(headersSize - headers, '\0') + section + beyond;
}

// Whoever signs an image pads it to a multiple of eight bytes first.
std::string SampleImage::Padded() const
{
    const std::size_t size =
        beforeChecksum_.size() + 4 + beforeEntry_.size() + 8 + afterEntry_.size();
    return afterEntry_ + std::string((8 - size % 8) % 8, '\0');
}

std::string SampleImage::Hash(const EVP_MD* algorithm) const
{
    return HashOf(beforeChecksum_ + beforeEntry_ + Padded(), algorithm);
}

void SampleImage::Sign(const SampleSigner& signer)
{
    const std::string message =
        signer.Sign(kIndirectData, IndirectData(true, EVP_sha256(), Hash(EVP_sha256())));
    const std::string padding((8 - message.size() % 8) % 8, '\0');
    afterEntry_ = Padded();
    certificates_ = Little(8 + message.size() + padding.size(), 4) + Little(0x0200, 2) +
                    Little(2, 2) + message + padding;
}

std::string SampleImage::Bytes() const
{
    const std::size_t end =
        beforeChecksum_.size() + 4 + beforeEntry_.size() + 8 + afterEntry_.size();
    const std::string entry = certificates_.empty()
                                  ? std::string(8, '\0')
                                  : Little(end, 4) + Little(certificates_.size(), 4);
    return beforeChecksum_ + checksum_ + beforeEntry_ + entry + afterEntry_ + certificates_;
}

} // namespace kestro::samples
