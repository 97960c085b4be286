// image_append.cpp - writing what a save appends into the image file.
#include "image_append.h"

#include "servicing_error.h"

#include <fcntl.h>

namespace kestro::servicing {
namespace {

bool IsSameFile(const ImageIdentity& left, const ImageIdentity& right)
{
    return left.device == right.device && left.inode == right.inode;
}

// Not every tool heeds the lock.
void RequireHeader(int image, const MountRecord& next)
{
    if (WimHeader::Read(image) != next.appendedTo)
        throw ServicingError(code::image_file_changed,
                             next.image + " was changed while it was saved into");
}

// What lies behind the end of an image file is no part of it, so nothing depends on this.
void Shorten(int image, unsigned long long end)
{
    struct stat status = {};
    if (fstat(image, &status) == 0 && static_cast<unsigned long long>(status.st_size) > end) {
        [[maybe_unused]] const int result = ftruncate(image, static_cast<off_t>(end));
    }
}

} // namespace

void AppendFromStandIn(const MountRecord& next, const std::string& standIn)
{
    const FileDescriptor source(open(standIn.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!source || fstat(source.Get(), &status) != 0)
        throw SystemError("cannot open " + standIn);
    const FileDescriptor image(open(next.image.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!image)
        throw SystemError("cannot open the image file " + next.image);
    if (!IsSameFile(ImageIdentityOf(image.Get()), next.imageIdentity))
        throw ServicingError(code::image_file_changed, next.image + " was replaced");
    RequireHeader(image.Get(), next);

    const auto end = static_cast<unsigned long long>(status.st_size);
    CopyRange(source.Get(), image.Get(), next.appendedTo.End(), end);
    SyncData(image.Get());
    RequireHeader(image.Get(), next);
    WriteRange(image.Get(), 0, next.imageIdentity.header.Bytes());
    SyncData(image.Get());
    // An append that was killed long ago may have left more.
    Shorten(image.Get(), end);
}

void TakeBackAppend(const MountRecord& next)
{
    const FileDescriptor image(open(next.image.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!image)
        return; // what was appended means nothing without the new header
    const ImageIdentity now = ImageIdentityOf(image.Get());
    if (!IsSameFile(now, next.imageIdentity) || now.header == next.imageIdentity.header)
        return;
    const bool isTorn = now.header != next.appendedTo &&
                        now.header.IsBetween(next.appendedTo, next.imageIdentity.header);
    if (isTorn) {
        WriteRange(image.Get(), 0, next.appendedTo.Bytes());
        SyncData(image.Get());
    }
    if (isTorn || now.header == next.appendedTo)
        Shorten(image.Get(), next.appendedTo.End());
}

} // namespace kestro::servicing
