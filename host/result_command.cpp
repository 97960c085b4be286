// result_command.cpp - shows a ResultFile of either form, and follows one that is being written.
#include "interrupt.h"
#include "session.h"
#include "usage_error.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

namespace kestro::host {
namespace {

using Clock = std::chrono::steady_clock;

void ShowLine(const Output& out, const LogLine& line)
{
    out.Line("  " + line.time + "  " + line.text);
}

// Tells the steps and lines that are new since the last look.
class Watcher {
  public:
    explicit Watcher(const Output& out) : out_(&out) {}

    // True when there was something new.
    bool Look(const Report& report)
    {
        const std::string stamp = report.lastWrite + "/" + std::to_string(report.log.size()) + "/" +
                                  std::to_string(report.steps.size());
        for (; lines_ < report.log.size(); ++lines_)
            ShowLine(*out_, report.log[lines_]);
        Report ended;
        for (const Step& step : report.steps)
            if (step.succeeded && std::find(told_.begin(), told_.end(), step.name) == told_.end()) {
                told_.push_back(step.name);
                ended.steps.push_back(step);
            }
        out_->Steps(ended);
        return std::exchange(stamp_, stamp) != stamp;
    }

  private:
    const Output* out_;
    std::size_t lines_ = 0;
    std::vector<std::string> told_;
    std::string stamp_;
};

void Follow(const Output& out, const std::wstring& file, unsigned idleSeconds)
{
    Watcher watcher(out);
    auto lastNews = Clock::now();
    for (;;) {
        const auto report = ReadResultFile(file);
        if (report && watcher.Look(*report))
            lastNews = Clock::now();
        if (idleSeconds != 0 && Clock::now() - lastNews >= std::chrono::seconds(idleSeconds))
            return;
        if (WaitForSingleObject(InterruptEvent(), 200) == WAIT_OBJECT_0)
            return;
    }
}

// Other programs' INI files have sections too.
bool IsOurs(const Report& report)
{
    return !report.log.empty() || report.Find("KESTRO_TEST") != nullptr ||
           std::any_of(report.steps.begin(), report.steps.end(),
                       [](const Step& step) { return step.succeeded || step.error; });
}

} // namespace

int ResultCommand(const Context& context, const std::wstring& file, bool watch,
                  unsigned idleSeconds)
{
    const std::wstring path = FullPath(file);
    Output& out = *context.out;
    if (watch) {
        const InterruptGuard guard; // what ends the following does not end the program
        out.Progress("Following " + Shown(path) + (idleSeconds != 0 ? "" : "; Ctrl+C ends it"));
        Follow(out, path, idleSeconds);
    }
    const auto report = ReadResultFile(path);
    if (!report)
        throw UsageError("cannot read the result file " + Shown(path));
    if (!IsOurs(*report))
        throw UsageError(Shown(path) + " holds nothing that the library writes");
    bool failed = false;
    for (const Step& step : report->steps)
        failed = failed || step.succeeded == false;
    if (out.Json()) {
        nlohmann::json document = {{"command", "result"}, {"file", Shown(path)}};
        document.update(ToJson(*report));
        nlohmann::json failures = nlohmann::json::array();
        for (const Failure& failure : report->failures) {
            failures.push_back(CodeToJson(failure.hresult));
            failures.back()["function"] = failure.function;
        }
        document["failures"] = failures;
        document["succeeded"] = !failed;
        out.Document(document);
    }
    if (!watch) {
        out.Steps(*report);
        for (const LogLine& line : report->log)
            ShowLine(out, line);
        for (const Failure& failure : report->failures)
            out.Failed(failure.function, failure.hresult);
    }
    return failed ? kExitFailed : kExitSuccess;
}

} // namespace kestro::host
