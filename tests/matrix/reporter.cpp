// reporter.cpp - the ResultFile's writes, one event each.
#include "matrix/reporter.h"

namespace kestro::test {

namespace {

// Texts up to this length share their place in a wide step write.
constexpr size_t inline_length = 7;

std::string Wrapped(const char* format, const std::tm& time)
{
    return Format(format, time.tm_mday, time.tm_mon + 1, time.tm_year + 1900, time.tm_hour,
                  time.tm_min, time.tm_sec);
}

// Characters of a quoted text.
size_t QuotedLength(const std::string& quoted)
{
    size_t length = 0;
    for (size_t i = 1; i + 1 < quoted.size(); ++i, ++length)
        if (quoted[i] == '\\')
            i += quoted[i + 1] == 'u' ? 5 : 1;
    return length;
}

// A write under some short key that is neither of the two.
ExpectedEvent WriteUnderAnotherKey(const std::string& start, const std::string& end,
                                   const std::string& key, const std::string& value)
{
    const auto rule = [=](const std::string& event) {
        if (!event.starts_with(start) || !event.ends_with(end) ||
            event.size() < start.size() + end.size())
            return false;
        const std::string found =
            event.substr(start.size(), event.size() - start.size() - end.size());
        return found.starts_with('"') && found.ends_with('"') && found != key && found != value &&
               QuotedLength(found) <= inline_length;
    };
    return {start + "<neither " + key + " nor " + value + ">" + end, rule};
}

} // namespace

std::string ToAnsi(const std::wstring& text)
{
    std::string narrow(2 * text.size() + 1, '\0');
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, narrow.data(), static_cast<int>(narrow.size()),
                        nullptr, nullptr);
    return narrow.c_str();
}

std::wstring ToWide(const std::string& text)
{
    std::wstring wide(text.size() + 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, wide.data(), static_cast<int>(wide.size()));
    return wide.c_str();
}

void Reporter::Event(ExpectedEvent event)
{
    events_.push_back(std::move(event));
    last_error_ = situation_.script.last_error(events_.size());
}

HRESULT Reporter::Call(const std::string& function, std::string arguments)
{
    if (const size_t place = arguments.find('$'); place != std::string::npos)
        arguments.replace(place, 1, Format("%u", session_));
    const HRESULT result = situation_.answer(function);
    Event(Format("%s(%s) -> %08X", function.c_str(), arguments.c_str(),
                 static_cast<unsigned>(result)));
    return result;
}

std::tm Reporter::Clock()
{
    Event("_time64");
    Event("_localtime64");
    return *situation_.script.clock(readings_++);
}

void Reporter::Profile(char writer, const std::string& section, const std::string& key,
                       const std::string& value, const std::string& file)
{
    Event(Format("write %c [%s] %s = %s in %s", writer, section.c_str(), key.c_str(), value.c_str(),
                 file.c_str()));
}

void Reporter::Convert(const std::string& text)
{
    const std::string call =
        "MultiByteToWideChar(0, 0, " + Quote(text.data(), text.size()) + " and its zero, ";
    Event(call + "NULL, 0)");
    Event(call + "buffer)");
}

void Reporter::Stamp(bool wide)
{
    const std::tm time = Clock();
    const std::string stamp = Format("%d%02d%02d%02d%02d%02d", time.tm_year + 1900, time.tm_mon + 1,
                                     time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
    if (wide)
        Convert(stamp);
    // A wide report has no narrow path.
    Profile(wide ? 'W' : 'A', "\"Status\"", "\"LastWrite\"", Quote(stamp.c_str()),
            Wide() && !wide ? "NULL" : File());
}

void Reporter::Write(const std::string& section, const ModelKey& key, const std::string& value)
{
    if (Wide())
        WriteStep(section, key, value);
    else
        Profile('A', Quote(section.c_str()), Quote(key ? key->c_str() : nullptr),
                Quote(value.c_str()), File());
    Stamp(Wide());
}

void Reporter::WriteStep(const std::string& section, const ModelKey& key, const std::string& value)
{
    Convert(section);
    Convert(*key);
    Convert(value);
    const std::wstring wide_key = ToWide(*key);
    const std::string quoted_key = Quote(wide_key.c_str()), quoted_value = Quote(value.c_str());
    const bool short_key = wide_key.size() <= inline_length;
    if (short_key && value.size() > inline_length)
        Event(WriteUnderAnotherKey("write W [" + Quote(section.c_str()) + "] ",
                                   " = " + quoted_value + " in " + File(), quoted_key,
                                   quoted_value));
    else
        Profile('W', Quote(section.c_str()), short_key ? quoted_value : quoted_key, quoted_value,
                File());
}

void Reporter::WriteLastError(const std::string& section, const ModelKey& key)
{
    const DWORD error = last_error_;
    events_.emplace_back("GetLastError"); // itself no cause of another last error
    Write(section, key, Format("%d", static_cast<int>(error)));
}

void Reporter::WriteLiteral(const char* section, const char* key, const char* value)
{
    Profile(Wide() ? 'W' : 'A', Quote(section), Quote(key), Quote(value), File());
    Stamp(Wide());
}

void Reporter::Log(const std::string& text, bool converted)
{
    const std::tm time = Clock();
    ++lines_;
    const char writer = Wide() ? 'W' : 'A';
    const std::string number = std::to_string(lines_);
    const std::string key = number + " - " + Wrapped("%02d-%02d-%d %02d:%02d:%02d", time);
    if (Wide())
        Convert(number);
    Profile(writer, "\"Log\"", "\"Righe\"", Quote(number.c_str()), File());
    if (Wide()) {
        Convert(key);
        if (converted)
            Convert(text);
    }
    Profile(writer, "\"Log\"", Quote(key.c_str()),
            Wide() ? Quote(ToWide(text).c_str()) : Quote(text.c_str()), File());
    Stamp(false);
}

void Reporter::LogFailure(const std::string& function, HRESULT result)
{
    Log(function + " Failed. Following error code.");
    Log(Format("%d", static_cast<int>(result)));
}

void Reporter::Print(const std::wstring& text)
{
    Event("console wide " + Quote(text.c_str()));
}

void Reporter::PrintCode(const wchar_t* format, HRESULT result)
{
    wchar_t text[64];
    _snwprintf(text, std::size(text), format, static_cast<unsigned>(result));
    Print(text);
}

void Reporter::ConvertName(const std::string& shown)
{
    Event("SysAllocString(" + shown + ")");
    const std::string call = "WideCharToMultiByte(0, 0, copy of " + shown + " and its zero, ";
    Event(call + "NULL, 0)");
    Event(call + "buffer)");
}

} // namespace kestro::test
