// disk_case.h - calls on a disk of the disk service, and what they have to do.
#pragma once

#include "support/disk_service.h"
#include "support/expectation.h"

#include <array>
#include <vector>

namespace kestro::test {

enum class DiskExport { clean, online, offline };

inline constexpr DiskExport disk_exports[] = {DiskExport::clean, DiskExport::online,
                                              DiskExport::offline};
inline constexpr DiskExport disk_switches[] = {DiskExport::online, DiskExport::offline};

const char* NameOf(DiskExport what);

inline constexpr HRESULT rpc_unavailable = static_cast<HRESULT>(0x800706BA);
inline constexpr HRESULT no_interface = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT null_object = static_cast<HRESULT>(0x80004003); // E_POINTER
inline constexpr HRESULT properties_incomplete = 0x00042715;

struct DiskCase {
    const wchar_t* disk = L"\\\\?\\PhysicalDrive1";
    std::array<unsigned char, 3> flags{1, 0, 1}; // force, forceOEM, fullClean
    const char* result_file = "C:\\out\\result.ini";
};

// What the service answers once the disk is found.
struct DiskAction {
    HRESULT query = S_OK; // for the interface to act through
    HRESULT act = S_OK;   // Clean, Online, Offline
    HRESULT wait = S_OK;
    HRESULT delivered = S_OK; // by Wait
    bool gives_interface = true;
    bool gives_async = true; // whatever Clean returns

    std::string Describe() const;
};

// The platform with its disk service for one call, whose unallocated disks and providers with their
// packs are given.
class DiskRun {
  public:
    explicit DiskRun(DiskNames unallocated = {}, std::vector<Packs> providers = {},
                     std::vector<std::string> real = {});

    Platform platform;
    DiskService service;

    // Scripts what is done on the disk of that number.
    void Answer(const std::string& number, const DiskAction& action);
    void Call(DiskExport what, const DiskCase& arguments = {});
};

// The steps of one call in their order, each as the service and the host see it. Log lines and
// console lines are CleanDisk's; the other exports skip them.
class DiskSteps {
  public:
    explicit DiskSteps(DiskExport what, const std::string& result_file = "ResultFile");

    DiskSteps& Call(const std::string& call, HRESULT result = S_OK);
    DiskSteps& Log(const std::string& line);
    DiskSteps& LogNumber(const std::string& label, HRESULT number);
    DiskSteps& Trace(const std::string& line);
    DiskSteps& Release(const std::string& object);
    // Next; the first one on an enumerator finds the count at 0.
    DiskSteps& Next(const std::string& enumerator, HRESULT result = S_OK);
    // QueryInterface on what Next gave, which is then let go.
    DiskSteps& Convert(const std::string& object, const char* interface_name,
                       HRESULT result = S_OK);
    DiskSteps& Compare(const wchar_t* disk_name);

    // --- connection

    DiskSteps& CreateLoader(HRESULT result = S_OK, HRESULT security = S_OK);
    DiskSteps& LoadService(HRESULT result = S_OK);
    DiskSteps& QueryUnallocated(HRESULT result = S_OK);
    // All of it.
    DiskSteps& Connect();

    // --- unallocated disks

    DiskSteps& NextUnallocated(HRESULT result = S_OK);
    DiskSteps& ConvertUnallocated(const std::string& number, HRESULT result = S_OK);
    DiskSteps& UnallocatedProperties(const std::string& number, HRESULT result = S_OK);
    // All of it for one disk.
    DiskSteps& Unallocated(const std::string& number, const wchar_t* disk_name);
    // The end of these disks and the start of the search in packs.
    DiskSteps& QueryProviders(HRESULT result = S_OK);

    // --- disks in packs

    DiskSteps& NextProvider(HRESULT result = S_OK);
    DiskSteps& ConvertProvider(const std::string& number, HRESULT result = S_OK);
    DiskSteps& ProviderProperties(const std::string& number, HRESULT result = S_OK);
    DiskSteps& ConvertToSoftware(const std::string& number, HRESULT result = S_OK);
    DiskSteps& QueryPacks(const std::string& number, HRESULT result = S_OK);
    DiskSteps& Provider(const std::string& number);

    DiskSteps& NextPack(const std::string& number, HRESULT result = S_OK);
    DiskSteps& QueryDisks(const std::string& number, HRESULT properties = S_OK,
                          HRESULT result = S_OK);
    DiskSteps& Pack(const std::string& number);

    DiskSteps& NextDisk(const std::string& number, HRESULT result = S_OK);
    DiskSteps& DiskProperties(const std::string& number, HRESULT result = S_OK);
    DiskSteps& Disk(const std::string& number, const wchar_t* disk_name);
    DiskSteps& End(const std::string& enumerator) { return Next(enumerator, S_FALSE); }

    // --- the ends

    // From the disk that was found to the return; the common exit releases what is named.
    DiskSteps& Act(const std::string& number, const std::vector<const char*>& releases,
                   const DiskAction& action = {}, const DiskCase& arguments = {});
    // Releases what is named, in this order.
    DiskSteps& CommonExit(const std::vector<const char*>& releases, HRESULT last);
    // The common exit of a search without a find.
    DiskSteps& NotFound(const std::vector<const char*>& releases);
    DiskSteps& Returns(HRESULT value);

    DiskExport What() const { return what_; }
    const ExpectedEvents& Events() const { return call_.Events(); }

  private:
    DiskSteps& Switch(const std::string& disk, bool unallocated, const DiskAction& action,
                      const std::vector<const char*>& releases);
    DiskSteps& CleanUnallocated(const std::string& disk, const std::string& clean,
                                const DiskAction& action, const std::vector<const char*>& releases);
    DiskSteps& CleanInPack(const std::string& disk, const std::string& clean,
                           const DiskAction& action, const std::vector<const char*>& releases);

    DiskExport what_;
    Expectation call_;
    std::set<std::string> started_;
};

testing::AssertionResult Does(const DiskRun& run, const DiskSteps& steps);

} // namespace kestro::test
