// hive_check.cpp - refuses a damaged registry hive before it is changed.
#include "hive_check.h"

#include "hive_header.h"
#include "image_tree.h"
#include "servicing_error.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>

namespace kestro::servicing {
namespace {

constexpr std::size_t kBins = kHiveBins;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr int kDeepest = 512; // as Windows allows

class HiveCheck {
  public:
    HiveCheck(const std::string& content, const std::string& file);

    void Run(const std::vector<std::string>& paths);

  private:
    using Offset = std::uint32_t;

    [[noreturn]] void Refuse(const std::string& reason) const
    {
        throw ServicingError(code::bad_hive, file_ + " is damaged: " + reason);
    }
    template <class Number>
    Number At(std::size_t offset) const;
    std::string_view Id(Offset cell) const
    {
        return std::string_view(content_).substr(kBins + cell + 4, 2);
    }
    std::size_t Size(Offset cell) const;
    void Require(Offset cell, std::size_t size) const;
    void Claim(Offset cell, std::size_t size);
    void ClaimRecord(Offset cell, std::string_view id, std::size_t size);

    using Visit = std::function<void(Offset subkey)>;
    void ClaimSubkeys(Offset key, const Visit& visit);
    std::size_t ClaimList(Offset list, bool ofLists, const Visit& visit);
    void ClaimValues(Offset key);
    void ClaimData(Offset data, std::size_t length);
    void ClaimTree(Offset key, int depth);
    using Paths = std::vector<std::string_view>;
    void ClaimWay(Offset key, const Paths& paths);
    std::string_view NameOf(Offset key) const;

    const std::string& content_;
    const std::string& file_;
    std::vector<bool>
        free_; // one for every four bytes: a cell in use begins here and is not claimed
};

template <class Number>
Number HiveCheck::At(std::size_t offset) const
{
    if (offset > content_.size() || sizeof(Number) > content_.size() - offset)
        Refuse("it is cut off");
    Number number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = static_cast<Number>(
            number | static_cast<Number>(static_cast<unsigned char>(content_[offset + i]))
                         << (8 * i));
    return number;
}

HiveCheck::HiveCheck(const std::string& content, const std::string& file)
    : content_(content), file_(file), free_(content.size() / 4 + 1)
{
    if (content.size() < kBins)
        Refuse("it is cut off");
    for (std::size_t bin = kBins; bin < content.size();) {
        const std::size_t binSize = At<std::uint32_t>(bin + 8);
        const std::size_t end = bin + binSize;
        if (content.compare(bin, 4, "hbin") != 0 || At<std::uint32_t>(bin + 4) != bin - kBins ||
            binSize == 0 || binSize % kBins != 0 || end > content.size())
            Refuse("a bin has a wrong size or lies in a wrong place");
        for (std::size_t cell = bin + 0x20; cell + 4 <= end;) {
            const auto size = static_cast<std::int32_t>(At<std::uint32_t>(cell));
            const auto length = static_cast<std::size_t>(std::abs(std::int64_t{size}));
            if (length < 8 || length % 8 != 0 || length > end - cell)
                Refuse("a cell has a wrong size");
            free_[(cell - kBins) / 4] = size < 0;
            cell += length;
        }
        bin = end;
    }
}

std::size_t HiveCheck::Size(Offset cell) const
{
    return static_cast<std::size_t>(
        -std::int64_t{static_cast<std::int32_t>(At<std::uint32_t>(kBins + cell))});
}

void HiveCheck::Require(Offset cell, std::size_t size) const
{
    if (cell % 4 != 0 || cell / 4 >= free_.size() || !free_[cell / 4])
        Refuse("something leads to no cell, or to one that is something else's");
    if (Size(cell) < size)
        Refuse("a cell is too small for what is in it");
}

void HiveCheck::Claim(Offset cell, std::size_t size)
{
    Require(cell, size);
    free_[cell / 4] = false;
}

void HiveCheck::ClaimRecord(Offset cell, std::string_view id, std::size_t size)
{
    Claim(cell, size);
    if (Id(cell) != id)
        Refuse("a cell is no " + std::string(id) + " record");
}

std::string_view HiveCheck::NameOf(Offset key) const
{
    const std::size_t length = At<std::uint16_t>(kBins + key + 0x4C);
    if (length > Size(key) - 0x50)
        Refuse("a key's name is too long");
    return std::string_view(content_).substr(kBins + key + 0x50, length);
}

// Returns the number of subkeys. Large keys have a list of lists.
std::size_t HiveCheck::ClaimList(Offset list, bool ofLists, const Visit& visit)
{
    Claim(list, 8);
    const std::string_view id = Id(list);
    const std::size_t count = At<std::uint16_t>(kBins + list + 6);
    const std::size_t step = id == "lf" || id == "lh" ? 8 : 4;
    if (step == 4 && id != "li" && (id != "ri" || !ofLists))
        Refuse("a list of keys is none");
    if (8 + count * step > Size(list))
        Refuse("a list of keys is too long");
    std::size_t keys = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto offset = At<Offset>(kBins + list + 8 + i * step);
        if (id == "ri") {
            keys += ClaimList(offset, false, visit);
        } else {
            visit(offset);
            ++keys;
        }
    }
    return keys;
}

void HiveCheck::ClaimSubkeys(Offset key, const Visit& visit)
{
    const std::size_t count = At<std::uint32_t>(kBins + key + 0x18);
    if (count != 0 && ClaimList(At<Offset>(kBins + key + 0x20), true, visit) != count)
        Refuse("a key has not the number of subkeys that it says");
}

void HiveCheck::ClaimValues(Offset key)
{
    const std::size_t count = At<std::uint32_t>(kBins + key + 0x28);
    if (count == 0)
        return;
    const auto list = At<Offset>(kBins + key + 0x2C);
    Claim(list, 4 + count * 4);
    for (std::size_t i = 0; i < count; ++i) {
        const auto value = At<Offset>(kBins + list + 4 + i * 4);
        ClaimRecord(value, "vk", 0x18);
        if (At<std::uint16_t>(kBins + value + 6) > Size(value) - 0x18)
            Refuse("a value's name is too long");
        constexpr std::uint32_t inlined = 0x80000000;
        const auto length = At<std::uint32_t>(kBins + value + 8);
        if (length != 0 && !(length & inlined))
            ClaimData(At<Offset>(kBins + value + 0xC), length);
    }
}

// What is large is in pieces.
void HiveCheck::ClaimData(Offset data, std::size_t length)
{
    Claim(data, 4);
    if (length <= Size(data) - 4)
        return;
    constexpr std::size_t largest = 16344;
    if (length <= largest || Id(data) != "db" || Size(data) < 12)
        Refuse("a value is cut off");
    const std::size_t count = At<std::uint16_t>(kBins + data + 6);
    const auto list = At<Offset>(kBins + data + 8);
    Claim(list, 4 + count * 4);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t piece = std::min(length, largest);
        Claim(At<Offset>(kBins + list + 4 + i * 4), 4 + piece);
        length -= piece;
    }
    if (length != 0)
        Refuse("a value is cut off");
}

