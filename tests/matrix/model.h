// model.h - what each export has to do, worked out from the platform's answers alone.
//
// The model shares nothing with the library nor with the expectations of the contract tests: it is a
// second reading of the same promises, as tables of steps and clean-ups.
#pragma once

#include "support/kestro_library.h"
#include "support/platform.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace kestro::test {

// The platform's next answer to a call of the function.
using Answers = std::function<HRESULT(const std::string& function)>;

// One call of an export.
struct Situation {
    Form form = Form::narrow;
    Answers answer;
    Script script;
    bool has_result_file = true; // without one the path is NULL
    unsigned session = 7;        // what the platform hands out
};

using DriverPaths = std::array<const wchar_t*, 8>;

struct PackageNames {
    std::wstring published, original;
};

ExpectedEvents PredictMount(const Situation& situation);
ExpectedEvents PredictUnmount(const Situation& situation, DWORD flags);
ExpectedEvents PredictAddDriver(const Situation& situation);
ExpectedEvents PredictRemoveDriver(const Situation& situation);
ExpectedEvents PredictAddDriverList(const Situation& situation, const DriverPaths& paths);
ExpectedEvents PredictGetDrivers(const Situation& situation,
                                 const std::vector<PackageNames>& packages);
ExpectedEvents PredictGetDriverInfo(const Situation& situation);
ExpectedEvents PredictWriteTest(const Situation& situation);

// The answer is DiInstallDriverW's truth value.
ExpectedEvents PredictInfInstall(const Situation& situation);
// The answer is the number of the handle that CreateFileW gives.
ExpectedEvents PredictOpenVdFile(const Situation& situation);
ExpectedEvents PredictOpenPhDrive(const Situation& situation);

// How tests name the entries of a driver list.
std::string NameOfEntry(const DriverPaths& paths, size_t index);

} // namespace kestro::test
