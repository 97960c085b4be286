// mount_filling.cpp - how an image comes into the directory of its mount.
#include "image_extraction.h"
#include "image_store.h"
#include "servicing_error.h"
#include "upper_state.h"
#include "worker.h"

#include <exception>

namespace kestro::servicing {
namespace {

void Tell(const Progress& progress, unsigned percent)
{
    if (progress && !progress(percent, 100))
        throw ServicingError(code::cancelled, "the caller has ended the mount");
}

// The disk and the process that shows the image take their time; they take it together.
void MountAndKeep(const LazyMount& lazy, MountEntry& entry)
{
    std::exception_ptr failure;
    const auto prepare = [&](std::size_t) {
        try {
            entry.PrepareMounted(ToText(UpperState{}));
        } catch (...) {
            failure = std::current_exception();
        }
    };
    {
        const auto worker = StartWorkers(1, prepare);
        lazy.Mount();
        if (worker.empty())
            prepare(0);
    }
    if (failure)
        std::rethrow_exception(failure);
    entry.SetMounted();
}

} // namespace

void ImageStore::Fill(MountEntry& entry, const MountRequest& request, const Progress& progress)
{
    if (request.way == MountWay::Extracted) {
        log_.Info("the image is extracted, as is asked for");
    } else {
        Tell(progress, 0);
        try {
            MountLazily(entry);
        } catch (const ServicingError& error) {
            if (request.way == MountWay::Lazy)
                throw;
            log_.Info(std::string("the image is extracted, because it cannot be shown: ") +
                      error.what());
        }
        if (entry.Record().IsLazy()) {
            Tell(progress, 100);
            return;
        }
    }
    entry.SetExtracting();
    ExtractImage(entry.Record(), progress);
    // Only what is on disk for good may count as what the image holds: files that a crash took
    // away must not look like files that the user changed.
    SyncFileSystem(request.directory);
    entry.PrepareMounted(ToText(ReadTreeState(request.directory)));
    entry.SetMounted();
}

void ImageStore::MountLazily(MountEntry& entry)
{
    if (serverProgram_.empty())
        throw ServicingError(code::not_supported, "there is no program that serves images");
    LazyMount::RequireSystem();
    for (const LayersIn place : {LayersIn::Record, LayersIn::ImageFolder}) {
        entry.SetLayers(entry.NewLayers(place));
        const LazyMount lazy = Lazy(entry);
        try {
            lazy.MakeLayers();
            MountAndKeep(lazy, entry);
            log_.Info("the image is shown by a process of its own");
            return;
        } catch (const ServicingError& error) {
            const bool isUnfit = dynamic_cast<const LayersUnfit*>(&error) != nullptr;
            lazy.Clear();
            lazy.Remove();
            entry.SetLayers({});
            if (!isUnfit || place == LayersIn::ImageFolder) {
                // What is wrong with the image says it better.
                WimFile(entry.Record().image, WimFile::Access::Read, false, {})
                    .Files(entry.Record().index);
                throw;
            }
            log_.Info(error.what());
        }
    }
}

} // namespace kestro::servicing
