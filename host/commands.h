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
    kExitNotFound = 3,    // no disk of that name
    kExitNoLibrary = 4,   // Kestro.dll or what it needs cannot be loaded
    kExitInterrupted = 5, // ended by the user; nothing is half done
};

struct Options {
    std::wstring result; // where the ResultFile goes; empty: nowhere
    std::wstring log;    // the platform's own log; empty: one in the temporary folder
    bool wide = false;   // call the W forms
    bool json = false;
    std::wstring library; // Kestro.dll; empty: beside the program

    Form GetForm() const { return wide ? Form::Wide : Form::Narrow; }
};

// Where the commands of one run of the program write: the JSON documents of a list of operations become one.
struct Context {
    Options options;
    Output* out = nullptr;
};

struct MountFlags {
    std::string index; // a number or a name; empty: the first image
    bool readOnly = false;
};
int MountCommand(const Context& context, const std::wstring& image, const std::wstring& directory,
                 const MountFlags& flags);
int UnmountCommand(const Context& context, const std::wstring& directory, bool commit);

int ImageListCommand(const Context& context, const std::wstring& image);

// With clean, what is broken is cleared away first.
int MountsCommand(const Context& context, bool clean);

struct InjectFlags {
    std::string index; // a number, a name or "all"; empty: the first image
    bool dryRun = false;
    std::wstring scratch; // where the images are mounted; empty: the temporary folder
};
int InjectCommand(const Context& context, const std::wstring& image,
                  const std::vector<std::wstring>& infs, const InjectFlags& flags);

int DriverAddCommand(const Context& context, const std::wstring& image,
                     const std::vector<std::wstring>& infs);
int DriverRemoveCommand(const Context& context, const std::wstring& image,
                        const std::wstring& name);
struct ListFlags {
    bool all = false;     // also what came with Windows
    bool details = false; // everything that is known of each
};
int DriverListCommand(const Context& context, const std::wstring& image, const ListFlags& flags);
// Published names, or "all" for every third-party package.
int DriverExportCommand(const Context& context, const std::wstring& image,
                        const std::vector<std::wstring>& names, const std::wstring& directory);
int DriverInfoCommand(const Context& context, const std::wstring& image,
                      const std::wstring& driver);

struct CleanFlags {
    Operations::CleanOptions what;
    bool yes = false;
};
int DiskCleanCommand(const Context& context, const std::wstring& name, const CleanFlags& flags);
int DiskListCommand(const Context& context);
int DiskOnlineCommand(const Context& context, const std::wstring& name, bool online);

int InfInstallCommand(const Context& context, const std::wstring& inf);
int SelfTestCommand(const Context& context);

// Shows a ResultFile. With watch, follows it until nothing was written for so many seconds (0: until the
// user ends it).
int ResultCommand(const Context& context, const std::wstring& file, bool watch,
                  unsigned idleSeconds);

// Runs the operations that a JSON file lists.
int RunCommand(const Context& context, const std::wstring& file);

} // namespace kestro::host
