// registry_setting.h - what an INF tells to be done to one registry value, in the form a hive holds.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::servicing {

// One line of an AddReg section (or of a DelReg section, whose lines come first).
struct RegistrySetting {
    enum class Action {
        Set,         // makes the key and sets the value
        SetIfAbsent, // sets the value unless the key has it
        SetIfThere,  // sets the value only where the key has it
        Append,      // adds the texts of `data` to a REG_MULTI_SZ value that lacks them
        MakeKey,     // makes the key and leaves its values
        Remove,      // takes the texts of `data` out of a REG_MULTI_SZ value
        DeleteValue,
        DeleteKey, // with all below it
    };

    Action action = Action::Set;
    std::string root;       // "HKR", "HKLM", "HKCR", "HKCU" or "HKU", in capitals
    std::string key;        // UTF-8, below the root, '\' between parts; empty for the root itself
    std::string name;       // UTF-8; empty for the default value
    std::uint32_t type = 0; // REG_SZ and so on
    std::string data;       // bytes of the hive: UTF-16LE with its ends, little-endian numbers
};

} // namespace kestro::servicing
