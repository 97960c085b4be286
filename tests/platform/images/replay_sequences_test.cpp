// replay_sequences_test.cpp - random changes to a lazily mounted image, saved several times in one mount
// and put back once. KESTRO_REPLAY_SEQUENCES says how many sequences there are; a failure names the
// seed that KESTRO_REPLAY_SEED begins with.
#include "replay_case.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>

namespace kestro::test {
namespace {

unsigned NumberFrom(const char* variable, unsigned otherwise)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

class RandomChanges {
  public:
    RandomChanges(fs::path root, unsigned seed) : root_(std::move(root)), random_(seed) {}

    // Changes that cannot be, such as a directory that moves into itself, are left out.
    void Run(int count)
    {
        for (int i = 0; i < count; ++i) {
            try {
                Change();
            } catch (const fs::filesystem_error&) {
            }
        }
    }

  private:
    unsigned Below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }
    fs::path Pick(bool (*wanted)(const fs::directory_entry&))
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::recursive_directory_iterator(root_))
            if (wanted(entry))
                found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found.empty() ? root_ : found[Below(found.size())];
    }
    fs::path File()
    {
        return Pick([](const auto& e) { return e.is_regular_file() && !e.is_symlink(); });
    }
    fs::path Directory()
    {
        return Below(5) == 0
                   ? root_
                   : Pick([](const auto& e) { return e.is_directory() && !e.is_symlink(); });
    }
    fs::path Anything()
    {
        return Pick([](const auto&) { return true; });
    }
    // Few names, so that they meet again.
    fs::path Name() { return Directory() / std::string(1, static_cast<char>('a' + Below(6))); }
    std::string Content() { return Noise(static_cast<unsigned>(random_()), Below(3000)); }
    void Change();
    void Rebuild(const fs::path& directory)
    {
        fs::remove_all(directory);
        fs::create_directory(directory);
        std::ofstream(directory / "a") << Content();
        fs::create_directory(directory / "b");
        std::ofstream(directory / "b/c") << Content();
    }

    const fs::path root_;
    std::mt19937 random_;
};

void RandomChanges::Change()
{
    switch (Below(14)) {
    case 0:
        std::ofstream(Name(), std::ios::binary) << Content();
        break;
    case 1:
        std::ofstream(File(), std::ios::binary | std::ios::app) << Content();
        break;
    case 2:
        fs::resize_file(File(), Below(2000));
        break;
    case 3: // as many programs save
        std::ofstream(root_ / "temporary", std::ios::binary) << Content();
        fs::rename(root_ / "temporary", File());
        break;
    case 4:
        fs::rename(File(), Name());
        break;
    case 5:
    case 6:
    case 7:
        fs::rename(Directory(), Name());
        break;
    case 8:
        renameat2(AT_FDCWD, Anything().c_str(), AT_FDCWD, Anything().c_str(), RENAME_EXCHANGE);
        break;
    case 9:
        fs::remove(Anything());
        break;
    case 10:
        if (const fs::path directory = Directory(); directory != root_)
            Below(2) == 0 ? Rebuild(directory) : void(fs::remove_all(directory));
        break;
    case 11:
        fs::create_directory(Name());
        break;
    case 12:
        fs::create_hard_link(File(), Name());
        break;
    default:
        fs::create_symlink("somewhere/" + std::to_string(Below(100)), Name());
    }
}

class ReplaySequences : public ReplayCase {
  protected:
    void MakeImage(unsigned seed)
    {
        const fs::path tree = folder_ / "random";
        fs::remove_all(tree);
        std::mt19937 random(seed);
        for (const char* const outer : {"a", "b", "c", "d"})
            for (const char* const middle : {"a", "b", "e"})
                for (const char* const inner : {"a", "c", "f.txt"})
                    WriteFile(tree / outer / middle / inner / "file.txt",
                              Noise(static_cast<unsigned>(random()), random() % 500));
        WriteFile(tree / "a/plain.txt", "plain");
        for (const char* const link : {"b/linked.txt", "b/d", "c/a/f"})
            fs::create_hard_link(tree / "a/plain.txt", tree / link);
        fs::create_symlink("a/plain.txt", tree / "c/link");
        Shell("wimlib-imagex capture --compress=none " + tree.string() + " " + Image().string() +
              " Test");
    }
    void ForEachSeed(const std::function<void(unsigned seed)>& run)
    {
        const unsigned first = NumberFrom("KESTRO_REPLAY_SEED", 1);
        const unsigned count = NumberFrom("KESTRO_REPLAY_SEQUENCES", 3);
        for (unsigned seed = first; seed < first + count && !HasFailure(); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            MakeImage(seed);
            run(seed);
        }
    }
};

TEST_F(ReplaySequences, EndAsTheMountShowsThem)
{
    ForEachSeed([&](unsigned seed) {
        Lay();
        RandomChanges changes(Mounted(), seed);
        // Put back before a save, between saves, or after them.
        const unsigned putBack = seed % 5;
        for (unsigned save = 0; save < 4 && !HasFailure(); ++save) {
            SCOPED_TRACE("save " + std::to_string(save + 1));
            changes.Run(12);
            if (save == putBack)
                PutBack();
            Save();
            ExpectSaved();
        }
        changes.Run(12);
        PutBack();
        TakeAway();
    });
}

// Mounted, saved, put back and saved again as hosts do it.
TEST_F(ReplaySequences, EndAsTheStoreSavesThem)
{
    ForEachSeed([&](unsigned seed) {
        auto request = Request();
        request.way = seed % 3 == 0 ? servicing::MountWay::Extracted : servicing::MountWay::Lazy;
        Store().Mount(request);
        RandomChanges changes(Mounted(), seed);
        for (unsigned save = 0; save < 4 && !HasFailure(); ++save) {
            SCOPED_TRACE("save " + std::to_string(save + 1));
            changes.Run(12);
            if (save == seed % 5) {
                const View before = ViewOf(Mounted());
                EndServing();
                Store().PutBack(Mounted());
                EXPECT_EQ(before, ViewOf(Mounted()));
            }
            EXPECT_TRUE(Store().Commit(Mounted(), {}));
            ExpectSaved();
        }
        changes.Run(12);
        const View last = ViewOf(Mounted());
        Commit();
        ExpectNothingLeft();
        Lay();
        EXPECT_EQ(last, ViewOf(Mounted()));
        TakeAway();
    });
}

} // namespace
} // namespace kestro::test
