// main.cpp - kestro.exe: options and commands.
#include "commands.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>

#include <functional>

#include <shellapi.h>

namespace {

using namespace kestro::host;

std::wstring Wide(const std::string& text)
{
    return kestro::detail::Wide(text, CP_UTF8);
}

// The command that was chosen, to be run once everything is parsed.
using Run = std::function<int(const Options&)>;

struct Texts {
    std::string result, log, library;
};

void AddImageCommands(CLI::App& app, Run& run)
{
    static std::string image, directory;
    static bool commit = false, discard = false;

    auto* const mount = app.add_subcommand("mount", "Mount the first image of an image file");
    mount->add_option("IMAGE", image, "the image file")->required();
    mount->add_option("DIR", directory, "an existing, empty directory")->required();
    mount->footer("Example: kestro mount D:\\install.wim D:\\mount");
    mount->callback([&run] {
        run = [](const Options& o) { return MountCommand(o, Wide(image), Wide(directory)); };
    });

    auto* const unmount = app.add_subcommand("unmount", "Unmount a directory");
    unmount->add_option("DIR", directory, "the mount directory")->required();
    auto* const how = unmount->add_option_group("how", "What becomes of the changes");
    how->add_flag("--commit", commit, "save the changes into the image file");
    how->add_flag("--discard", discard, "drop the changes");
    how->require_option(1);
    unmount->footer("Example: kestro unmount D:\\mount --commit");
    unmount->callback([&run] {
        run = [](const Options& o) { return UnmountCommand(o, Wide(directory), commit); };
    });
}

void AddDriverCommands(CLI::App& app, Run& run)
{
    static std::string image, name;
    static std::vector<std::string> infs;

    auto* const driver = app.add_subcommand("driver", "Service the drivers of an offline image");
    driver->require_subcommand(1);

    auto* const add = driver->add_subcommand("add", "Add driver packages");
    add->add_option("IMAGE", image, "root directory of the mounted or offline image")->required();
    add->add_option("INF", infs, "INF files, and directories to search for them")->required();
    add->footer("Example: kestro driver add D:\\mount D:\\drivers");
    add->callback([&run] {
        run = [](const Options& o) {
            std::vector<std::wstring> wide;
            for (const std::string& inf : infs)
                wide.push_back(Wide(inf));
            return DriverAddCommand(o, Wide(image), wide);
        };
    });

    auto* const remove = driver->add_subcommand("remove", "Remove a driver package");
    remove->add_option("IMAGE", image, "root directory of the image")->required();
    remove->add_option("NAME", name, "its published name (oem0.inf)")->required();
    remove->footer("Example: kestro driver remove D:\\mount oem0.inf");
    remove->callback([&run] {
        run = [](const Options& o) { return DriverRemoveCommand(o, Wide(image), Wide(name)); };
    });

    auto* const list = driver->add_subcommand("list", "List the third-party driver packages");
    list->add_option("IMAGE", image, "root directory of the image")->required();
    list->footer("Example: kestro driver list D:\\mount --json");
    list->callback(
        [&run] { run = [](const Options& o) { return DriverListCommand(o, Wide(image)); }; });

    auto* const info =
        driver->add_subcommand("info", "Ask whether an image knows a driver package");
    info->add_option("IMAGE", image, "root directory of the image")->required();
    info->add_option("DRIVER", name, "a published name, or the path of an INF")->required();
    info->footer("Example: kestro driver info D:\\mount oem0.inf");
    info->callback([&run] {
        run = [](const Options& o) { return DriverInfoCommand(o, Wide(image), Wide(name)); };
    });
}

void AddDiskCommands(CLI::App& app, Run& run)
{
    static std::string name;
    static CleanFlags flags;

    auto* const disk =
        app.add_subcommand("disk", "Clean a disk, bring it online or take it offline");
    disk->require_subcommand(1);

    auto* const clean = disk->add_subcommand("clean", "Take everything off a disk");
    clean->add_option("NAME", name, "the disk's name (\\\\?\\PhysicalDrive1)")->required();
    clean->add_flag("--force", flags.force, "also a disk with data volumes");
    clean->add_flag("--force-oem", flags.forceOem, "also a disk with an OEM partition");
    clean->add_flag("--full", flags.full, "overwrite every sector");
    clean->add_flag("--yes", flags.yes, "really do it; without this nothing is done");
    clean->footer("Example: kestro disk clean \\\\?\\PhysicalDrive1 --force --yes");
    clean->callback(
        [&run] { run = [](const Options& o) { return DiskCleanCommand(o, Wide(name), flags); }; });

    for (const bool online : {true, false}) {
        auto* const change = disk->add_subcommand(
            online ? "online" : "offline", online ? "Bring a disk online" : "Take a disk offline");
        change->add_option("NAME", name, "the disk's name")->required();
        change->callback([&run, online] {
            run = [online](const Options& o) { return DiskOnlineCommand(o, Wide(name), online); };
        });
    }
}

void AddSystemCommands(CLI::App& app, Run& run)
{
    static std::string path;

    auto* const inf = app.add_subcommand("inf", "Drivers of the running system");
    inf->require_subcommand(1);
    auto* const install =
        inf->add_subcommand("install", "Install a driver package on this machine");
    install->add_option("INF", path, "its INF file")->required();
    install->footer("Example: kestro inf install D:\\drivers\\net.inf");
    install->callback(
        [&run] { run = [](const Options& o) { return InfInstallCommand(o, Wide(path)); }; });

    auto* const selftest = app.add_subcommand(
        "selftest", "Check that a host on this machine reads what the library writes");
    selftest->callback([&run] { run = SelfTestCommand; });
}

} // namespace

int main()
{
    CLI::App app(
        "Kestro services offline Windows images and disks and tells what became of each step.",
        "kestro");
    app.set_version_flag("--version", "kestro " KESTRO_VERSION);
    app.allow_windows_style_options(false); // a path may start with a slash
    app.require_subcommand(1);
    app.fallthrough();
    app.set_help_all_flag("--help-all", "help for all commands");

    Texts texts;
    Options options;
    app.add_option("--result", texts.result, "keep the ResultFile under this name");
    app.add_option("--log", texts.log, "the platform's own log file");
    app.add_option("--library", texts.library,
                   "the Kestro.dll to use (default: beside kestro.exe)");
    app.add_flag("--wide", options.wide, "call the W form of the functions");
    app.add_flag("--json", options.json, "print one JSON document");
    app.footer("Exit codes: 0 success, 1 failed, 2 bad arguments, 3 no such disk,\n"
               "            4 Kestro.dll or something that it needs cannot be loaded");

    Run run;
    AddImageCommands(app, run);
    AddDriverCommands(app, run);
    AddDiskCommands(app, run);
    AddSystemCommands(app, run);

    // The runtime's own arguments are ANSI text; names outside that code page need the wide ones.
    int count = 0;
    wchar_t** const wideArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = count - 1; i >= 1; --i)
        arguments.push_back(kestro::detail::Utf8(wideArguments[i]));
    LocalFree(wideArguments);

    const Output out(false);
    try {
        app.parse(arguments);
        options.result = Wide(texts.result);
        options.log = Wide(texts.log);
        options.library = Wide(texts.library);
        return run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitSuccess : kExitUsage;
    } catch (const UsageError& error) {
        out.Error(error.what());
        return kExitUsage;
    } catch (const kestro::LoadError& error) {
        out.Failed(error.what(), HRESULT_FROM_WIN32(error.LastError()), 0);
        return kExitNoLibrary;
    } catch (const std::exception& error) {
        out.Error(error.what());
        return kExitFailed;
    }
}
