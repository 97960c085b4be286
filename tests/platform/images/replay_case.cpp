// replay_case.cpp - an image laid under an overlay by hand.
#include "replay_case.h"

#include "file_system.h"
#include "image_server.h"
#include "mount_point.h"

#include <sys/mount.h>
#include <unistd.h>

namespace kestro::test {

namespace {

constexpr char kOverlay[] = "redirect_dir=on,index=off,metacopy=off";

bool MountOverlay(const std::string& lower, const std::string& upper, const std::string& work,
                  const std::string& directory)
{
    fs::create_directory(upper);
    fs::create_directory(work);
    const std::string options =
        "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work + "," + kOverlay;
    return mount("overlay", directory.c_str(), "overlay", 0, options.c_str()) == 0;
}

void Unmount(const std::string& directory)
{
    EXPECT_EQ(umount2(directory.c_str(), MNT_DETACH), 0) << directory;
}

} // namespace

bool CanLayer(const fs::path& folder)
{
    if (access("/dev/fuse", R_OK | W_OK) != 0 || !CanMountOver(folder))
        return false;
    const fs::path trial = folder / "trial";
    fs::create_directory(trial);
    fs::create_directory(trial / "lower");
    fs::create_directory(trial / "mount");
    const bool can =
        MountOverlay(trial / "lower", trial / "upper", trial / "work", trial / "mount");
    if (can)
        Unmount(trial / "mount");
    fs::remove_all(trial);
    return can;
}

View ViewOf(const fs::path& directory)
{
    View view;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        struct stat status = {};
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0) << entry.path();
        std::string& text = view[entry.path().string().substr(directory.string().size())];
        text = std::to_string(servicing::Nanoseconds(status.st_mtim) / 100) + " ";
        if (entry.is_symlink()) {
            const std::string target = fs::read_symlink(entry.path());
            const bool isInside = target.starts_with(directory.string() + "/");
            text += "link to " + (isInside ? target.substr(directory.string().size()) : target);
        } else if (entry.is_directory())
            text += "directory";
        else if (entry.is_regular_file())
            text += "file " + ReadFile(entry.path());
        else
            text += "mode " + std::to_string(status.st_mode);
    }
    return view;
}

void ReplayCase::SetUp()
{
    ImageCase::SetUp();
    SKIP_UNLESS_LAYERED(folder_);
    for (const char* name : {"lower", "staging"})
        fs::create_directory(folder_ / name);
}

void ReplayCase::TearDown()
{
    for (const std::string& directory : {Mounted(), Lower()})
        while (umount2(directory.c_str(), MNT_DETACH) == 0) {
        }
    ImageCase::TearDown();
}

// A process that shows an image may still be on its way out of the last one.
std::string ReplayCase::NewDirectory() const
{
    std::string pattern = folder_ / "saved-XXXXXX";
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    return pattern;
}

void ReplayCase::Lay()
{
    ++generation_;
    servicing::ImageServer server;
    server.program = KESTRO_IMAGE_SERVER;
    server.image = Image();
    server.shownAs = Mounted();
    server.mountPoint = Lower();
    server.lock = folder_ / ("served" + std::to_string(generation_));
    server.name = "kestro-test";
    WriteFile(server.lock, "");
    servicing::StartServing(server, servicing::ServerAccess::Own);
    ASSERT_TRUE(MountOverlay(Lower(), Upper(), Work(), Mounted())) << strerror(errno);
    former_.clear();
}

void ReplayCase::TakeAway()
{
    Unmount(Mounted());
    Unmount(Lower());
}

servicing::ReplayPlan ReplayCase::Plan(const servicing::UpperState& now) const
{
    const servicing::WimFile wim(Image(), servicing::WimFile::Access::Read, false, {});
    return servicing::PlanReplay(former_, now, Upper(),
                                 [&](const std::string& path) { return wim.Find(1, path); });
}

void ReplayCase::Save(const servicing::Progress& progress)
{
    const servicing::UpperState now = servicing::ReadUpperState(Upper());
    servicing::RequireWindowsEntries(former_, now);
    const servicing::ReplayPlan plan = Plan(now);
    // As a record on disk would keep it.
    const auto kept = servicing::UpperStateFromText(servicing::ToText(now));
    EXPECT_TRUE(kept == now);
    if (!plan.Empty()) {
        const fs::path next = folder_ / "next.wim";
        const std::string saved = NewDirectory();
        fs::copy_file(Image(), next, fs::copy_options::overwrite_existing);
        Shell("wimlib-imagex mountrw " + next.string() + " 1 " + saved +
              " --streams-interface=none --staging-dir=" + (folder_ / "staging").string());
        try {
            servicing::Replay(plan, {Upper(), saved, servicing::ReplayTarget::Image, Mounted()},
                              progress);
        } catch (...) {
            Shell("wimlib-imagex unmount " + saved);
            throw;
        }
        Shell("wimlib-imagex unmount --commit " + saved);
        fs::rename(next, Image());
    }
    former_ = kept;
}

void ReplayCase::PutBack()
{
    const View before = ViewOf(Mounted());
    const std::string old = Upper();
    TakeAway();
    const servicing::UpperState now = servicing::ReadUpperState(old);
    const servicing::ReplayPlan plan = Plan(now);
    Lay();
    servicing::Replay(plan, {old, Mounted(), servicing::ReplayTarget::Mount, Mounted()}, {});
    EXPECT_EQ(before, ViewOf(Mounted()));
}

void ReplayCase::ExpectSaved() const
{
    const std::string saved = NewDirectory();
    ExpectValidImage();
    Shell("wimlib-imagex mount " + Image().string() + " 1 " + saved + " --streams-interface=none");
    EXPECT_EQ(ViewOf(Mounted()), ViewOf(saved));
    Unmount(saved);
}

std::string ReplayCase::Details() const
{
    return Shell("wimlib-imagex dir --detailed " + Image().string() + " 1");
}

} // namespace kestro::test
