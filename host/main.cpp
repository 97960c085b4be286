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
