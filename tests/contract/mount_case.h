// mount_case.h - calls of MountWimImage and UnmountWimImage and what they have to do.
#pragma once

#include "contract/outcome.h"
#include "support/expectation.h"

namespace kestro::test {

// One call: its arguments and the results of the platform calls it may make.
struct MountCase {
    const wchar_t* image = L"C:\\images\\install one.wim";
    const wchar_t* directory = L"C:\\mount";
    const wchar_t* log_file = L"C:\\logs\\dism.log";
    DWORD flags = 0; // of an unmount
    ResultFile result_file{"C:\\out\\result.ini", L"C:\\out\\result.ini"};

    HRESULT initialize = S_OK;
    HRESULT operation = S_OK;
    HRESULT clean_up = S_OK;            // the unmount of a mount that is taken back
    HRESULT shutdown[2] = {S_OK, S_OK}; // may be asked for twice

    std::string Describe() const;
};

Expectation ExpectMount(Form form, const MountCase& run, const Script& script = {});
void RunMount(Platform& platform, Form form, const MountCase& run);
testing::AssertionResult MountDoesWhatItHasTo(Form form, const MountCase& run,
                                              const Script& script = {});

Expectation ExpectUnmount(Form form, const MountCase& run, const Script& script = {});
void RunUnmount(Platform& platform, Form form, const MountCase& run);
testing::AssertionResult UnmountDoesWhatItHasTo(Form form, const MountCase& run,
                                                const Script& script = {});

} // namespace kestro::test