void HiveCheck::ClaimTree(Offset key, int depth)
{
    if (depth > kDeepest)
        Refuse("its keys are nested too deeply");
    ClaimRecord(key, "nk", 0x50);
    NameOf(key);
    const auto className = At<Offset>(kBins + key + 0x34);
    if (className != kNone && At<std::uint16_t>(kBins + key + 0x4E) != 0)
        Claim(className, 4);
    ClaimValues(key);
    ClaimSubkeys(key, [&](Offset subkey) { ClaimTree(subkey, depth + 1); });
}

// The key, and below it the keys that lie on one of the paths; what a path ends at is checked with
// everything below it.
void HiveCheck::ClaimWay(Offset key, const Paths& paths)
{
    if (std::find(paths.begin(), paths.end(), "") != paths.end()) {
        ClaimTree(key, 1);
        return;
    }
    ClaimRecord(key, "nk", 0x50);
    ClaimSubkeys(key, [&](Offset subkey) {
        Require(subkey, 0x50);
        Paths below;
        for (const std::string_view path : paths) {
            const auto end = std::min(path.find('\\'), path.size());
            if (EqualNames(NameOf(subkey), path.substr(0, end)))
                below.push_back(path.substr(std::min(end + 1, path.size())));
        }
        if (!below.empty())
            ClaimWay(subkey, below);
    });
}

void HiveCheck::Run(const std::vector<std::string>& paths)
{
    ClaimWay(At<Offset>(0x24), Paths(paths.begin(), paths.end()));
}

} // namespace

void CheckHive(const std::string& content, const std::vector<std::string>& paths,
               const std::string& file)
{
    HiveCheck(content, file).Run(paths);
}

} // namespace kestro::servicing
