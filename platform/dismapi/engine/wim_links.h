// wim_links.h - the hard links in the tree of an image as it is stored.
#pragma once

#include <string>
#include <vector>

namespace kestro::servicing {

// Takes the names out of the link groups that they are in and links them to each other. All else that the image
// knows of a file stands with each of its names, so nothing of it is lost. False, and the tree is as it was, when
// one of them is not in it. The tree must lie within itself.
bool PartFromGroup(std::string& tree, const std::vector<std::string>& paths);

} // namespace kestro::servicing
