// wim_claims.h - what an image file claims of itself, held against what it can be.
//
// libwim makes room for what a header, a table or an entry claims before it looks whether that is there,
// and follows an image's tree wherever it leads. So nothing is given to libwim that was not looked at here.
#pragma once

#include "wim_header.h"

namespace kestro::servicing {

// The header and the tables. Throws bad_format; what is wrong in other ways is left for libwim to say.
void RequireCredible(int image, const std::string& path);

// The tree of one of the images, counted from 1.
void RequireCredibleTree(int image, const std::string& path, unsigned index);

} // namespace kestro::servicing
