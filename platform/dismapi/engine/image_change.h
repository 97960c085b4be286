// image_change.h - changes to an image's files that happen together or not at all.
#pragma once

#include "servicing_error.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace kestro::servicing {

// Undoes everything on destruction, newest first, unless Keep was called.
class ImageChange {
  public:
    ImageChange() = default;
    ~ImageChange();
    ImageChange(const ImageChange&) = delete;
    ImageChange& operator=(const ImageChange&) = delete;

    void MakeFolders(const std::filesystem::path& folder);
    void Copy(const std::filesystem::path& from, const std::filesystem::path& to);
    void Move(const std::filesystem::path& from, const std::filesystem::path& to);
    // Puts `replacement` in the place of `live` in one step; `backup` is what an undo puts back.
    void Replace(const std::filesystem::path& live, const std::filesystem::path& replacement,
                 const std::filesystem::path& backup);
    // An undo removes the file, which somebody else is about to write.
    void RemoveOnUndo(const std::filesystem::path& path);

    void Keep() { undo_.clear(); }

  private:
    std::vector<std::function<void()>> undo_;
};

// Runs `work`; what the standard library throws about files comes out as a ServicingError.
template <class Work>
auto WithFileErrors(const Work& work)
{
    try {
        return work();
    } catch (const std::filesystem::filesystem_error& error) {
        throw ServicingError(CodeOfErrno(error.code().value()), error.what());
    }
}

} // namespace kestro::servicing
