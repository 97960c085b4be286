// driver_install.h - what the install sections of an INF do: services, settings, files.
#pragma once

#include "registry_setting.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestro::servicing {

// A file that the INF names, below the INF's folder.
struct SourceFile {
    std::string folder; // UTF-8 with '/', empty for the INF's own folder
    std::string name;   // UTF-8

    std::string Path() const { return folder.empty() ? name : folder + "/" + name; }
};

// A place as INFs name it.
struct DirectoryPath {
    std::uint32_t directory = 0; // the directory's code ("%12%" is 12); 0 if none was written
    std::string path;            // UTF-8, below the directory, '\' between parts and none in front
};

// A text for people, as the INF writes it and as it reads with its strings put in. Both UTF-8.
struct TokenText {
    std::string written; // "%Service.Name%", tokens in the INF's own case
    std::string meaning; // "Sample service"

    // One token and nothing else, with a meaning.
    bool IsToken() const
    {
        return written.size() > 2 && written.front() == '%' &&
               written.find('%', 1) == written.size() - 1 && written != meaning;
    }
};

// One file of a CopyFiles directive.
struct FileCopy {
    std::string target; // UTF-8 name in the destination
    SourceFile source;  // in the package
    DirectoryPath destination;
    std::uint32_t flags = 0;    // COPYFLG_ bits
    std::string inf = {};       // as ServiceInstall's
    bool ofCoInstaller = false; // listed by the section's .CoInstallers
};

struct EventLog {
    std::string type;                      // UTF-8: "System" unless the INF says another
    std::string name;                      // UTF-8: the service's name unless the INF says another
    std::vector<RegistrySetting> settings; // HKR is the event log's key
};

// What a service section says beside the values that every service has.
struct ServiceDirective {
    std::string name;        // "BootFlags"
    unsigned firstBuild = 0; // of the Windows that understand it
    std::vector<RegistrySetting>
        settings; // HKR is the service's key; none if nothing is made of it
};

// One AddService directive with its section. Texts are UTF-8.
struct ServiceInstall {
    std::string inf; // the included INF this comes from, in lower case; empty for the package's own
    std::string name;
    std::uint32_t flags = 0; // SPSVCINST_ bits; 2 makes it the device's own service
    std::uint32_t type = 0;
    std::uint32_t start = 0;
    std::uint32_t errorControl = 0;
    DirectoryPath binary;
    TokenText displayName; // empty if the INF has none
    TokenText description; // empty if the INF has none
    std::string loadOrderGroup;
    std::vector<std::string> dependsOnServices;
    std::vector<std::string> dependsOnGroups; // without their '+'
    std::string startName;                    // empty unless the INF names an account
    std::vector<RegistrySetting> settings;    // of AddReg; HKR is the service's key
    std::vector<ServiceDirective> directives;
    std::vector<EventLog> eventLogs; // none or one
};

struct KmdfService {
    std::string service;        // UTF-8
    std::string libraryVersion; // UTF-8: "1.15"
};

// An install section with those that belong to it (.Services, .HW, .CoInstallers, .Wdf) and all that
// they need of others.
struct Configuration {
    std::string section; // UTF-8, as found, in the case of the first model: "Device_Install.NT"
    std::string service; // UTF-8, the device's own service; empty if it has none
    std::vector<ServiceInstall> services; // all, in the INF's order, the device's own among them
    std::vector<KmdfService> kmdfServices;
    std::vector<RegistrySetting> deviceSettings; // of .HW; HKR is the device's hardware key
    std::vector<FileCopy> copies;                // of the section and of its .CoInstallers
    std::uint8_t featureScore = 0xFF;            // 0xFF without a FeatureScore directive
    bool hasHardware = false;                    // there is a .HW section
    bool hasWdf = false;                         // there is a .Wdf section
    std::vector<std::string> leftOut; // what the sections say that nothing is made of, as words
    bool hasCoInstaller = false;      // one besides WdfCoInstaller: finish install
};

} // namespace kestro::servicing
