// main.cpp - kestro.exe.
#include "command_line.h"
#include "usage_error.h"

#include <cstdio>

#include <shellapi.h>

namespace {

using namespace kestro::host;

// The runtime's own arguments are ANSI text; names outside that code page need the wide ones.
std::vector<std::string> Arguments()
{
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(kestro::detail::Utf8(wide[i]));
    LocalFree(wide);
    return arguments;
}

int Run()
{
    const Parsed parsed = ParseCommandLine(Arguments());
    Output out(parsed.options.json);
    if (!parsed.run) {
        out.Text(parsed.text, parsed.exitCode != kExitSuccess);
        return parsed.exitCode;
    }
    try {
        return parsed.run({parsed.options, &out});
    } catch (const UsageError& error) {
        out.Error(error.what());
        return kExitUsage;
    } catch (const kestro::LoadError& error) {
        out.Failed(error.what(), HRESULT_FROM_WIN32(error.LastError()));
        return kExitNoLibrary;
    } catch (const std::exception& error) {
        out.Error(error.what());
        return kExitFailed;
    }
}

} // namespace

int main()
{
    try {
        return Run();
    } catch (...) {
        std::fputs("kestro: an unforeseen failure\n", stderr);
        return kExitFailed;
    }
}
