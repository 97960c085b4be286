// mount_table.cpp - what is mounted where, as this process sees it.
#include "mount_table.h"

#include "file_system.h"
#include "servicing_error.h"

#include <sys/mount.h>

#include <sstream>

namespace kestro::servicing {
namespace {

// Blanks, line ends and backslashes are written as a backslash and three octal digits.
std::string Plain(const std::string& text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            plain.push_back(static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8)));
            i += 3;
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

} // namespace

std::vector<MountPoint> ReadMountTable()
{
    std::vector<MountPoint> mounts;
    std::istringstream table(ReadWholeFile("/proc/self/mountinfo"));
    for (std::string line; std::getline(table, line);) {
        // Number, parent, device, root and mount point; options; a dash; type and source.
        std::istringstream words(line);
        std::string word;
        MountPoint& mount = mounts.emplace_back();
        for (int i = 0; i < 5; ++i)
            words >> mount.directory;
        mount.directory = Plain(mount.directory);
        while (words >> word && word != "-") {
        }
        words >> mount.type >> mount.source;
        mount.source = Plain(mount.source);
    }
    return mounts;
}

std::vector<MountPoint> MountsOn(const std::string& directory)
{
    std::vector<MountPoint> mounts = ReadMountTable();
    std::erase_if(mounts, [&](const MountPoint& mount) { return mount.directory != directory; });
    return mounts;
}

bool Unmount(const std::string& directory, Unmounting how)
{
    const int flags = UMOUNT_NOFOLLOW | (how == Unmounting::Anyway ? MNT_DETACH : 0);
    if (umount2(directory.c_str(), flags) == 0)
        return true;
    if (errno != EBUSY)
        throw SystemError("cannot unmount " + directory);
    return false;
}

namespace {

template <class Wanted>
bool UnmountAll(const Wanted& wanted)
{
    const std::vector<MountPoint> mounts = ReadMountTable();
    bool any = false;
    for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount) {
        if (!wanted(*mount))
            continue;
        if (!Unmount(mount->directory, Unmounting::WhenUnused))
            throw ServicingError(code::partly_unmounted, mount->directory + " is in use");
        any = true;
    }
    return any;
}

} // namespace

bool UnmountBelow(const std::string& folder)
{
    return UnmountAll(
        [&](const MountPoint& mount) { return mount.directory.starts_with(folder + "/"); });
}

bool UnmountNamed(const std::string& source)
{
    return UnmountAll([&](const MountPoint& mount) { return mount.source == source; });
}

} // namespace kestro::servicing
