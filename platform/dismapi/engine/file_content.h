// file_content.h - copies a file's content and what else Linux knows of it.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

namespace kestro::servicing {

// From one descriptor to another, which is empty; holes stay holes. Tells how many bytes were written
// since it told last. Throws ServicingError.
void CopyContent(int from, int to, const std::string& name,
                 const std::function<void(long long)>& written);
// Mode, owner and the user's attributes of a file, a directory or a link.
void CopyOwnership(const std::string& from, const struct stat& status, const std::string& to);
void CopyTimes(const struct stat& status, const std::string& to);

} // namespace kestro::servicing
