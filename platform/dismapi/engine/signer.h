// signer.h - what the certificate that signed a message says about its signature.
#pragma once

#include "signed_message.h"

namespace kestro::servicing {

Signer SignerOf(PKCS7& message, std::time_t now);

} // namespace kestro::servicing
