// upper_state.cpp - the state of an overlay's upper directory.
#include "upper_state.h"

#include "file_system.h"
#include "servicing_error.h"
#include "windows_name.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cstdio>

namespace kestro::servicing {
namespace {

constexpr char kMark[] = "upper 2\n";

std::string Attribute(int directory, const char* name, const std::string& path)
{
    char value[4096];
    const ssize_t length = fgetxattr(directory, name, value, sizeof value);
    if (length < 0 && errno != ENODATA && errno != EOPNOTSUPP)
        throw SystemError("cannot read what the overlay noted of " + path);
    return std::string(value, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

// The serving process gives it to each file that the overlay copies.
std::string PlaceOf(const std::string& file)
{
    char value[4096];
    const ssize_t length = lgetxattr(file.c_str(), "trusted.kestro.place", value, sizeof value);
    if (length < 0 && errno != ENODATA && errno != EOPNOTSUPP && errno != ENOENT)
        throw SystemError("cannot read where " + file + " was");
    return std::string(value, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

UpperState ReadOnce(const std::string& upper)
{
    UpperState state;
    WalkTree(upper, [&](const std::string& path, const struct statx& status, int directory) {
        UpperEntry& entry = state[path];
        entry.file = StateOf(status);
        entry.whiteout =
            S_ISCHR(status.stx_mode) && status.stx_rdev_major == 0 && status.stx_rdev_minor == 0;
        if (entry.file.type == FileType::File || entry.file.type == FileType::Link)
            entry.place = PlaceOf(upper + path);
        if (directory < 0)
            return;
        entry.opaque = Attribute(directory, "trusted.overlay.opaque", path) == "y";
        entry.redirect = Attribute(directory, "trusted.overlay.redirect", path);
    });
    return state;
}

// Content may change while it is looked at; the next save sees that. A directory that moved meanwhile
// would be missing, or be there twice.
bool SameShape(const UpperState& left, const UpperState& right)
{
    return std::equal(
        left.begin(), left.end(), right.begin(), right.end(), [](const auto& a, const auto& b) {
            return a.first == b.first && a.second.file.type == b.second.file.type &&
                   a.second.whiteout == b.second.whiteout && a.second.opaque == b.second.opaque &&
                   a.second.redirect == b.second.redirect;
        });
}

} // namespace

UpperState ReadUpperState(const std::string& upper)
{
    UpperState state = ReadOnce(upper);
    for (int tries = 0; tries < 10; ++tries) {
        UpperState again = ReadOnce(upper);
        if (SameShape(state, again))
            return again;
        state = std::move(again);
    }
    throw ServicingError(code::busy, "files of the mounted image are being made, moved or removed; "
                                     "try again when that has ended");
}

void ForgetOrigins(const std::string& upper)
{
    WalkTree(upper, [&](const std::string& path, const struct statx&, int directory) {
        const bool forgotten =
            directory >= 0 || lremovexattr((upper + path).c_str(), "trusted.overlay.origin") == 0 ||
            errno == ENODATA || errno == ENOENT || errno == EOPNOTSUPP;
        if (!forgotten)
            throw SystemError("cannot change what the overlay noted of " + path);
    });
}

UpperState ToUpperState(const TreeState& tree)
{
    UpperState state;
    for (const auto& [path, file] : tree) {
        UpperEntry entry;
        entry.file = file;
        entry.opaque = file.type == FileType::Directory;
        state.emplace_hint(state.end(), path, std::move(entry));
    }
    return state;
}

std::string ToText(const UpperState& state)
{
    // Names hold any byte but zero, which therefore ends them.
    std::string text = kMark;
    char numbers[160];
    for (const auto& [path, entry] : state) {
        const int length = std::snprintf(numbers, sizeof numbers, "%c%c %lld %lld %lld %llu %lld ",
                                         static_cast<char>(entry.file.type),
                                         entry.whiteout ? 'w'
                                         : entry.opaque ? 'o'
                                                        : '-',
                                         entry.file.size, entry.file.modified, entry.file.changed,
                                         entry.file.inode, entry.file.born);
        text.append(numbers, static_cast<std::size_t>(length));
        text.append(path).push_back('\0');
        text.append(entry.redirect).push_back('\0');
        text.append(entry.place).push_back('\0');
    }
    return text;
}

UpperState UpperStateFromText(const std::string& text)
{
    const ServicingError damaged(code::not_a_valid_mount,
                                 "the record of the changes in the mounted image is damaged");
    if (!text.starts_with(kMark))
        throw damaged;
    UpperState state;
    for (std::size_t start = sizeof kMark - 1; start < text.size();) {
        const std::size_t middle = text.find('\0', start);
        const auto next = [&](std::size_t at) {
            return at == std::string::npos ? at : text.find('\0', at + 1);
        };
        const std::size_t last = next(middle), end = next(last);
        UpperEntry entry;
        char type = 0, flag = 0;
        int length = 0;
        if (end == std::string::npos ||
            std::sscanf(text.c_str() + start, "%c%c %lld %lld %lld %llu %lld %n", &type, &flag,
                        &entry.file.size, &entry.file.modified, &entry.file.changed,
                        &entry.file.inode, &entry.file.born, &length) != 7 ||
            length == 0)
            throw damaged;
        entry.file.type = static_cast<FileType>(type);
        entry.whiteout = flag == 'w';
        entry.opaque = flag == 'o';
        entry.redirect = text.substr(middle + 1, last - middle - 1);
        entry.place = text.substr(last + 1, end - last - 1);
        const std::size_t name = start + static_cast<std::size_t>(length);
        const std::string path = text.substr(name, middle - name);
        if (path.empty() || !IsPlainPath(path))
            throw damaged;
        state.emplace(path, std::move(entry));
        start = end + 1;
    }
    return state;
}

void RequireWindowsEntries(const UpperState& former, const UpperState& now)
{
    for (const auto& [path, entry] : now) {
        if (entry.whiteout || former.contains(path))
            continue;
        if (entry.file.type == FileType::Other)
            throw ServicingError(code::not_supported,
                                 path + " is neither file, directory nor link: an image cannot "
                                        "hold it");
        if (const char* const reason = WhyNoWindowsName(path.substr(path.rfind('/') + 1)))
            throw ServicingError(code::invalid_name,
                                 path + " has a name that Windows cannot hold: " + reason);
    }
}

} // namespace kestro::servicing
