// commands.h - the host's commands. Each returns the exit code.
#pragma once

#include "output.h"

#include <string>
#include <vector>

namespace kestro::host {

enum ExitCode {
    kExitSuccess = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitNotFound = 3,  // no disk of that name
    kExitNoLibrary = 4, // Kestro.dll or what it needs cannot be loaded
};

struct Options {
    std::wstring result; // where the ResultFile goes; empty: nowhere
    std::wstring log;    // the platform's own log; empty: one in the temporary folder
    bool wide = false;   // call the W forms
    bool json = false;
    std::wstring library; // Kestro.dll; empty: beside the program

    Form GetForm() const { return wide ? Form::Wide : Form::Narrow; }
};

int MountCommand(const Options& options, const std::wstring& image, const std::wstring& directory);
int UnmountCommand(const Options& options, const std::wstring& directory, bool commit);

int DriverAddCommand(const Options& options, const std::wstring& image,
                     const std::vector<std::wstring>& infs);
int DriverRemoveCommand(const Options& options, const std::wstring& image,
                        const std::wstring& name);
int DriverListCommand(const Options& options, const std::wstring& image);
int DriverInfoCommand(const Options& options, const std::wstring& image,
                      const std::wstring& driver);

struct CleanFlags {
    bool force = false, forceOem = false, full = false, yes = false;
};
int DiskCleanCommand(const Options& options, const std::wstring& name, const CleanFlags& flags);
int DiskOnlineCommand(const Options& options, const std::wstring& name, bool online);

int InfInstallCommand(const Options& options, const std::wstring& inf);
int SelfTestCommand(const Options& options);

} // namespace kestro::host
