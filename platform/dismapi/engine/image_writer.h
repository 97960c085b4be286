// image_writer.h - changes an image through libwim's read-write mount, the only way in which a file with
// new content keeps what the image knows of it.
#pragma once

#include "wim_file.h"

#include <functional>
#include <string>

namespace kestro::servicing {

struct ImageWriter {
    std::string serverProgram;
    std::string imageFile;
    unsigned index = 1;
};

// Shows the image in a directory of its own beside the image file, does the work in it, and saves. When the work
// says false or throws, nothing is saved. Throws ServicingError; returns what the work says.
bool WriteImage(const ImageWriter& writer, const WriteOptions& options,
                const std::function<bool(const std::string& directory)>& work);

// What a writer uses beside the image file.
std::string WriterFolder(const std::string& imageFile);
// Takes away what a killed writer left.
void ClearWriterFolder(const std::string& folder);

} // namespace kestro::servicing
