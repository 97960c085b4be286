// wim_tree.cpp - the tree of an image as it is stored: the security descriptors, the entry of the root, and
// the entries of each directory up to one without a length.
#include "wim_tree.h"

#include "servicing_error.h"
#include "wim_header.h"

#include <vector>

namespace kestro::servicing {
namespace {

[[noreturn]] void Refuse(const char* reason)
{
    throw ServicingError(code::bad_format, std::string("the image's tree ") + reason);
}

std::uint64_t Align(std::uint64_t length)
{
    return length > UINT64_MAX - 7 ? UINT64_MAX : (length + 7) & ~std::uint64_t{7};
}

class TreeWalk {
  public:
    explicit TreeWalk(const std::string& tree) : tree_(tree) {}

    void Run()
    {
        const std::uint64_t security = Align(Number(0, 4));
        std::uint64_t root = security == 0 ? 8 : security;
        Visit(root, {0, 0, 0});
        while (!waiting_.empty()) {
            const Directory directory = waiting_.back();
            waiting_.pop_back();
            for (std::uint64_t at = directory.entries; Visit(at, directory);) {
            }
        }
    }

  private:
    struct Directory {
        std::uint64_t entries;
        std::uint64_t pathLength;
        unsigned depth;
    };

    std::uint64_t Number(std::uint64_t at, std::size_t size) const
    {
        if (at > tree_.size() || size > tree_.size() - at)
            Refuse("ends before its last entry");
        return LittleEndian(tree_.data() + at, size);
    }
    // Every byte may be a part of one entry only.
    void Take(std::uint64_t at, std::uint64_t length)
    {
        if (at > tree_.size() || length > tree_.size() - at)
            Refuse("ends before its last entry");
        taken_ += length;
        if (taken_ > tree_.size())
            Refuse("has entries that belong to several directories");
    }
    void TakeStreams(std::uint64_t& at, std::uint64_t count)
    {
        constexpr std::uint64_t head = 38;
        for (; count > 0; --count) {
            const std::uint64_t length = Align(Number(at, 8));
            if (length < head)
                Refuse("has a stream that is too short");
            Take(at, length);
            at += length;
        }
    }
    void CountPath(std::uint64_t length)
    {
        constexpr std::uint64_t anyway = 1 << 20, usual = 1024;
        paths_ += length;
        if (paths_ > anyway + ++entries_ * usual)
            Refuse("has longer paths than any real one");
    }
    // False at the end of a directory; otherwise `at` is the next entry's place.
    bool Visit(std::uint64_t& at, const Directory& parent)
    {
        constexpr std::uint64_t head = 102, end = 8;
        constexpr std::uint64_t directory = 0x10, reparsePoint = 0x400;
        constexpr unsigned mostDepth =
            2048; // a path of so many names is longer than any system takes
        const std::uint64_t entry = at, length = Align(Number(at, 8));
        if (length <= end)
            return false;
        if (length < head)
            Refuse("has an entry that is too short");
        Take(entry, length);
        at += length;
        const std::uint64_t attributes = Number(entry + 8, 4), entries = Number(entry + 16, 8),
                            pathLength = parent.pathLength + 1 + Number(entry + 100, 2) / 2;
        TakeStreams(at, Number(entry + 96, 2));
        CountPath(pathLength);
        if ((attributes & (directory | reparsePoint)) == directory && entries != 0) {
            if (parent.depth >= mostDepth)
                Refuse("is deeper than any real one");
            waiting_.push_back({entries, pathLength, parent.depth + 1});
        }
        return true;
    }

    const std::string& tree_;
    std::vector<Directory> waiting_;
    std::uint64_t taken_ = 0, paths_ = 0, entries_ = 0;
};

} // namespace

void RequireTreeWithinItself(const std::string& tree)
{
    TreeWalk(tree).Run();
}

} // namespace kestro::servicing
