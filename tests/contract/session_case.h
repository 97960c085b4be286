// session_case.h - calls that service an image in a session, and what they have to do.
#pragma once

#include "contract/outcome.h"
#include "support/expectation.h"

#include <array>
#include <functional>
#include <vector>

namespace kestro::test {

// The arguments that all session exports have and the results of the platform calls they may make.
struct SessionCase {
    const wchar_t* image = L"C:\\mount";
    const wchar_t* log_file = L"C:\\logs\\dism.log";
    ResultFile result_file{"C:\\out\\result.ini", L"C:\\out\\result.ini"};

    HRESULT initialize = S_OK;
    HRESULT open = S_OK;
    HRESULT operation = S_OK;
    HRESULT commit = S_OK;
    HRESULT close[2] = {S_OK, S_OK};    // may be asked for twice
    HRESULT shutdown[2] = {S_OK, S_OK}; // may be asked for twice

    std::string Describe() const;
};

// The middle of a session: its calls and reports. It returns the HRESULT that fails the session.
struct Operation {
    const char* section; // where its failure is written
    bool commits;
    std::function<HRESULT(Expectation&)> run;
};

Expectation ExpectSession(Form form, const SessionCase& run, const Operation& operation,
                          const Script& script = {});

// Names the arguments and scripts the session's calls, all but the operation's.
void PrepareSession(Platform& platform, const SessionCase& run);

// --- AddDriver, RemoveDriver ---

enum class DriverChange { add, remove };

inline constexpr wchar_t driver_path[] = L"C:\\drivers\\net card\\net.inf";

Expectation ExpectDriverChange(Form form, DriverChange change, const SessionCase& run,
                               const wchar_t* driver, const Script& script = {});
void RunDriverChange(Platform& platform, Form form, DriverChange change, const SessionCase& run,
                     const wchar_t* driver);
testing::AssertionResult ChangeDoesWhatItHasTo(Form form, DriverChange change,
                                               const SessionCase& run,
                                               const wchar_t* driver = driver_path,
                                               const Script& script = {});

// --- AddDriverList ---

struct DriverList {
    std::array<const wchar_t*, 8> paths;
    std::array<HRESULT, 8> results{};
};

Expectation ExpectList(Form form, const SessionCase& run, const DriverList& list,
                       const Script& script = {});
void RunList(Platform& platform, Form form, const SessionCase& run, const DriverList& list);
testing::AssertionResult ListDoesWhatItHasTo(Form form, const SessionCase& run,
                                             const DriverList& list, const Script& script = {});

// --- GetDrivers ---

struct Package {
    std::wstring published_name;
    std::wstring original_name;
};

Expectation ExpectListing(Form form, const SessionCase& run, const std::vector<Package>& packages,
                          const Script& script = {});
void RunListing(Platform& platform, Form form, const SessionCase& run,
                const std::vector<Package>& packages);
testing::AssertionResult ListingDoesWhatItHasTo(Form form, const SessionCase& run,
                                                const std::vector<Package>& packages,
                                                const Script& script = {});

// --- GetDriverInfo ---

Expectation ExpectDetails(Form form, const SessionCase& run, const wchar_t* driver,
                          const Script& script = {});
void RunDetails(Platform& platform, Form form, const SessionCase& run, const wchar_t* driver);
testing::AssertionResult DetailsDoWhatTheyHaveTo(Form form, const SessionCase& run,
                                                 const wchar_t* driver = driver_path,
                                                 const Script& script = {});

} // namespace kestro::test
