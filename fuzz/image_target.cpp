// image_target.cpp - an image file: mounting it, saving a change into it, dropping one.
#include "image_store.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"
#include "tree_hashes.h"

#include <algorithm>
#include <csignal>
#include <sys/resource.h>

namespace kestro::fuzz {
namespace {

using servicing::ImageStore;
using servicing::ServicingError;

// A small image may unpack to more than a machine holds.
void LimitFileSize()
{
    static constexpr rlim_t most = 16 << 20;
    static const bool limited = [] {
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = std::min(limit.rlim_max, most);
        std::signal(SIGXFSZ, SIG_IGN);
        return setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }();
    Require(limited, "the size of files can be limited");
}

void RequireOnly(const Scratch& scratch)
{
    for (const auto& entry : fs::directory_iterator(scratch.Folder())) {
        const std::string name = entry.path().filename();
        Require(name == "image.wim" || name == "mount" || name == "records",
                "nothing appears beside the mount directory, unlike " + name);
    }
}

void MountAndDiscard(const Scratch& scratch, ImageStore& store, servicing::MountRequest request)
{
    request.readOnly = true;
    request.checkIntegrity = true;
    try {
        store.Mount(request);
        RequireOnly(scratch);
        store.Discard(request.directory);
    } catch (const ServicingError&) {
    }
    Require(fs::is_empty(request.directory), "what cannot be mounted leaves nothing");
    Require(!store.IsMounted(request.directory), "a mount that is over is forgotten");
}

void MountAndCommit(const Scratch& scratch, ImageStore& store, servicing::MountRequest request)
{
    try {
        store.Mount(request);
    } catch (const ServicingError&) {
        return;
    }
    RequireOnly(scratch);
    const std::string before = ReadFile(request.image);
    const fs::path added = fs::path(request.directory) / "a file that no image has";
    try {
        WriteFile(added, "new");
        store.CommitAndUnmount(request.directory, {});
        store.Mount(request);
        Require(ReadFile(added) == "new", "what was committed is in the image");
        store.Discard(request.directory);
    } catch (const ServicingError&) {
        Require(ReadFile(request.image) == before, "a commit that fails leaves the image file");
        store.Discard(request.directory);
    }
    Require(fs::is_empty(request.directory), "an unmounted directory is empty");
    RequireOnly(scratch);
}

} // namespace

void Image(const std::string& input)
{
    LimitFileSize();
    const Scratch scratch;
    // A fuzzer does not guess SHA-1.
    WriteFile(scratch / "image.wim", test::WithTreeHashes(input));
    fs::create_directory(scratch / "mount");
    ImageStore store(scratch / "records", {});
    servicing::MountRequest request;
    request.image = scratch / "image.wim";
    request.directory = scratch / "mount";
    MountAndDiscard(scratch, store, request);
    MountAndCommit(scratch, store, request);
}

} // namespace kestro::fuzz
