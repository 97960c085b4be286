// sample_key.h - keys that follow from a name.
#pragma once

#include <memory>
#include <openssl/evp.h>
#include <string>

namespace kestro::samples {

// An RSA key of 2048 bits, the same one for the same name.
std::shared_ptr<EVP_PKEY> KeyFor(const std::string& name);

} // namespace kestro::samples
