// image_save.cpp - saving into the image file of a mount.
#include "image_save.h"

#include "image_append.h"
#include "image_stand_in.h"
#include "servicing_error.h"

#include <fcntl.h>

#include <cstdio>

namespace kestro::servicing {
namespace {

struct Save {
    MountEntry& entry;
    MountRecord next;
    const std::string* state;
    const SaveRequest& request;
};

// The new file takes the old one's place as a whole.
void SaveByCopying(Save save, bool rebuild)
{
    const std::string unfinished = save.entry.UnfinishedImage();
    CopyFile(save.next.image, unfinished);
    save.request.apply(unfinished, {save.request.integrity, rebuild, false});
    {
        const FileDescriptor file(open(unfinished.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file)
            throw SystemError("cannot open " + unfinished);
        SyncData(file.Get());
    }
    RequireUnchangedImage(save.next); // not every tool heeds the lock
    save.next.imageIdentity = ImageIdentityOf(unfinished);
    save.entry.Prepare(save.next, save.state);
    if (rename(unfinished.c_str(), save.next.image.c_str()) != 0)
        throw SystemError("cannot replace " + save.next.image);
    SyncDirectoryOf(save.next.image);
    save.entry.Adopt();
}

// Nothing when libwim did not append.
std::optional<WimHeader> ApplyToStandIn(const Save& save, int image, const WimHeader& before,
                                        const std::string& standIn)
{
    MakeStandIn(image, before, save.next.index, standIn);
    const auto inode = IdentityOf(standIn).inode;
    save.request.apply(standIn, {save.request.integrity, false, true});
    return AppendedHeader(standIn, before, inode);
}

// False when libwim did not append: then nothing has happened.
bool SaveByAppending(Save save, int image)
{
    std::string standIn = save.entry.StandIn();
    const WimHeader before = WimHeader::Read(image);
    std::optional<WimHeader> after;
    try {
        after = ApplyToStandIn(save, image, before, standIn);
    } catch (const ServicingError& error) {
        if (error.GetCode() != code::disk_full)
            throw;
        // The image file's disk needs the room in any case.
        save.entry.RemoveUnfinished();
        standIn = save.entry.UnfinishedImage();
        after = ApplyToStandIn(save, image, before, standIn);
    }
    if (!after) {
        save.entry.RemoveUnfinished();
        return false;
    }
    RequireUnchangedImage(save.next);
    save.next.imageIdentity.header = *after;
    save.next.appendedTo = before;
    save.entry.Prepare(save.next, save.state);
    AppendFromStandIn(save.next, standIn);
    save.entry.Adopt();
    save.entry.RemoveUnfinished();
    return true;
}

} // namespace

void SaveImage(MountEntry& entry, MountRecord next, const std::string* state,
               const SaveRequest& request, const PlatformLog& log)
{
    const Save save = {entry, std::move(next), state, request};
    try {
        const FileDescriptor image(open(save.next.image.c_str(), O_RDONLY | O_CLOEXEC));
        if (!image)
            throw SystemError("cannot open the image file " + save.next.image);
        const WimHeader& header = save.next.imageIdentity.header;
        std::string why = WhyNotAppendable(image.Get(), header, request.integrity);
        const bool compact =
            why.empty() && request.mayCompact && IsWorthCompacting(image.Get(), header);
        if (compact)
            why = "much of it is not in use any more";
        if (why.empty() && SaveByAppending(save, image.Get()))
            return;
        if (why.empty())
            why = "nothing could be appended to it";
        log.Info(save.next.image + " is written anew: " + why);
        SaveByCopying(save, compact);
    } catch (...) {
        try {
            entry.RecoverLocked();
        } catch (const ServicingError&) {
            // The next call brings the record into order; why the save failed is what counts.
        }
        throw;
    }
}

} // namespace kestro::servicing
