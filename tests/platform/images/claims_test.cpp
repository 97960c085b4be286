// claims_test.cpp - image files that claim more than they can hold are refused before room is made for it,
// by whatever size it is that they claim.
#include "image_case.h"
#include "tree_hashes.h"

#include <sys/resource.h>

#include <fstream>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class Claims : public ImageCase {
  protected:
    void Capture(const std::string& options) const
    {
        Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
              " Test " + options);
    }
    // Where the blob table says something of the image's tree.
    static std::size_t TreeEntry(const std::string& wim)
    {
        constexpr unsigned metadata = 2;
        const WimResource table = ResourceAt(wim, 48);
        for (std::size_t at = table.offset; at < table.offset + table.size; at += 50)
            if (ResourceAt(wim, at).flags & metadata)
                return at;
        ADD_FAILURE() << "no tree";
        return 0;
    }
    static std::string Number(unsigned long long number, std::size_t size)
    {
        std::string bytes;
        for (std::size_t i = 0; i < size; ++i)
            bytes.push_back(static_cast<char>(number >> 8 * i));
        return bytes;
    }
    // The file with other bytes in it is refused, and little memory is all that takes.
    void ExpectRefused(std::string wim, std::size_t at, const std::string& bytes) const
    {
        ExpectRefused(wim.replace(at, bytes.size(), bytes));
    }
    void ExpectRefused(const std::string& wim) const
    {
        WriteFile(Image(), wim);
        auto request = Request();
        request.checkIntegrity = true;
        unsigned long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit limit = {};
        getrlimit(RLIMIT_AS, &limit);
        const rlimit little = {pages * 4096 + (64U << 20), limit.rlim_max};
        setrlimit(RLIMIT_AS, &little);
        const auto result = CodeOf([&] { Store().Mount(request); });
        setrlimit(RLIMIT_AS, &limit);
        EXPECT_EQ(static_cast<unsigned>(result), static_cast<unsigned>(code::bad_format))
            << std::hex;
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
};

