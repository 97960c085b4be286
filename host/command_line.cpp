// command_line.cpp - options and commands.
#include "command_line.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <sstream>

namespace kestro::host {
namespace {

std::wstring Wide(const std::string& text)
{
    return detail::Wide(text, CP_UTF8);
}

std::vector<std::wstring> Wide(const std::vector<std::string>& texts)
{
    std::vector<std::wstring> wide;
    wide.reserve(texts.size());
    for (const std::string& text : texts)
        wide.push_back(Wide(text));
    return wide;
}

std::string NoCommand(const std::string& word, const std::string& name)
{
    return "There is no command " + word + " in " + name + ".\n";
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
    CommandLine()
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

    Parsed Parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end());
        try {
            app_.parse(arguments);
            parsed_.options.result = Wide(arguments_->result);
            parsed_.options.log = Wide(arguments_->log);
            parsed_.options.library = Wide(arguments_->library);
        } catch (const CLI::ParseError& error) {
            parsed_.run = nullptr;
            std::ostringstream text, errors;
            parsed_.exitCode = app_.exit(error, text, errors) == 0 ? kExitSuccess : kExitUsage;
            parsed_.text = UnknownCommand() + text.str() + errors.str();
        }
        return std::move(parsed_);
    }

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

void CommandLine::AddInjectCommand()
{
    Arguments& to = *arguments_;
    auto* const inject = app_.add_subcommand(
        "inject", "Put driver packages into an image file: mount, add, save, unmount");
    inject->add_option("IMAGE", to.image, "the image file")->required();
    inject->add_option("INF", to.infs, "INF files, and directories to search for them")->required();
    inject->add_option("--index", to.inject.index,
                       "the image's number or name, or all (default: the first)");
    inject->add_flag("--dry-run", to.inject.dryRun, "only say what would be done");
    inject->add_option("--scratch", to.scratch,
                       "an existing directory to mount in (default: the temporary folder)");
    inject->footer("Example: kestro inject D:\\boot.wim D:\\drivers --index 2");
    Choose(inject, [](const Context& context, const Arguments& a) {
        InjectFlags flags = a.inject;
        flags.scratch = Wide(a.scratch);
        return InjectCommand(context, Wide(a.image), Wide(a.infs), flags);
    });
}

void CommandLine::AddImageCommands()
{
    Arguments& to = *arguments_;
    auto* const image = app_.add_subcommand("image", "Look at image files");
    image->require_subcommand(1);
    auto* const list = image->add_subcommand("list", "List the images of a file");
    list->add_option("FILE", to.image, "the image file")->required();
    list->footer("Example: kestro image list D:\\install.wim");
    Choose(list, [](const Context& context, const Arguments& a) {
        return ImageListCommand(context, Wide(a.image));
    });
}

void CommandLine::AddMountCommands()
{
    Arguments& to = *arguments_;
    auto* const mount = app_.add_subcommand("mount", "Mount an image of an image file");
    mount->add_option("IMAGE", to.image, "the image file")->required();
    mount->add_option("DIR", to.directory, "an existing, empty directory")->required();
    mount->add_option("--index", to.mount.index, "the image's number or name (default: the first)");
    mount->add_flag("--read-only", to.mount.readOnly, "changes cannot be saved");
    mount->footer("Example: kestro mount D:\\install.wim D:\\mount");
    Choose(mount, [](const Context& context, const Arguments& a) {
        return MountCommand(context, Wide(a.image), Wide(a.directory), a.mount);
    });

    auto* const mounts = app_.add_subcommand("mounts", "List what is mounted");
    mounts->add_flag("--clean", to.clean, "first clear away what is broken");
    mounts->footer("Example: kestro mounts --clean");
    Choose(mounts, [](const Context& context, const Arguments& a) {
        return MountsCommand(context, a.clean);
    });

    auto* const unmount = app_.add_subcommand("unmount", "Unmount a directory");
    unmount->add_option("DIR", to.directory, "the mount directory")->required();
    auto* const how = unmount->add_option_group("how", "What becomes of the changes");
    how->add_flag("--commit", to.commit, "save the changes into the image file");
    how->add_flag("--discard", to.discard, "drop the changes");
    how->require_option(1);
    unmount->footer("Example: kestro unmount D:\\mount --commit");
    Choose(unmount, [](const Context& context, const Arguments& a) {
        return UnmountCommand(context, Wide(a.directory), a.commit);
    });
}

void CommandLine::AddDriverCommands()
{
    Arguments& to = *arguments_;
    auto* const driver = app_.add_subcommand("driver", "Service the drivers of an offline image");
    driver->require_subcommand(1);

    auto* const add = driver->add_subcommand("add", "Add driver packages");
    add->add_option("IMAGE", to.image, "root directory of the mounted or offline image")
        ->required();
    add->add_option("INF", to.infs, "INF files, and directories to search for them")->required();
    add->footer("Example: kestro driver add D:\\mount D:\\drivers");
    Choose(add, [](const Context& context, const Arguments& a) {
        return DriverAddCommand(context, Wide(a.image), Wide(a.infs));
    });

    auto* const remove = driver->add_subcommand("remove", "Remove a driver package");
    remove->add_option("IMAGE", to.image, "root directory of the image")->required();
    remove->add_option("NAME", to.name, "its published name (oem0.inf)")->required();
    remove->footer("Example: kestro driver remove D:\\mount oem0.inf");
    Choose(remove, [](const Context& context, const Arguments& a) {
        return DriverRemoveCommand(context, Wide(a.image), Wide(a.name));
    });

    auto* const info = driver->add_subcommand("info", "Describe a driver package and its devices");
    info->add_option("IMAGE", to.image, "root directory of the image")->required();
    info->add_option("DRIVER", to.name, "a published name, or the path of an INF")->required();
    info->footer("Example: kestro driver info D:\\mount oem0.inf");
    Choose(info, [](const Context& context, const Arguments& a) {
        return DriverInfoCommand(context, Wide(a.image), Wide(a.name));
    });
}

void CommandLine::AddDriverListCommands()
{
    Arguments& to = *arguments_;
    CLI::App* const driver = app_.get_subcommand("driver");
    auto* const list = driver->add_subcommand("list", "List the third-party driver packages");
    list->add_option("IMAGE", to.image, "root directory of the image")->required();
    list->add_flag("--all", to.list.all, "also those that came with Windows");
    list->add_flag("--long", to.list.details, "class, provider, date, version, signature of each");
    list->footer("Example: kestro driver list D:\\mount --long");
    Choose(list, [](const Context& context, const Arguments& a) {
        return DriverListCommand(context, Wide(a.image), a.list);
    });

    auto* const out = driver->add_subcommand("export", "Copy driver packages out of an image");
    out->add_option("IMAGE", to.image, "root directory of the image")->required();
    out->add_option("NAME", to.words, "published names, or all; then the directory to copy into")
        ->required()
        ->expected(2, -1);
    out->footer("The last word is the directory. Each package gets a folder there, as its maker "
                "published it.\n"
                "Example: kestro driver export D:\\mount oem0.inf D:\\exported");
    Choose(out, [](const Context& context, const Arguments& a) {
        std::vector<std::wstring> names = Wide(a.words);
        const std::wstring directory = names.back();
        names.pop_back();
        return DriverExportCommand(context, Wide(a.image), names, directory);
    });
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
        return DiskCleanCommand(context, Wide(a.name), a.diskClean);
    });

    for (const bool online : {true, false}) {
        const std::string verb = online ? "online" : "offline";
        auto* const change =
            disk->add_subcommand(verb, online ? "Bring a disk online" : "Take a disk offline");
        change->add_option("NAME", to.name, "the disk's name")->required();
        change->footer("Example: kestro disk " + verb + " \\\\?\\PhysicalDrive1");
        Choose(change, [online](const Context& context, const Arguments& a) {
            return DiskOnlineCommand(context, Wide(a.name), online);
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
        return InfInstallCommand(context, Wide(a.file));
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
        return ResultCommand(context, Wide(a.file), a.watch, a.idleSeconds);
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
        return RunCommand(context, Wide(a.file));
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
    parsed_.text = app_.get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal);
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

} // namespace

Parsed ParseCommandLine(const std::vector<std::string>& arguments)
{
    return CommandLine().Parse(arguments);
}

} // namespace kestro::host
