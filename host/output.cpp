// output.cpp - what the host shows.
#include "output.h"

#include "interrupt.h"
#include "paths.h"
#include "result_codes.h"

#include <algorithm>
#include <cstdio>

#include <io.h>

namespace kestro::host {
namespace {

using nlohmann::json;

// A console takes wide text; a pipe or a file takes UTF-8.
void Put(std::FILE* stream, DWORD handleId, const std::string& text)
{
    DWORD mode = 0;
    void* const handle = GetStdHandle(handleId);
    if (GetConsoleMode(handle, &mode)) {
        std::fflush(stream);
        const std::wstring wide = detail::Wide(text, CP_UTF8);
        DWORD written = 0;
        WriteConsoleW(handle, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
        return;
    }
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

std::string Seconds(std::chrono::milliseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%6.1f s", static_cast<double>(time.count()) / 1000);
    return text;
}

} // namespace

bool Output::IsLive() const
{
    DWORD mode = 0;
    return !json_ && GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode);
}

void Output::Live(std::chrono::milliseconds since) const
{
    if (!IsLive())
        return;
    std::string text = Seconds(since);
    if (const int percent = percent_; percent >= 0) {
        char number[16];
        std::snprintf(number, sizeof number, "  %3d %%", percent);
        text += number;
    }
    const std::scoped_lock lock(mutex_);
    Clear();
    Put(stderr, STD_ERROR_HANDLE, text);
    live_ = text.size();
}

void Output::EndLive() const
{
    const std::scoped_lock lock(mutex_);
    Clear();
    percent_ = -1;
}

void Output::Clear() const
{
    if (live_ != 0)
        Put(stderr, STD_ERROR_HANDLE, "\r" + std::string(std::exchange(live_, 0), ' ') + "\r");
}

void Output::Write(std::FILE* stream, DWORD handle, const std::string& text) const
{
    const std::scoped_lock lock(mutex_);
    Clear();
    Put(stream, handle, text);
}

void Output::SetPercent(std::uint64_t done, std::uint64_t of) const
{
    if (of != 0)
        percent_ = static_cast<int>(done * 100 / of);
}

Watch Output::LiveWatch() const
{
    return {[this](std::uint32_t current, std::uint32_t total) { SetPercent(current, total); },
            InterruptEvent()};
}

void Output::Line(const std::string& text) const
{
    if (!json_)
        Write(stdout, STD_OUTPUT_HANDLE, text + "\n");
}

void Output::Error(const std::string& text) const
{
    Write(stderr, STD_ERROR_HANDLE, "kestro: " + text + "\n");
}

void Output::Text(const std::string& text, bool asError) const
{
    if (asError)
        Write(stderr, STD_ERROR_HANDLE, text);
    else
        Write(stdout, STD_OUTPUT_HANDLE, text);
}

void Output::Progress(const std::string& text) const
{
    if (!json_)
        Write(stderr, STD_ERROR_HANDLE, text + "\n");
}

Follower Output::LogFollower() const
{
    return [this](const LogLine* line, std::chrono::milliseconds since) {
        if (line != nullptr)
            Progress(Seconds(since) + "  " + ShownAtEnd(line->text));
        else
            Live(since);
    };
}

void Output::Steps(const Report& report) const
{
    for (const Step& step : report.steps) {
        std::string line = "  " + step.name;
        line.resize(std::max<std::size_t>(line.size() + 2, 28), ' ');
        line += !step.succeeded ? "-" : *step.succeeded ? "OK" : "failed";
        if (step.error)
            line += "   last error " + std::to_string(*step.error);
        Line(line);
    }
}

void Output::Failed(const std::string& what, std::int32_t code,
                    std::optional<std::int32_t> lastError) const
{
    const CodeText text = Describe(code);
    std::string line = what + " failed: " + text.hex;
    if (!text.name.empty())
        line += " " + text.name;
    if (!text.message.empty())
        line += ", " + text.message;
    if (lastError.value_or(0) != 0)
        line += " (last error " + std::to_string(*lastError) + ")";
    Error(line);
    if (!text.hint.empty())
        Error(text.hint);
}

void Output::Document(const json& document)
{
    if (gathered_.is_array()) {
        gathered_.push_back(document);
        return;
    }
    // Text that is not UTF-8 is shown as far as it goes instead of losing the whole document.
    Write(stdout, STD_OUTPUT_HANDLE,
          document.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
}

json CodeToJson(std::int32_t code)
{
    const CodeText text = Describe(code);
    return {{"hresult", text.hex},
            {"value", code},
            {"name", text.name},
            {"message", text.message},
            {"hint", text.hint}};
}

json ToJson(const Report& report)
{
    json steps = json::array();
    for (const Step& step : report.steps) {
        json keys = json::object();
        for (const auto& [key, value] : step.other)
            keys[key] = value;
        steps.push_back({{"step", step.name},
                         {"succeeded", step.succeeded ? json(*step.succeeded) : json()},
                         {"error_code", step.error ? json(*step.error) : json()},
                         {"keys", keys}});
    }
    json log = json::array();
    for (const LogLine& line : report.log)
        log.push_back({{"number", line.number}, {"time", line.time}, {"text", line.text}});
    return {{"steps", steps}, {"log", log}, {"last_write", report.lastWrite}};
}

} // namespace kestro::host
