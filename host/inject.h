// inject.h - driver packages into one image of a file: mounted, filled, saved, unmounted.
#pragma once

#include "commands.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

namespace kestro::host {

// What became of one package in one image. Skipped: it does not go into this image, and that is no fault of
// the image or the machine.
struct Injected {
    enum class State { Added, AlreadyThere, Skipped, Failed, Unknown, NotTried };
    std::wstring inf;
    State state = State::NotTried;
    std::string publishedName;
    std::string reason;
    std::optional<std::int32_t> code;
};

struct InjectedImage {
    ImageDetails image;
    std::vector<Injected> packages;
    bool saved = false;
    std::string error; // what kept the image from being serviced or saved; empty when nothing did

    std::size_t Count(Injected::State state) const;
};

const char* NameOf(Injected::State state);

// Works on one image in a directory of its own. Whatever happens, and also when the user ends it, nothing stays
// mounted; when that fails, the error says where.
class Injection {
  public:
    Injection(const Context& context, Session& session, std::wstring file, std::wstring directory,
              bool dryRun)
        : context_(context), session_(session), file_(std::move(file)),
          directory_(std::move(directory)), dryRun_(dryRun)
    {
    }

    InjectedImage Into(const ImageDetails& image, const std::vector<std::wstring>& infs);

  private:
    bool Mount(InjectedImage& result);
    void Unmount(InjectedImage& result);
    bool UnmountByLibrary(bool save, std::string& error);
    bool Drop();
    void Work(InjectedImage& result);
    void AddAll(InjectedImage& result);
    bool AddBatch(InjectedImage& result, const std::vector<Injected*>& batch);
    void TryAll(InjectedImage& result);
    std::optional<std::vector<PackageDetails>> Listed(InjectedImage& result);
    void Judge(Injected& package, std::int32_t code, const ImageDetails& image) const;

    const Context& context_;
    Session& session_;
    std::wstring file_, directory_;
    bool dryRun_;
};

} // namespace kestro::host
