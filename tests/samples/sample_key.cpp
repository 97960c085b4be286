// sample_key.cpp - keys that follow from a name.
#include "sample_key.h"

#include "sample_image.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <stdexcept>

namespace kestro::samples {

using Number = std::unique_ptr<BIGNUM, decltype([](BIGNUM* number) { BN_free(number); })>;
using NumberContext =
    std::unique_ptr<BN_CTX, decltype([](BN_CTX* context) { BN_CTX_free(context); })>;

constexpr unsigned long kExponent = 65537;

// The first prime of 1024 bits after a number that follows from the text and fits an RSA key.
static Number PrimeFor(const std::string& text, BN_CTX* context)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += HashOf(text + " " + std::to_string(i), EVP_sha256());
    Number prime(BN_bin2bn(reinterpret_cast<const unsigned char*>(bytes.data()),
                           static_cast<int>(bytes.size()), nullptr));
    // Both top bits: the product of two such numbers has twice their bits.
    for (const int bit : {0, 1022, 1023})
        BN_set_bit(prime.get(), bit);
    while (BN_mod_word(prime.get(), kExponent) == 1 ||
           BN_check_prime(prime.get(), context, nullptr) != 1)
        BN_add_word(prime.get(), 2);
    return prime;
}

std::shared_ptr<EVP_PKEY> KeyFor(const std::string& name)
{
    const NumberContext context(BN_CTX_new());
    const Number p = PrimeFor(name + " p", context.get()), q = PrimeFor(name + " q", context.get());
    const Number n(BN_new()), e(BN_new()), phi(BN_new()), p1(BN_dup(p.get())), q1(BN_dup(q.get()));
    BN_sub_word(p1.get(), 1);
    BN_sub_word(q1.get(), 1);
    BN_mul(n.get(), p.get(), q.get(), context.get());
    BN_mul(phi.get(), p1.get(), q1.get(), context.get());
    BN_set_word(e.get(), kExponent);
    const Number d(BN_mod_inverse(nullptr, e.get(), phi.get(), context.get()));
    if (!d)
        throw std::runtime_error("cannot make the key of " + name);

    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_D, d.get());
    OSSL_PARAM* parameters = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* maker = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    const bool made = EVP_PKEY_fromdata_init(maker) == 1 &&
                      EVP_PKEY_fromdata(maker, &key, EVP_PKEY_KEYPAIR, parameters) == 1;
    EVP_PKEY_CTX_free(maker);
    OSSL_PARAM_free(parameters);
    OSSL_PARAM_BLD_free(builder);
    if (!made)
        throw std::runtime_error("cannot make the key of " + name);
    return {key, &EVP_PKEY_free};
}

} // namespace kestro::samples
