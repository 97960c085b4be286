// command_line.h - options and commands.
#pragma once

#include "commands.h"

#include <functional>
#include <string>
#include <vector>

namespace kestro::host {

struct Parsed {
    Options options;
    // The command that was chosen; empty when there is nothing to run.
    std::function<int(const Context&)> run;
    bool isList = false; // that command is run
    // What is to be shown instead, or what is wrong with the arguments.
    std::string text;
    int exitCode = kExitSuccess;
};

// UTF-8 arguments without the program's name. Nothing is run.
Parsed ParseCommandLine(const std::vector<std::string>& arguments);

} // namespace kestro::host
