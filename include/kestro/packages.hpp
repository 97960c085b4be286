// packages.hpp - lists of driver packages: those that go into an image, in calls of eight, and those that are
// in it, as their ResultFiles tell.
#ifndef KESTRO_PACKAGES_HPP
#define KESTRO_PACKAGES_HPP

#include "outcome.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestro {

struct PackageOutcome {
    std::wstring inf;
    bool added = false;
    bool certain = true;        // false: the ResultFile does not tell what became of it
    std::int32_t lastError = 0; // of a package that was not added
    // The code of its failure: the log has them in the list's order. Nothing when it has more or fewer.
    std::optional<std::int32_t> hresult;
};

// One call of AddDriverList. It succeeds when the session did, whatever became of the packages.
struct DriverListOutcome : Outcome {
    std::vector<PackageOutcome> packages;
};

struct ListedPackage {
    std::string publishedName, originalFileName;
};

struct DriverListing : Outcome {
    std::vector<ListedPackage> packages;
};

constexpr std::size_t kDriverListLength = 8;

// What one call of AddDriverList is about, at most eight packages. A list that is short of eight is filled
// with its own last path: a null entry would erase the report, and another path would be reported twice.
class DriverBatch {
  public:
    void Add(std::wstring inf) { infs_.push_back(std::move(inf)); }
    const std::vector<std::wstring>& Infs() const { return infs_; }
    bool Full() const { return infs_.size() == kDriverListLength; }

    std::array<const wchar_t*, kDriverListLength> Entries() const
    {
        std::array<const wchar_t*, kDriverListLength> entries{};
        for (std::size_t i = 0; i < kDriverListLength; ++i)
            entries[i] = infs_[(std::min)(i, infs_.size() - 1)].c_str();
        return entries;
    }

  private:
    std::vector<std::wstring> infs_;
};

template <std::ranges::input_range Paths>
std::vector<DriverBatch> Batches(Paths&& infs)
{
    std::vector<DriverBatch> batches;
    for (auto&& inf : infs) {
        if (batches.empty() || batches.back().Full())
            batches.emplace_back();
        batches.back().Add(std::wstring(std::forward<decltype(inf)>(inf)));
    }
    return batches;
}

namespace detail {

// "Driver Package 0 - PublishedName: oem0.inf - Original file name: ..."
inline std::vector<ListedPackage> ListedIn(const Report& report)
{
    constexpr std::string_view start = "Driver Package ", published = " - PublishedName: ",
                               original = " - Original file name: ";
    std::vector<ListedPackage> packages;
    for (const LogLine& line : report.log) {
        const std::string& text = line.text;
        const std::size_t name = text.find(published), file = text.find(original);
        if (text.starts_with(start) && name != std::string::npos && file != std::string::npos)
            packages.push_back(
                {text.substr(name + published.size(), file - name - published.size()),
                 text.substr(file + original.size())});
    }
    return packages;
}

inline std::string Narrow(const std::wstring& text, bool* lossy = nullptr)
{
    BOOL replaced = FALSE;
    const int length = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
    if (lossy != nullptr) {
        std::string exact(narrow.size() + 1, '\0');
        const int written =
            WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(), length, exact.data(),
                                static_cast<int>(exact.size()), nullptr, &replaced);
        *lossy = replaced != FALSE || (written == 0 && length != 0);
    }
    return narrow;
}

// What a list's ResultFile says of its packages. A package's path is its key, in the ANSI code page; in the W
// form one of at most seven characters arrives as its value does.
class ListReading {
  public:
    ListReading(Form form, const Report& report)
        : form_(form), added_(report.Find("DISM_ADDDRIVER")),
          errors_(report.Find("DISM_ADDDRIVER_ERRORS"))
    {
    }

    std::vector<PackageOutcome> Of(const DriverBatch& batch, const Report& report) const
    {
        std::vector<PackageOutcome> packages;
        for (const std::wstring& inf : batch.Infs())
            packages.push_back(IsShort(inf) ? OfShort(inf, batch) : OfLong(inf));
        SetCodes(packages, report);
        return packages;
    }

  private:
    using Keys = std::vector<std::pair<std::string, std::string>>;

    static void SetCodes(std::vector<PackageOutcome>& packages, const Report& report)
    {
        std::vector<PackageOutcome*> failed; // each as often as it stands in the list
        for (std::size_t i = 0; i < kDriverListLength; ++i) {
            PackageOutcome& package = packages[(std::min)(i, packages.size() - 1)];
            if (package.certain && !package.added)
                failed.push_back(&package);
        }
        std::vector<std::int32_t> codes;
        for (const Failure& failure : report.failures)
            if (failure.function == "DismAddDriver")
                codes.push_back(failure.hresult);
        for (std::size_t i = 0; i < failed.size() && codes.size() == failed.size(); ++i)
            failed[i]->hresult = codes[i];
        // A failure that belongs to none of them may be any other's.
        for (PackageOutcome& package : packages)
            if (codes.size() > failed.size() && package.added)
                package = {package.inf, false, false, 0, {}};
    }

    static std::string KeyOf(const std::wstring& inf)
    {
        return std::string(Trim(Utf8(Wide(Narrow(inf), CP_ACP))));
    }
    bool IsShort(const std::wstring& inf) const
    {
        return form_ == Form::Wide && Wide(Narrow(inf), CP_ACP).size() <= 7;
    }
    // A profile file ends a key at its first equals sign, which a path may hold.
    static std::optional<std::string> ValueOf(const Step* step, std::string_view key)
    {
        if (step == nullptr)
            return {};
        for (const auto& [name, value] : step->other) {
            std::string line = name;
            line += "=";
            line += value;
            if (line.size() > key.size() && line[key.size()] == '=' &&
                EqualNames(std::string_view(line).substr(0, key.size()), key))
                return line.substr(key.size() + 1);
        }
        return {};
    }

    PackageOutcome OfLong(const std::wstring& inf) const
    {
        const std::string key = KeyOf(inf);
        if (const auto error = ValueOf(errors_, key))
            return {inf, false, true, Number(*error).value_or(0), {}};
        const bool added = ValueOf(added_, key) == "OK";
        return {inf, added, added, 0, {}};
    }
    // Its keys are nobody's own: they count only where no other package can have left them.
    PackageOutcome OfShort(const std::wstring& inf, const DriverBatch& batch) const
    {
        Keys left;
        if (errors_ != nullptr)
            left = errors_->other;
        std::size_t shortOnes = 0;
        for (const std::wstring& other : batch.Infs()) {
            shortOnes += IsShort(other) && !EqualNames(KeyOf(other), KeyOf(inf));
            std::erase_if(left, [&](const auto& entry) {
                return !IsShort(other) && EqualNames(entry.first, KeyOf(other));
            });
        }
        if (shortOnes != 0)
            return {inf, false, false, 0, {}};
        if (!left.empty())
            return {inf, false, true, Number(left.front().second).value_or(0), {}};
        const bool added = added_ != nullptr && added_->succeeded == true;
        return {inf, added, added, 0, {}};
    }

    Form form_;
    const Step* added_;
    const Step* errors_;
};

inline std::vector<PackageOutcome> PackagesOf(Form form, const DriverBatch& batch,
                                              const Report& report)
{
    return ListReading(form, report).Of(batch, report);
}

} // namespace detail

} // namespace kestro

#endif
