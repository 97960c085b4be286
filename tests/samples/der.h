// der.h - writes DER, the encoding of ASN.1 that signatures are made of.
#pragma once

#include <string>
#include <vector>

namespace kestro::samples {

std::string Der(unsigned char tag, const std::string& content);
std::string DerObject(const char* identifier); // "1.2.3"
std::string DerBmpText(const std::string& ascii);

inline std::string Joined(const std::vector<std::string>& parts)
{
    std::string all;
    for (const auto& part : parts)
        all += part;
    return all;
}
inline std::string DerSequence(const std::vector<std::string>& parts)
{
    return Der(0x30, Joined(parts));
}
inline std::string DerSet(const std::vector<std::string>& parts)
{
    return Der(0x31, Joined(parts));
}
inline std::string DerOctets(const std::string& bytes)
{
    return Der(0x04, bytes);
}

// Text as the values of a catalog's attributes have it: UTF-16 with the low byte first.
std::string LittleEndianText(const std::string& ascii);

} // namespace kestro::samples
