// text_encoding.h - the encodings of INF files and of the registry, to and from UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace kestro::servicing {

// The text of a file as UTF-8: UTF-16 or UTF-8 by its byte order mark, UTF-16 without one if it looks
// like that, else Windows-1252. What is no character becomes U+FFFD, and a NUL a blank.
std::string TextOfFile(std::string_view bytes);

// UTF-16LE without an end mark.
std::string Utf16Of(std::string_view utf8);

} // namespace kestro::servicing
