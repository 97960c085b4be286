// wim_tree.h - the tree of an image as it is stored.
#pragma once

#include <string>

namespace kestro::servicing {

// A tree whose directories share entries is endless, or grows to any size when it is followed; so does the
// list of its paths when they are long enough. Throws bad_format for both, and for what is no tree.
void RequireTreeWithinItself(const std::string& tree);

} // namespace kestro::servicing
