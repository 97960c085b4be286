// image_lock.h - keeps two processes from changing the same image's drivers at the same time.
#pragma once

#include "file_system.h"

#include <filesystem>

namespace kestro::servicing {

// Waits until the lock is free; the lock ends with the object or the process and leaves no file.
class ImageLock {
  public:
    explicit ImageLock(const std::filesystem::path& folder);

  private:
    FileDescriptor descriptor_;
};

} // namespace kestro::servicing
