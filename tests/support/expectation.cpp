// expectation.cpp - turns the steps of a call into the platform calls of either form.
#include "support/expectation.h"

#include <cstdint>

namespace kestro::test {

namespace {

// The wide step write hands section, key and value through one text holder, and a text of up to
// this many characters lives inside the holder.
constexpr size_t inline_capacity = 7;

std::string Decimal(HRESULT value)
{
    return Format("%d", static_cast<int32_t>(value));
}

std::string LineKey(int line, const std::tm& time)
{
    return Format("%d - %02d-%02d-%d %02d:%02d:%02d", line, time.tm_mday, time.tm_mon + 1,
                  time.tm_year + 1900, time.tm_hour, time.tm_min, time.tm_sec);
}

std::string StampText(const std::tm& time)
{
    return Format("%d%02d%02d%02d%02d%02d", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
                  time.tm_hour, time.tm_min, time.tm_sec);
}

std::wstring Wide(const std::string& text)
{
    const auto length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int converted = MultiByteToWideChar(CP_ACP, 0, text.c_str(), length, wide.data(), length);
    wide.resize(static_cast<size_t>(converted));
    return wide;
}

// A narrow text as the writer of that form shows it.
std::string Shown(Form writer, const Key& text)
{
    if (!text)
        return "NULL";
    return writer == Form::narrow ? Quote(text->c_str()) : Quote(Wide(*text).c_str());
}

std::string WriteText(Form writer, const std::string& section, const std::string& key)
{
    return Format("write %s [%s] %s", writer == Form::narrow ? "A" : "W",
                  Shown(writer, section).c_str(), key.c_str());
}

// A write whose key is some short text other than the two given.
ExpectedEvent WriteOfSomeShortKey(const std::string& section, const std::string& key,
                                  const std::string& value, const std::string& file)
{
    const std::string before = WriteText(Form::wide, section, "\"");
    const std::string after = "\" = " + Quote(value.c_str()) + " in " + file;
    return ExpectedEvent(before + "<a short key>" + after, [=](const std::string& event) {
        if (event.size() <= before.size() + after.size() || !event.starts_with(before) ||
            !event.ends_with(after))
            return false;
        const std::string found =
            event.substr(before.size(), event.size() - before.size() - after.size());
        return found.size() <= inline_capacity && found != key && found != value;
    });
}

} // namespace

std::string Narrow(const std::wstring& text)
{
    const auto length = static_cast<int>(text.size()), room = 4 * length;
    std::string narrow(static_cast<size_t>(room), '\0');
    const int converted =
        WideCharToMultiByte(CP_ACP, 0, text.c_str(), length, narrow.data(), room, nullptr, nullptr);
    narrow.resize(static_cast<size_t>(converted));
    return narrow;
}

std::wstring Hexadecimal(HRESULT value)
{
    const std::string digits = Format("%x", static_cast<unsigned>(value));
    return std::wstring(digits.begin(), digits.end());
}

Expectation::Expectation(Form form, const Script& script, std::string result_file)
    : form_(form), script_(script), result_file_(std::move(result_file))
{
}

Expectation& Expectation::Event(ExpectedEvent event)
{
    events_.push_back(std::move(event));
    last_error_ = script_.last_error(events_.size());
    return *this;
}

Expectation& Expectation::Call(const std::string& call, HRESULT result)
{
    return Event(Format("%s -> %08X", call.c_str(), static_cast<unsigned>(result)));
}

Expectation& Expectation::Write(const std::string& section, const Key& key,
                                const std::string& value)
{
    if (form_ == Form::wide) {
        WideStepWrite(section, key, value);
        return WideStamp();
    }
    WriteRaw(Form::narrow, section, key, value, result_file_);
    return Stamp();
}

Expectation& Expectation::WriteLastError(const std::string& section, const Key& key)
{
    return Write(section, key, Decimal(static_cast<HRESULT>(ReadLastError())));
}

Expectation& Expectation::Log(const std::string& text)
{
    return LogLine(text, form_ == Form::wide);
}

Expectation& Expectation::LogLiteral(const std::string& text)
{
    return LogLine(text, false);
}

Expectation& Expectation::LogLine(const std::string& text, bool convert_text)
{
    const std::tm time = ReadClock();
    const std::string number = Decimal(++line_), key = LineKey(line_, time);
    if (form_ == Form::wide)
        Convert(number);
    WriteRaw(form_, "Log", "Righe", number, result_file_);
    if (form_ == Form::wide)
        Convert(key);
    if (convert_text)
        Convert(text);
    WriteRaw(form_, "Log", key, text, result_file_);
    return Stamp();
}

Expectation& Expectation::ReportFailure(const std::string& section, const std::string& function,
                                        HRESULT result)
{
    Log(function + " Failed. Following error code.");
    Log(Decimal(result));
    return WriteLastError(section, "ErrorCode");
}

Expectation& Expectation::ReportCleanUp(const std::string& section, const std::string& function,
                                        HRESULT logged)
{
    return ReportFailure(section, function, logged).Write(section, "Result", "ERR");
}

Expectation& Expectation::ConsoleWide(const std::wstring& text)
{
    return Event("console wide " + Quote(text.c_str()));
}

Expectation& Expectation::ReturnCodeLine(HRESULT result)
{
    return ConsoleWide(L"Return code is: " + Hexadecimal(result) + L"\n");
}

Expectation& Expectation::Returns(unsigned value)
{
    return Event(Format("returns %u", value));
}

// A log line of either form ends with this: the wide form has no narrow path to give.
Expectation& Expectation::Stamp()
{
    NarrowStamp(form_ == Form::narrow ? result_file_ : "NULL");
    return *this;
}

Expectation& Expectation::WideStamp()
{
    const std::string stamp = StampText(ReadClock());
    return Convert(stamp).WriteRaw(Form::wide, "Status", "LastWrite", stamp, result_file_);
}

void Expectation::NarrowStamp(const std::string& file)
{
    const std::string stamp = StampText(ReadClock());
    WriteRaw(Form::narrow, "Status", "LastWrite", stamp, file);
}

Expectation& Expectation::Convert(const std::string& text)
{
    const std::string start =
        "MultiByteToWideChar(0, 0, " + Quote(text.c_str()) + " and its zero, ";
    return Event(start + "NULL, 0)").Event(start + "buffer)");
}

Expectation& Expectation::WriteRaw(Form writer, const std::string& section, const Key& key,
                                   const std::string& value, const std::string& file)
{
    return Event(WriteText(writer, section, Shown(writer, key)) + " = " + Shown(writer, value) +
                 " in " + file);
}

void Expectation::WideStepWrite(const std::string& section, const Key& key,
                                const std::string& value)
{
    Convert(section).Convert(*key).Convert(value);
    // A short key is overwritten inside the holder: by a short value's text, or by the place of a
    // long value's storage.
    if (Wide(*key).size() > inline_capacity)
        WriteRaw(Form::wide, section, key, value, result_file_);
    else if (value.size() <= inline_capacity)
        WriteRaw(Form::wide, section, value, value, result_file_);
    else
        Event(WriteOfSomeShortKey(section, *key, value, result_file_));
}

std::tm Expectation::ReadClock()
{
    Event("_time64").Event("_localtime64");
    return script_.clock(clock_readings_++).value_or(std::tm{});
}

DWORD Expectation::ReadLastError()
{
    events_.emplace_back("GetLastError");
    return last_error_;
}

} // namespace kestro::test
