// sample_image.h - small programs and drivers (PE images) for the sample packages, written byte by byte.
#pragma once

#include "sample_signer.h"

#include <cstdint>
#include <string>

namespace kestro::samples {

inline constexpr std::uint16_t kX86 = 0x014C, kAmd64 = 0x8664, kArm = 0x01C4, kArm64 = 0xAA64;

// An image of one section. Its parts are kept apart, so that its hash is made here without looking for
// what Windows leaves out of it.
class SampleImage {
  public:
    // The content goes into the section; `beyond` follows the last section unpadded.
    SampleImage(std::uint16_t machine, const std::string& content, const std::string& beyond = {});

    void SetChecksum(const std::string& fourBytes) { checksum_ = fourBytes; }
    // Puts a signature into the image itself.
    void Sign(const SampleSigner& signer);

    std::string Bytes() const;
    std::string Hash(const EVP_MD* algorithm) const;

  private:
    std::string Padded() const;

    std::string beforeChecksum_, checksum_ = std::string(4, '\0'), beforeEntry_, afterEntry_;
    std::string certificates_;
};

std::string HashOf(const std::string& bytes, const EVP_MD* algorithm);

} // namespace kestro::samples
