// command_line_parts.h - the command line as its parts see it, each of which adds the commands of one subject.
#pragma once

#include "command_line.h"
#include "paths.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kestro::host {

inline std::vector<std::wstring> Given(const std::vector<std::string>& arguments)
{
    std::vector<std::wstring> given;
    given.reserve(arguments.size());
    for (const std::string& argument : arguments)
        given.push_back(Given(argument));
    return given;
}

// What the arguments of all commands are read into.
struct Arguments {
    std::string image, directory, name, file;
    std::vector<std::string> infs, words;
    bool commit = false, discard = false, watch = false, clean = false;
    MountFlags mount;
    ListFlags list;
    InjectFlags inject;
    std::string scratch;
    unsigned idleSeconds = 0;
    CleanFlags diskClean;
    std::string result, log, library;
};

class CommandLine {
  public:
    CommandLine();
    Parsed Parse(std::vector<std::string> arguments);

  private:
    using Command = std::function<int(const Context&, const Arguments&)>;

    // Chooses the command when its name is parsed; its arguments live on with it.
    void Choose(CLI::App* command, Command run)
    {
        command->callback([this, run = std::move(run)] {
            parsed_.run = [run, arguments = arguments_](const Context& context) {
                return run(context, *arguments);
            };
        });
    }

    void AddInjectCommand();
    void AddImageCommands();
    void AddMountCommands();
    void AddDriverCommands();
    void AddDriverListCommands();
    void AddDiskCommands();
    void AddSystemCommands();
    void AddOtherCommands();
    void ShowHelp();
    std::string UnknownCommand() const;

    CLI::App app_{
        "Kestro services offline Windows images and disks and tells what became of each step.",
        "kestro"};
    std::shared_ptr<Arguments> arguments_ = std::make_shared<Arguments>();
    Parsed parsed_;
};

} // namespace kestro::host
