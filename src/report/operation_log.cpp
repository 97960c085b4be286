// operation_log.cpp - the running log of one call.
#include "report/operation_log.h"

#include "base/text.h"
#include "report/decimal_text.h"

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <new>
#include <string>

#include <windows.h>

namespace kestro::library {
namespace {

// Ample for six numbers and their separators; a line costs no memory of its own. _snprintf is the platform's:
// mingw-w64's own formatter would be a sixth of the library.
struct ClockText {
    char text[80];
};

std::tm LocalTime()
{
    const __time64_t now = _time64(nullptr);
    const std::tm* local = _localtime64(&now);
    return local != nullptr ? *local : std::tm{};
}

// "2 - 05-03-2021 14:07:09"
ClockText LineKey(std::int32_t lineNumber, const std::tm& time)
{
    ClockText key;
    _snprintf(key.text, sizeof key.text, "%d - %02d-%02d-%d %02d:%02d:%02d",
              static_cast<int>(lineNumber), time.tm_mday, time.tm_mon + 1, time.tm_year + 1900,
              time.tm_hour, time.tm_min, time.tm_sec);
    return key;
}

// "20210305140709"
ClockText LastWriteStamp()
{
    const std::tm time = LocalTime();
    ClockText stamp;
    _snprintf(stamp.text, sizeof stamp.text, "%d%02d%02d%02d%02d%02d", time.tm_year + 1900,
              time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
    return stamp;
}

// Shared by both forms: a wide record's null path goes to the platform as it is, which keeps such a
// stamp out of every ResultFile.
void StampNarrow(const LogRecord& record)
{
    WritePrivateProfileStringA("Status", "LastWrite", LastWriteStamp().text, record.resultFile);
}

// A wide write whose texts cannot be converted, or find no memory, is lost like any failing write.
template <class Write>
void WriteUnnoticed(Write write) noexcept
{
    try {
        write();
    } catch (const std::bad_alloc&) {
    } catch (const ConversionFailed&) {
    }
}

template <class WideText>
void AppendWideLine(LogRecord& record, WideText wideText) noexcept
{
    const std::tm time = LocalTime();
    ++record.lineCount;
    WriteUnnoticed([&] {
        const std::wstring count = ToWide(ToDecimalText(record.lineCount).c_str());
        WritePrivateProfileStringW(L"Log", L"Righe", count.c_str(), record.resultFileW);
    });
    WriteUnnoticed([&] {
        const std::wstring key = ToWide(LineKey(record.lineCount, time).text);
        const std::wstring text = wideText();
        WritePrivateProfileStringW(L"Log", key.c_str(), text.c_str(), record.resultFileW);
    });
    StampNarrow(record);
}

// The step write passes section, key and value through one holder of wide text. A text of up to
// seven characters lies inside the holder, where the value, moved in last, takes its place: a host
// finds [DISM_MOUNT] OK=OK and no key Result. A longer text lies outside and arrives as given. A
// value that itself lies outside leaves its location in the holder, and a short name then reads as
// neither the name nor the value.
const wchar_t* SharedText(const std::wstring& name, const std::wstring& value)
{
    constexpr std::size_t insideHolder = 7;
    if (name.length() > insideHolder)
        return name.c_str();
    if (value.length() <= insideHolder)
        return value.c_str();
    return name == L"?" ? L"??" : L"?";
}

} // namespace

void OperationLog::AppendLine(const char* text)
{
    const std::tm time = LocalTime();
    ++record_.lineCount;
    WritePrivateProfileStringA("Log", "Righe", ToDecimalText(record_.lineCount).c_str(),
                               record_.resultFile);
    WritePrivateProfileStringA("Log", LineKey(record_.lineCount, time).text, text,
                               record_.resultFile);
    WriteLastWrite();
}

void OperationLog::WriteLastWrite()
{
    StampNarrow(record_);
}

void OperationLogW::AppendLineW(const char* text) noexcept
{
    AppendWideLine(record_, [&] { return ToWide(text); });
}

void OperationLogW::AppendLineW(const wchar_t* text) noexcept
{
    AppendWideLine(record_, [&] { return std::wstring(text); });
}

void OperationLogW::WriteLastWriteW() noexcept
{
    WriteUnnoticed([&] {
        const std::wstring stamp = ToWide(LastWriteStamp().text);
        WritePrivateProfileStringW(L"Status", L"LastWrite", stamp.c_str(), record_.resultFileW);
    });
}

void OperationLogW::WriteStepW(const char* section, const char* key, const char* value) noexcept
{
    WriteUnnoticed([&] {
        const std::wstring wideSection = ToWide(section);
        const std::wstring wideKey = ToWide(key);
        const std::wstring wideValue = ToWide(value);
        WritePrivateProfileStringW(SharedText(wideSection, wideValue),
                                   SharedText(wideKey, wideValue), wideValue.c_str(),
                                   record_.resultFileW);
    });
    WriteLastWriteW();
}

} // namespace kestro::library
