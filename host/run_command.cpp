// run_command.cpp - a list of operations from a JSON file. Everything in the list is checked before the first
// operation runs.
#include "command_line.h"
#include "interrupt.h"
#include "usage_error.h"

#include "session.h"

#include <filesystem>
#include <fstream>

namespace kestro::host {
namespace {

using nlohmann::json;

struct Operation {
    std::vector<std::string> words;
    Parsed parsed;
};

struct List {
    bool stopOnFailure = true;
    std::vector<Operation> operations;
};

[[noreturn]] void Refuse(const std::wstring& file, const std::string& why)
{
    throw UsageError(Shown(file) + ": " + why);
}

Operation ReadOperation(const std::wstring& file, const json& words, std::size_t number)
{
    const std::string which = "operation " + std::to_string(number) + ": ";
    if (!words.is_array() || words.empty())
        Refuse(file, which + "a command line is an array of words");
    Operation operation;
    for (const json& word : words) {
        if (!word.is_string())
            Refuse(file, which + "every word is a text");
        operation.words.push_back(word.get<std::string>());
    }
    operation.parsed = ParseCommandLine(operation.words);
    // However many options stand before the word.
    if (operation.parsed.isList)
        Refuse(file, which + "run is no operation");
    if (operation.words.front() == "help")
        Refuse(file, which + "help is no operation");
    if (!operation.parsed.run)
        Refuse(file, which + operation.parsed.text);
    return operation;
}

List ReadList(const std::wstring& file)
{
    std::ifstream stream{std::filesystem::path(file)};
    if (!stream)
        throw UsageError("cannot read the list " + Shown(file));
    const json document = json::parse(stream, nullptr, false);
    if (document.is_discarded() || !document.is_object() || !document.contains("operations") ||
        !document["operations"].is_array())
        Refuse(file, "this is no JSON object with an array \"operations\"");
    List list;
    for (const auto& [key, value] : document.items())
        if (key != "operations" && key != "on_failure")
            Refuse(file, "there is no setting \"" + key + "\"");
    const json onFailure = document.value("on_failure", json("stop"));
    if (onFailure != "stop" && onFailure != "continue")
        Refuse(file, "\"on_failure\" is \"stop\" or \"continue\"");
    list.stopOnFailure = onFailure == "stop";
    for (const json& words : document["operations"])
        list.operations.push_back(ReadOperation(file, words, list.operations.size() + 1));
    return list;
}

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty())
            text += ' ';
        text += word;
    }
    return text;
}

// Options of the run hold for every operation that does not set its own.
Context ContextOf(const Context& context, const Options& own)
{
    Context merged = context;
    merged.options.wide = context.options.wide || own.wide;
    merged.options.result = own.result;
    if (!own.log.empty())
        merged.options.log = own.log;
    if (!own.library.empty())
        merged.options.library = own.library;
    return merged;
}

int RunOne(const Context& context, const Operation& operation)
{
    try {
        return operation.parsed.run(ContextOf(context, operation.parsed.options));
    } catch (const UsageError& error) {
        context.out->Error(error.what());
        return kExitUsage;
    } catch (const kestro::LoadError& error) {
        context.out->Failed(error.what(), HRESULT_FROM_WIN32(error.LastError()));
        return kExitNoLibrary;
    } catch (const std::exception& error) {
        context.out->Error(error.what());
        return kExitFailed;
    }
}

} // namespace

int RunCommand(const Context& context, const std::wstring& file)
{
    const InterruptGuard guard;
    const List list = ReadList(FullPath(file));
    Output& out = *context.out;
    const std::size_t count = list.operations.size();
    std::size_t failed = 0, done = 0;
    json results = json::array();
    for (const Operation& operation : list.operations) {
        out.Progress("[" + std::to_string(++done) + "/" + std::to_string(count) + "] " +
                     Joined(operation.words));
        out.Gather();
        const int exitCode = RunOne(context, operation);
        results.push_back({{"operation", operation.words},
                           {"exit_code", exitCode},
                           {"documents", out.Gathered()}});
        failed += exitCode != kExitSuccess;
        if ((failed != 0 && list.stopOnFailure) || Interrupted())
            break;
    }
    const bool succeeded = failed == 0 && done == count;
    if (out.Json())
        out.Document({{"command", "run"},
                      {"succeeded", succeeded},
                      {"operations", results},
                      {"not_run", count - done}});
    out.Line(std::to_string(done - failed) + " of " + std::to_string(count) +
             " operations succeeded, " + std::to_string(failed) + " failed" +
             (done < count ? ", " + std::to_string(count - done) + " not run" : ""));
    if (succeeded)
        return kExitSuccess;
    return Interrupted() ? kExitInterrupted : kExitFailed;
}

} // namespace kestro::host
