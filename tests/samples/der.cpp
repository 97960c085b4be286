// der.cpp - writes DER, the encoding of ASN.1 that signatures are made of.
#include "der.h"

#include <openssl/objects.h>

namespace kestro::samples {

std::string Der(unsigned char tag, const std::string& content)
{
    std::string length;
    for (std::size_t rest = content.size(); rest != 0; rest >>= 8)
        length.insert(length.begin(), static_cast<char>(rest));
    std::string header(1, static_cast<char>(tag));
    if (content.size() >= 0x80)
        header += static_cast<char>(0x80 | length.size());
    else if (length.empty())
        header += '\0';
    return header + length + content;
}

std::string DerObject(const char* identifier)
{
    ASN1_OBJECT* object = OBJ_txt2obj(identifier, 1);
    unsigned char* bytes = nullptr;
    const int length = i2d_ASN1_OBJECT(object, &bytes);
    std::string encoded(bytes, bytes + length);
    OPENSSL_free(bytes);
    ASN1_OBJECT_free(object);
    return encoded;
}

std::string DerBmpText(const std::string& ascii)
{
    std::string text;
    for (const char c : ascii)
        text += {'\0', c};
    return Der(0x1E, text);
}

std::string LittleEndianText(const std::string& ascii)
{
    std::string text;
    for (const char c : ascii)
        text += {c, '\0'};
    return text;
}

} // namespace kestro::samples
