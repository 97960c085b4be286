// quiet_platform.h - a platform that does nothing but count, behind the loaded Kestro.dll.
//
// The servicing API, COM, the device installer and the console are stubs that work per thread and keep
// account of what a call leaves behind. Everything else is the system's own: profile writers, text
// conversions, files. The library's memory is counted block by block.
#pragma once

#include "support/import_table.h"

#include <map>
#include <memory>
#include <string>
#include <vector>
#include <windows.h>

namespace kestro::test {

// What one call left behind, or what many left per call.
struct Leftovers {
    long library_blocks = 0;  // of the library's own memory
    long copies = 0;          // of SysAllocString
    long records = 0;         // arrays of the servicing API
    long sessions = 0;        // open
    long initialisations = 0; // of the servicing API
    long objects = 0;         // references to the disk service's objects
    long strings = 0;         // of the disk service's property records
    long uninitialised = 0;   // calls of CoUninitialize

    bool operator==(const Leftovers&) const = default;
};

std::string ToText(const Leftovers& leftovers);

// The stubs' state of this thread for one call of an export. What the call leaves behind is the stubs' own
// memory, and goes with this.
class QuietCall {
  public:
    // fails_at: the n-th call of the platform fails, counted from 1; 0: none. tag: part of every name
    // that the platform hands out.
    QuietCall(int fails_at, int tag);
    ~QuietCall();
    QuietCall(const QuietCall&) = delete;
    QuietCall& operator=(const QuietCall&) = delete;

    static QuietCall& Active();

    // S_OK, or the failure of the call that is to fail.
    HRESULT NextResult();
    // Whether the call that was to fail was reached.
    bool Failed() const { return fails_at_ > 0 && calls_ >= fails_at_; }
    Leftovers Left() const;
    // For as long as this lives.
    template <typename Memory>
    Memory* Keep(std::shared_ptr<Memory> memory)
    {
        kept_.push_back(memory);
        return memory.get();
    }

    const int tag;
    // What the stubs count; Left() is what is left now.
    Leftovers counts;

  private:
    int fails_at_;
    int calls_ = 0;
    std::vector<std::shared_ptr<void>> kept_;
};

// Puts the stubs into the library's import table for as long as it lives.
class QuietPlatform {
  public:
    QuietPlatform();
    ~QuietPlatform();
    QuietPlatform(const QuietPlatform&) = delete;
    QuietPlatform& operator=(const QuietPlatform&) = delete;

    // Whether profile writes reach the system's writers, as they do at first, or come to nothing.
    void WriteFiles(bool write);
    // Lets every thread read a clock and a last error of its own instead of the system's.
    void UseThreadsOwn();

  private:
    void Replace(const std::string& name, void* function);

    std::map<std::string, Import> imports_;
    std::vector<std::pair<Import, void*>> originals_;
};

// The time that the calling thread's clock shows.
void SetClockOfThread(int minutes);

// --- the disk service, in quiet_disks.cpp ---

inline constexpr wchar_t unallocated_disk[] = L"\\\\?\\PhysicalDrive1";
inline constexpr wchar_t pack_disk[] = L"\\\\?\\PhysicalDrive2";

HRESULT CreateQuietLoader(void** loader);

} // namespace kestro::test
