// model.cpp - the exports as tables of steps and clean-ups.
#include "matrix/model.h"

#include "matrix/reporter.h"

namespace kestro::test {

namespace {

using Action = std::function<void(Reporter&)>;

// A platform call on the way forward and what follows its success.
struct Step {
    std::string function; // none: only the action
    std::string arguments;
    Action done = nullptr;
    std::string section = {}; // where a failure is reported
    enum { reported, printed, ignored } failure = reported;
};

// A platform call of the failure exit.
struct CleanUp {
    std::string function;
    std::string arguments;
    std::string section;
    size_t from_step = 0;       // only when the step that failed is not before this one
    bool logs_own_code = false; // otherwise the code of the step that failed
    bool writes_result = true;
};

struct Operation {
    std::vector<Step> steps;
    std::vector<CleanUp> exit;
    bool returns_code = false; // the last step's code, not the sense of the form
};

Action WritesOk(const char* section)
{
    return [=](Reporter& report) { report.Write(section, "Result", "OK"); };
}

void RunExit(Reporter& report, const Operation& operation, size_t failed, HRESULT failure)
{
    for (const CleanUp& call : operation.exit) {
        if (failed < call.from_step)
            continue;
        const HRESULT result = report.Call(call.function, call.arguments);
        if (result >= 0)
            continue;
        report.LogFailure(call.function, call.logs_own_code ? result : failure);
        report.WriteLastError(call.section, "ErrorCode");
        if (call.writes_result)
            report.Write(call.section, "Result", "ERR");
    }
    report.PrintCode(L"Return code is: %x\n", failure);
    report.Returns(report.Wide() ? 0 : 1);
}

void Run(Reporter& report, const Operation& operation)
{
    HRESULT result = S_OK;
    for (size_t i = 0; i < operation.steps.size(); ++i) {
        const Step& step = operation.steps[i];
        if (!step.function.empty())
            result = report.Call(step.function, step.arguments);
        if (result < 0 && step.failure != Step::ignored) {
            if (step.failure == Step::printed) {
                report.PrintCode((ToWide(step.function) + L" Failed: %x\n").c_str(), result);
            } else {
                report.LogFailure(step.function, result);
                report.WriteLastError(step.section, "ErrorCode");
                report.Write(step.section, "Result", "ERR");
            }
            return RunExit(report, operation, i, result);
        }
        if (step.done)
            step.done(report);
    }
    if (operation.returns_code)
        report.Returns(static_cast<unsigned char>(result));
    else
        report.Returns(report.Wide() || result != S_OK ? 1 : 0);
}

ExpectedEvents Predict(const Situation& situation, const Operation& operation)
{
    Reporter report(situation);
    Run(report, operation);
    return report.Take();
}

Step Initialize(Action then)
{
    return {"DismInitialize", "2, LogFilePath, NULL",
            [=](Reporter& report) {
                report.Write("DISM_INITIALIZE", "Result", "OK");
                if (then)
                    then(report);
            },
            "DISM_INITIALIZE"};
}

Step Open()
{
    return {"DismOpenSession", "ImagePath, NULL, NULL, slot of 0",
            [](Reporter& report) { report.OpenSession(); }, "DISM_OPENSESSION"};
}

const std::vector<CleanUp> session_exit{{"DismCloseSession", "$", "DISM_CLOSESESSION"},
                                        {"DismShutdown", "", "DISM_SHUTDOWN"}};

// The bracket around an operation on an image.
Operation Session(Step middle, bool commits)
{
    std::vector<Step> steps{Initialize(nullptr), Open(), std::move(middle)};
    if (commits)
        steps.push_back(
            {"DismCommitImage", "$, 0x0, NULL, NULL, NULL", nullptr, "DISM_COMMITIMAGE"});
    steps.push_back({"DismCloseSession", "$", nullptr, "", Step::ignored});
    steps.push_back({"DismShutdown", "", WritesOk("DISM_SHUTDOWN"), "DISM_SHUTDOWN"});
    return {std::move(steps), session_exit};
}

// One pass over the driver list.
void AddEntry(Reporter& report, const DriverPaths& paths, size_t index)
{
    const wchar_t* path = paths[index];
    const std::string shown = NameOfEntry(paths, index);
    ModelKey key;
    if (path) {
        report.ConvertName(shown);
        key = ToAnsi(path);
    }
    const HRESULT result = report.Call("DismAddDriver", "$, " + shown + ", 0");
    if (result < 0) {
        report.LogFailure("DismAddDriver", result);
        report.Write("DISM_ADDDRIVER", key, "ERR");
        report.WriteLastError("DISM_ADDDRIVER_ERRORS", key);
    }
    report.Write("DISM_ADDDRIVER", key, "OK");
    if (path)
        report.Event("SysFreeString(copy of " + shown + ")");
}

void ListPackage(Reporter& report, size_t index, const PackageNames& names)
{
    const std::wstring number = std::to_wstring(index);
    report.Print(L"Driver Package " + number + L": " + names.published + L"\n");
    report.Print(L"Original file name: " + names.original + L"\n\n");
    const std::string published = Quote(names.published.c_str());
    const std::string original = Quote(names.original.c_str());
    report.ConvertName(published);
    report.ConvertName(original);
    report.Log("Driver Package " + ToAnsi(number) + " - PublishedName: " + ToAnsi(names.published) +
               " - Original file name: " + ToAnsi(names.original));
    const ExpectedEvent release("SysFreeString(of either copy)", [=](const std::string& event) {
        return event == "SysFreeString(copy of " + published + ")" ||
               event == "SysFreeString(copy of " + original + ")";
    });
    report.Event(release);
    report.Event(release);
}

void ListPackages(Reporter& report, const std::vector<PackageNames>& packages)
{
    if (packages.empty())
        report.Log("No third party drivers found inside the image.");
    report.Print(L"\n\nThese are the third party drivers from the image:\n\n");
    report.Log("These are the third party drivers from the image.");
    for (size_t i = 0; i < packages.size(); ++i)
        ListPackage(report, i, packages[i]);
    report.Write("DISM_GETDRIVERS", "Result", "OK");
}

ExpectedEvents PredictOpener(const Situation& situation, const char* arguments)
{
    Reporter report(situation);
    const HRESULT handle = report.Call("CreateFileW", arguments);
    report.Event(Format("returns handle %d", handle == -1 ? 0 : static_cast<int>(handle)));
    return report.Take();
}

} // namespace

ExpectedEvents PredictMount(const Situation& situation)
{
    const auto mounting = [](Reporter& report) { report.Log("Mounting image..."); };
    const auto mounted = [](Reporter& report) {
        report.Log("Image mounted successfully.");
        report.Write("DISM_MOUNT", "Result", "OK");
    };
    return Predict(
        situation,
        {{Initialize(mounting),
          {"DismMountImage", "ImageFilePath, MountPath, 1, NULL, 0, 0x0, NULL, NULL, NULL", mounted,
           "DISM_MOUNT"},
          {"DismShutdown", "", nullptr, "DISM_SHUTDOWN"}},
         {{"DismUnmountImage", "MountPath, 0x1, NULL, NULL, NULL", "DISM_UNMOUNT", 2},
          {"DismShutdown", "", "DISM_SHUTDOWN"}}});
}

ExpectedEvents PredictUnmount(const Situation& situation, DWORD flags)
{
    const auto unmounting = [=](Reporter& report) {
        report.Log("Unmounting image...");
        report.Write("DISM_UNMOUNT", "Flags", Format("%d", static_cast<int>(flags)));
    };
    const auto unmounted = [](Reporter& report) {
        report.Log("Image unmounted successfully.");
        report.Write("DISM_UNMOUNT", "Result", "OK");
    };
    return Predict(situation,
                   {{Initialize(unmounting),
                     {"DismUnmountImage", Format("MountPath, 0x%lX, NULL, NULL, NULL", flags),
                      unmounted, "DISM_UNMOUNT"},
                     {"DismShutdown", "", WritesOk("DISM_SHUTDOWN"), "DISM_SHUTDOWN"}},
                    {{"DismShutdown", "", "VHDX_RESTORE", 0, true, false}}});
}

ExpectedEvents PredictAddDriver(const Situation& situation)
{
    return Predict(situation, Session({"DismAddDriver", "$, DriverPath, 0",
                                       WritesOk("DISM_ADDDRIVER"), "DISM_ADDDRIVER"},
                                      true));
}

ExpectedEvents PredictRemoveDriver(const Situation& situation)
{
    return Predict(situation, Session({"DismRemoveDriver", "$, DriverPath",
                                       WritesOk("DISM_REMOVEDRIVER"), "DISM_REMOVEDRIVER"},
                                      true));
}

ExpectedEvents PredictAddDriverList(const Situation& situation, const DriverPaths& paths)
{
    const auto add_all = [&](Reporter& report) {
        for (size_t i = 0; i < paths.size(); ++i)
            AddEntry(report, paths, i);
    };
    return Predict(situation, Session({"", "", add_all}, true));
}

ExpectedEvents PredictGetDrivers(const Situation& situation,
                                 const std::vector<PackageNames>& packages)
{
    const auto list = [&](Reporter& report) { ListPackages(report, packages); };
    return Predict(situation, Session({"DismGetDrivers", "$, 0, slot of NULL, slot of 0", list,
                                       "DISM_GETDRIVERS"},
                                      false));
}

ExpectedEvents PredictGetDriverInfo(const Situation& situation)
{
    return Predict(situation,
                   {{Initialize(nullptr),
                     Open(),
                     {"DismGetDriverInfo", "$, Driver, slot of NULL, slot of 0, slot of NULL",
                      nullptr, "", Step::printed}},
                    session_exit,
                    true});
}

ExpectedEvents PredictWriteTest(const Situation& situation)
{
    Reporter report(situation);
    report.WriteLiteral("KESTRO_TEST", "TEST", "TEST");
    report.WriteLiteral("STATUS", "Status", "C");
    report.Log("This is a test created by Kestro.dll", false);
    return report.Take();
}

ExpectedEvents PredictInfInstall(const Situation& situation)
{
    Reporter report(situation);
    report.Returns(report.Call("DiInstallDriverW", "NULL, Path, 0x0, NULL") != 0 ? 1 : 0);
    return report.Take();
}

ExpectedEvents PredictOpenVdFile(const Situation& situation)
{
    return PredictOpener(situation, "Path, 0x80000000, 1, NULL, 3, 0x80, NULL");
}

ExpectedEvents PredictOpenPhDrive(const Situation& situation)
{
    return PredictOpener(situation, "Path, 0x40000000, 0, NULL, 3, 0xA0000000, NULL");
}

std::string NameOfEntry(const DriverPaths& paths, size_t index)
{
    if (!paths[index])
        return "NULL";
    // The same pointer twice goes by its last place.
    size_t named = index;
    for (size_t i = 0; i < paths.size(); ++i)
        if (paths[i] == paths[index])
            named = i;
    return "DriverPaths[" + std::to_string(named) + "]";
}

} // namespace kestro::test
