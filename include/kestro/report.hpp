// report.hpp - what a ResultFile says. The layouts of the narrow and the wide form come out alike; texts are
// UTF-8.
#ifndef KESTRO_REPORT_HPP
#define KESTRO_REPORT_HPP

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <windows.h>

namespace kestro {

struct LogLine {
    int number = 0;
    std::string time; // DD-MM-YYYY hh:mm:ss, local
    std::string text;
};

// A step's section. In the wide form a short key arrives as its value; that is undone here.
struct Step {
    std::string name;                  // DISM_MOUNT
    std::optional<bool> succeeded;     // nothing when the section holds no outcome
    std::optional<std::int32_t> error; // ErrorCode: the last error after the failure was logged
    std::vector<std::pair<std::string, std::string>> other; // Flags, and the packages of a list
};

// A failed platform function: the log's line that names it, and the line below.
struct Failure {
    std::string function; // DismMountImage
    std::int32_t hresult = 0;
};

struct Report {
    std::vector<Step> steps; // in the file's order
    std::vector<LogLine> log;
    std::vector<Failure>
        failures;          // in the log's order; those after the first come from the clean-up
    std::string lastWrite; // YYYYMMDDhhmmss, local

    const Step* Find(std::string_view name) const
    {
        for (const Step& step : steps)
            if (step.name == name)
                return &step;
        return nullptr;
    }
};

namespace detail {

inline bool EqualNames(std::string_view left, std::string_view right)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

inline std::string_view Trim(std::string_view text)
{
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return text;
}

inline std::optional<std::int32_t> Number(std::string_view text)
{
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return {};
    return value;
}

inline std::string Utf8(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

inline std::wstring Wide(std::string_view text, UINT codePage)
{
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), length, result.data(), size);
    return result;
}

// A profile file is ANSI text unless it starts with a byte-order mark.
inline std::string DecodeProfile(std::string_view bytes)
{
    if (bytes.substr(0, 2) == "\xFF\xFE") {
        std::wstring text((bytes.size() - 2) / 2, L'\0');
        for (std::size_t i = 0; i < text.size(); ++i)
            text[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[2 + 2 * i]) |
                                           static_cast<unsigned char>(bytes[3 + 2 * i]) << 8);
        return Utf8(text);
    }
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF")
        return std::string(bytes.substr(3));
    return Utf8(Wide(bytes, CP_ACP));
}

// "2 - 05-03-2021 14:07:09"
inline std::optional<LogLine> ParseLogKey(std::string_view key)
{
    const std::size_t separator = key.find(" - ");
    if (separator == std::string_view::npos)
        return {};
    const auto number = Number(key.substr(0, separator));
    if (!number)
        return {};
    return LogLine{*number, std::string(key.substr(separator + 3)), {}};
}

// "DismMountImage Failed. Following error code.", and the number in the line after it.
inline std::vector<Failure> FindFailures(const std::vector<LogLine>& log)
{
    constexpr std::string_view ending = " Failed. Following error code.";
    std::vector<Failure> failures;
    for (std::size_t i = 0; i + 1 < log.size(); ++i) {
        const std::string_view text = log[i].text;
        const auto number = Number(log[i + 1].text);
        if (text.size() > ending.size() && text.ends_with(ending) && number)
            failures.push_back({std::string(text.substr(0, text.size() - ending.size())), *number});
    }
    return failures;
}

inline void AddStepKey(Step& step, std::string_view key, std::string_view value)
{
    const bool outcome = value == "OK" || value == "ERR";
    if (EqualNames(key, "Result") || (outcome && key == value))
        step.succeeded = value == "OK";
    else if (EqualNames(key, "ErrorCode"))
        step.error = Number(value);
    else if (EqualNames(key, "Flags") || (key == value && Number(value)))
        step.other.emplace_back("Flags", value);
    else
        step.other.emplace_back(key, value);
}

} // namespace detail

// Reads any bytes without failing: what is no profile file gives an empty report.
inline Report ParseResultFile(std::string_view bytes)
{
    const std::string text = detail::DecodeProfile(bytes);
    Report report;
    std::string section;
    std::optional<int> righe;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t end = (std::min)(rest.find('\n'), rest.size());
        const std::string_view line = detail::Trim(rest.substr(0, end));
        rest.remove_prefix((std::min)(end + 1, rest.size()));
        if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
            section = line.substr(1, line.size() - 2);
            continue;
        }
        const std::size_t equals = line.find('=');
        if (line.empty() || line.front() == ';' || equals == std::string_view::npos)
            continue;
        const std::string_view key = detail::Trim(line.substr(0, equals));
        const std::string_view value = detail::Trim(line.substr(equals + 1));

        if (detail::EqualNames(section, "Status")) {
            if (detail::EqualNames(key, "LastWrite"))
                report.lastWrite = value;
        } else if (detail::EqualNames(section, "Log")) {
            if (detail::EqualNames(key, "Righe"))
                righe = detail::Number(value);
            else if (auto logLine = detail::ParseLogKey(key)) {
                logLine->text = value;
                report.log.push_back(std::move(*logLine));
            }
        } else if (!section.empty()) {
            auto step = std::find_if(report.steps.begin(), report.steps.end(), [&](const Step& s) {
                return detail::EqualNames(s.name, section);
            });
            if (step == report.steps.end())
                step = report.steps.insert(step, Step{section, {}, {}, {}});
            detail::AddStepKey(*step, key, value);
        }
    }
    // Lines beyond the latest call's count are an earlier call's.
    if (righe)
        std::erase_if(report.log, [&](const LogLine& line) { return line.number > *righe; });
    std::stable_sort(report.log.begin(), report.log.end(),
                     [](const LogLine& a, const LogLine& b) { return a.number < b.number; });
    report.failures = detail::FindFailures(report.log);
    return report;
}

namespace detail {

inline std::optional<std::uint64_t> LastWriteOf(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (path.empty() || !GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return {};
    return std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 |
           data.ftLastWriteTime.dwLowDateTime;
}

} // namespace detail

// Nothing when the file cannot be read. Does not get in the way of a library that is still writing.
inline std::optional<Report> ReadResultFile(const std::wstring& path)
{
    void* const file = CreateFileW(path.c_str(), GENERIC_READ,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return {};
    std::string bytes;
    char block[16384];
    DWORD count = 0;
    while (ReadFile(file, block, sizeof block, &count, nullptr) && count != 0)
        bytes.append(block, count);
    CloseHandle(file);
    return ParseResultFile(bytes);
}

} // namespace kestro

#endif
