// system_state.h - which system this is, and its one file that the check's calls write to.
#ifndef KESTRO_CHECK_SYSTEM_STATE_H
#define KESTRO_CHECK_SYSTEM_STATE_H

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

namespace kestro::check {

// Versions and settings that decide how the services answer; no names.
nlohmann::ordered_json DescribeSystem();

// The wide functions stamp win.ini in the Windows folder. Put back as it was, byte by byte.
class SystemSettingsFile {
  public:
    SystemSettingsFile();
    // False when it could not be put back.
    bool Restore() const;

  private:
    std::filesystem::path path_;
    std::string content_;
};

} // namespace kestro::check

#endif
