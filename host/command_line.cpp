// command_line.cpp - options and commands.
#include "command_line_parts.h"

#include <algorithm>
#include <sstream>

namespace kestro::host {
namespace {

std::string NoCommand(const std::string& word, const std::string& name)
{
    return "There is no command " + word + " in " + name + ".\n";
}

} // namespace

CommandLine::CommandLine()
{
    app_.set_version_flag("--version", "kestro " KESTRO_VERSION);
    app_.allow_windows_style_options(false); // a path may start with a slash
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.set_help_all_flag("--help-all", "help for all commands");
    app_.add_option("--result", arguments_->result, "keep the ResultFile under this name");
    app_.add_option("--log", arguments_->log, "the platform's own log file");
    app_.add_option("--library", arguments_->library,
                    "the Kestro.dll to use (default: beside kestro.exe)");
    app_.add_flag("--wide", parsed_.options.wide, "call the W form of the functions");
    app_.add_flag("--json", parsed_.options.json, "print one JSON document");
    app_.footer("Exit codes: 0 success, 1 failed, 2 bad arguments, 3 no such disk,\n"
                "            4 Kestro.dll or something that it needs cannot be loaded,\n"
                "            5 interrupted\n"
                "kestro help COMMAND tells more about a command.");
    AddInjectCommand();
    AddImageCommands();
    AddMountCommands();
    AddDriverCommands();
    AddDriverListCommands();
    AddDiskCommands();
    AddSystemCommands();
    AddOtherCommands();
}

Parsed CommandLine::Parse(std::vector<std::string> arguments)
{
    // A script's variable that is empty must not stand for something else.
    if (std::any_of(arguments.begin(), arguments.end(), [](const std::string& word) {
            return word.empty() || (word.starts_with("--") && word.ends_with("="));
        })) {
        parsed_.exitCode = kExitUsage;
        parsed_.text = "An argument is empty.\n";
        return std::move(parsed_);
    }
    std::reverse(arguments.begin(), arguments.end());
    try {
        app_.parse(arguments);
        parsed_.options.result = Given(arguments_->result);
        parsed_.options.log = Given(arguments_->log);
        parsed_.options.library = Given(arguments_->library);
    } catch (const CLI::ParseError& error) {
        parsed_.run = nullptr;
        std::ostringstream text, errors;
        parsed_.exitCode = app_.exit(error, text, errors) == 0 ? kExitSuccess : kExitUsage;
        parsed_.text = UnknownCommand() + WithExamples(text.str()) + errors.str();
    }
    return std::move(parsed_);
}

void CommandLine::AddDiskCommands()
{
    Arguments& to = *arguments_;
    auto* const disk =
        app_.add_subcommand("disk", "List disks, clean one, bring it online or take it offline");
    disk->require_subcommand(1);

    auto* const list = disk->add_subcommand("list", "List the disks that the disk service knows");
    list->footer("Example: kestro disk list");
    Choose(list, [](const Context& context, const Arguments&) { return DiskListCommand(context); });

    auto* const clean = disk->add_subcommand("clean", "Take everything off a disk");
    clean->add_option("NAME", to.name, "the disk's name (\\\\?\\PhysicalDrive1)")->required();
    clean->add_flag("--force", to.diskClean.what.force, "also a disk with data volumes");
    clean->add_flag("--force-oem", to.diskClean.what.forceOem, "also a disk with an OEM partition");
    clean->add_flag("--full", to.diskClean.what.full, "overwrite every sector");
    clean->add_flag("--yes", to.diskClean.yes, "really do it; without this nothing is done");
    clean->footer("Example: kestro disk clean \\\\?\\PhysicalDrive1 --force --yes");
    Choose(clean, [](const Context& context, const Arguments& a) {
        return DiskCleanCommand(context, Given(a.name), a.diskClean);
    });

    for (const bool online : {true, false}) {
        const std::string verb = online ? "online" : "offline";
        auto* const change =
            disk->add_subcommand(verb, online ? "Bring a disk online" : "Take a disk offline");
        change->add_option("NAME", to.name, "the disk's name")->required();
        change->footer("Example: kestro disk " + verb + " \\\\?\\PhysicalDrive1");
        Choose(change, [online](const Context& context, const Arguments& a) {
            return DiskOnlineCommand(context, Given(a.name), online);
        });
    }
}

void CommandLine::AddSystemCommands()
{
    Arguments& to = *arguments_;
    auto* const inf = app_.add_subcommand("inf", "Drivers of the running system");
    inf->require_subcommand(1);
    auto* const install =
        inf->add_subcommand("install", "Install a driver package on this machine");
    install->add_option("INF", to.file, "its INF file")->required();
    install->footer("Example: kestro inf install D:\\drivers\\net.inf");
    Choose(install, [](const Context& context, const Arguments& a) {
        return InfInstallCommand(context, Given(a.file));
    });

    auto* const selftest = app_.add_subcommand(
        "selftest", "Check that a host on this machine reads what the library writes");
    selftest->footer("Example: kestro selftest --json");
    Choose(selftest,
           [](const Context& context, const Arguments&) { return SelfTestCommand(context); });
}

void CommandLine::AddOtherCommands()
{
    Arguments& to = *arguments_;
    auto* const result = app_.add_subcommand("result", "Show a ResultFile of either form");
    result->add_option("FILE", to.file, "the ResultFile of any host")->required();
    auto* const watch = result->add_flag("--watch", to.watch, "follow it while a host writes it");
    result
        ->add_option("--idle", to.idleSeconds,
                     "end when nothing was written for so many seconds (default: never)")
        ->needs(watch);
    result->footer("Example: kestro result D:\\result.ini --watch --idle 60");
    Choose(result, [](const Context& context, const Arguments& a) {
        return ResultCommand(context, Given(a.file), a.watch, a.idleSeconds);
    });

    auto* const run = app_.add_subcommand("run", "Run a list of operations from a JSON file");
    run->add_option("FILE", to.file, "the list")->required();
    run->preparse_callback([this](std::size_t) { parsed_.isList = true; });
    run->footer("The list holds command lines as arrays of words, and what to do when one fails:\n"
                "  { \"on_failure\": \"stop\",\n"
                "    \"operations\": [ [\"mount\", \"D:\\\\install.wim\", \"D:\\\\mount\"],\n"
                "                    [\"driver\", \"add\", \"D:\\\\mount\", \"D:\\\\drivers\"],\n"
                "                    [\"unmount\", \"D:\\\\mount\", \"--commit\"] ] }\n"
                "Example: kestro run D:\\deploy.json");
    Choose(run, [](const Context& context, const Arguments& a) {
        return RunCommand(context, Given(a.file));
    });

    auto* const help = app_.add_subcommand("help", "Tell more about a command");
    help->add_option("COMMAND", to.words, "the command, such as driver add");
    help->callback([this] { ShowHelp(); });
}

void CommandLine::ShowHelp()
{
    CLI::App* command = &app_;
    std::string name = "kestro";
    for (const std::string& word : arguments_->words) {
        const auto found = command->get_subcommands(
            [&](const CLI::App* candidate) { return candidate->get_name() == word; });
        if (found.empty()) {
            parsed_.exitCode = kExitUsage;
            parsed_.text = NoCommand(word, name);
            return;
        }
        command = found.front();
        name += " " + word;
    }
    // App::help would show the command that was chosen, and that is help.
    parsed_.text =
        WithExamples(app_.get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal));
}

// CLI11 only says that a command is missing where it met a word that is none.
std::string CommandLine::UnknownCommand() const
{
    const CLI::App* command = &app_;
    std::string name = "kestro";
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        name += " " + command->get_name();
    }
    const bool takesCommand = !command->get_subcommands({}).empty();
    for (const std::string& word : app_.remaining(true))
        if (takesCommand && !word.starts_with("-"))
            return NoCommand(word, name);
    return "";
}

Parsed ParseCommandLine(const std::vector<std::string>& arguments)
{
    return CommandLine().Parse(arguments);
}

} // namespace kestro::host
