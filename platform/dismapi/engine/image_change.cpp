// image_change.cpp - changes to an image's files that happen together or not at all.
#include "image_change.h"

#include "file_system.h"

namespace fs = std::filesystem;

namespace kestro::servicing {

ImageChange::~ImageChange()
{
    for (auto undo = undo_.rbegin(); undo != undo_.rend(); ++undo)
        (*undo)();
}

void ImageChange::RemoveOnUndo(const fs::path& path)
{
    undo_.push_back([path] {
        std::error_code ignored;
        fs::remove(path, ignored);
    });
}

void ImageChange::MakeFolders(const fs::path& folder)
{
    if (fs::is_directory(folder))
        return;
    MakeFolders(folder.parent_path());
    fs::create_directory(folder);
    RemoveOnUndo(folder);
}

void ImageChange::Copy(const fs::path& from, const fs::path& to)
{
    RemoveOnUndo(to);
    CopyFile(from, to);
}

void ImageChange::Move(const fs::path& from, const fs::path& to)
{
    fs::rename(from, to);
    undo_.push_back([from, to] {
        std::error_code ignored;
        fs::rename(to, from, ignored);
    });
}

void ImageChange::Replace(const fs::path& live, const fs::path& replacement, const fs::path& backup)
{
    fs::rename(replacement, live);
    undo_.push_back([live, backup] {
        std::error_code ignored;
        fs::rename(backup, live, ignored);
    });
}

} // namespace kestro::servicing
