// image_choice.cpp - which image of a file is to be mounted.
//
// libwim makes a table of all that an image file holds when it opens it. Whoever shows or extracts the image
// does so anyway; here it is done only for what the header does not tell.
#include "image_choice.h"

#include "servicing_error.h"
#include "wim_claims.h"
#include "wim_resource.h"

#include <fcntl.h>

namespace kestro::servicing {
namespace {

void RequireChangeable(const WimHeader& header, const std::string& path, unsigned index)
{
    if (ChunksOf(header).compression == WIMLIB_COMPRESSION_TYPE_LZMS)
        throw ServicingError(code::compression_not_mountable,
                             path +
                                 " has a compression whose files cannot be changed one by one "
                                 "(LZMS): mount it read-only, or make an ordinary image of it: "
                                 "wimlib-imagex export '" +
                                 path + "' " + std::to_string(index) + " NEW.wim --compress=LZX");
    if (header.IsMarkedReadOnly())
        throw ServicingError(code::image_file_read_only, path + " is marked read-only");
}

} // namespace

unsigned ChooseImage(const MountRequest& request)
{
    const std::string& path = request.image;
    unsigned index = request.index;
    if (!request.name.empty() || request.checkIntegrity) {
        const WimFile wim(path, WimFile::Access::Read, request.checkIntegrity, {});
        if (!request.name.empty())
            index = wim.FindImage(request.name);
    }
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open the image file " + path);
    RequireCredible(file.Get(), path);
    const WimHeader header = WimHeader::Read(file.Get());
    if (const unsigned count = header.ImageCount(); index < 1 || index > count)
        throw ServicingError(code::image_index_missing, path + " holds " + std::to_string(count) +
                                                            " images, not number " +
                                                            std::to_string(index));
    RequireCredibleTree(file.Get(), path, index);
    if (!request.readOnly)
        RequireChangeable(header, path, index);
    return index;
}

} // namespace kestro::servicing