TEST_F(Claims, SizesInTheHeader)
{
    Capture("--compress=XPRESS --check");
    const std::string wim = ReadFile(Image());
    const std::string huge = Number(1ULL << 40, 7), compressed("\4", 1);
    for (const std::size_t table : {48U, 72U, 124U}) { // blob table, XML, integrity table
        SCOPED_TRACE(table);
        ExpectRefused(wim, table, huge);
        ExpectRefused(wim, table + 8, Number(1ULL << 40, 8));
        ExpectRefused(wim, table + 16, Number(1ULL << 34, 8));
        ExpectRefused(std::string(wim).replace(table + 7, 1, compressed), table + 16,
                      Number(1ULL << 30, 8));
    }
    ExpectRefused(wim, 44, Number(1'000'000'000, 4)); // images
}

TEST_F(Claims, SizesOfParts)
{
    constexpr std::size_t chunkSize = 20;
    Capture("--compress=LZX");
    std::string wim = ReadFile(Image());
    ExpectRefused(wim, chunkSize, Number(1ULL << 30, 4));
    ExpectRefused(wim, chunkSize, Number(0, 4));
    Capture("--solid");
    wim = ReadFile(Image());
    const std::size_t head = WimResource(ResourceAt(wim, ResourceAt(wim, 48).offset)).offset;
    ExpectRefused(wim, head, Number(1ULL << 60, 8));
    ExpectRefused(wim, head + 8, Number(1ULL << 31, 4));
    ExpectRefused(wim, head + 8, Number(1, 4));
}

TEST_F(Claims, SizesOfWhatIsInTheFile)
{
    for (const char* options : {"--compress=none", "--compress=XPRESS", "--compress=LZX",
                                "--compress=LZX --chunk-size=2M", "--pipable"}) {
        SCOPED_TRACE(options);
        Capture(options);
        const std::string wim = ReadFile(Image());
        const bool isPipable = wim.starts_with("WLPWM");
        if (isPipable) {
            const std::string end = wim.substr(wim.size() - 208);
            for (const std::size_t table : {48U, 72U})
                ExpectRefused(wim, wim.size() - 208 + table, Number(1ULL << 40, 7));
            continue;
        }
        const std::size_t tree = TreeEntry(wim);
        ExpectRefused(wim, tree, Number(1ULL << 40, 7));
        ExpectRefused(wim, tree + 8, Number(wim.size() + 1, 8));
        ExpectRefused(wim, tree + 16, Number(1ULL << 28, 8));
        ExpectRefused(wim, tree + 16, Number(~0ULL, 8));
    }
}

// --- trees that grow when they are followed -----------------------------------------------------------

class Trees : public Claims {
  protected:
    void SetUp() override
    {
        Claims::SetUp();
        for (int i = 0; i < 100; ++i) // room for another tree
            WriteFile(folder_ / "tree" / std::to_string(i), "");
        Capture("--compress=none");
    }
    static std::string Directory(const std::string& name, unsigned long long entries)
    {
        std::string wide;
        for (const char c : name)
            wide += {c, '\0'};
        std::string entry(102, '\0');
        const std::size_t length = (entry.size() + wide.size() + (name.empty() ? 0 : 2) + 7) & ~7U;
        entry.replace(0, 8, Number(length, 8));
        entry.replace(8, 4, Number(0x10, 4));
        entry.replace(12, 4, Number(~0U, 4));
        entry.replace(16, 8, Number(entries, 8));
        entry.replace(100, 2, Number(wide.size(), 2));
        entry += wide;
        entry.resize(length);
        return entry;
    }
    static std::string Root() // after the security descriptors, of which there are none
    {
        const std::string root = Directory("", 8 + 104 + 8);
        EXPECT_EQ(root.size(), 104U);
        return Number(8, 4) + Number(0, 4) + root + Number(0, 8);
    }
    std::string WithTree(const std::string& tree) const
    {
        std::string wim = ReadFile(Image());
        const WimResource place = ResourceAt(wim, TreeEntry(wim));
        EXPECT_LE(tree.size(), place.size);
        wim.replace(place.offset, place.size, tree + std::string(place.size - tree.size(), '\0'));
        return WithTreeHashes(wim);
    }
};

TEST_F(Trees, AnHonestOneIsMounted)
{
    WriteFile(Image(), WithTree(Root() + Directory("a", 0) + Directory("b", 0)));
    Mount();
    EXPECT_TRUE(fs::is_directory(folder_ / "mount/a") && fs::is_directory(folder_ / "mount/b"));
    Discard();
}

TEST_F(Trees, DirectoriesThatShareTheirEntries)
{
    std::string tree = Root();
    for (int level = 0; level < 30; ++level) { // each twice as many as the one before
        const std::size_t next = tree.size() + 2 * 112 + 8;
        tree += Directory("a", next) + Directory("b", next) + Number(0, 8);
    }
    ExpectRefused(WithTree(tree));
}

TEST_F(Trees, ADirectoryOfWhichAPartIsAnothersEntries)
{
    std::string tree = Root();
    for (int i = 0; i < 40; ++i) // each holds all that follow it
        tree += Directory("a" + std::to_string(10 + i), tree.size() + 112);
    ExpectRefused(WithTree(tree));
}

TEST_F(Trees, ADirectoryInItself)
{
    const std::string root = Root();
    ExpectRefused(WithTree(root + Directory("a", root.size())));
}

// --- found by a fuzzer --------------------------------------------------------------------------------

TEST_F(Claims, ThirteenGigabytes)
{
    const fs::path file = fs::path(KESTRO_PUBLISHED) / "claims-13-gigabytes.wim";
    if (!fs::exists(file))
        GTEST_SKIP() << "skipped: " << file << " is not here";
    ExpectRefused(ReadFile(file));
}

} // namespace
} // namespace kestro::test
