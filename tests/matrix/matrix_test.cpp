// matrix_test.cpp - every export under every combination of the platform's answers, compared event by
// event with the model.
#include "matrix/comparison.h"

#include <cstring>

namespace kestro::test {
namespace {

// --- doubles of the functions that only the device exports call ---

HRESULT Answer(const char* function, const std::string& arguments)
{
    Platform& platform = Platform::Active();
    const HRESULT result = platform.NextAnswer(function);
    platform.Record(
        Format("%s(%s) -> %08X", function, arguments.c_str(), static_cast<unsigned>(result)));
    return result;
}

BOOL WINAPI InstallDriver(HWND parent, LPCWSTR path, DWORD flags, PBOOL restart)
{
    const Platform& platform = Platform::Active();
    return Answer("DiInstallDriverW", platform.ShowPointer(parent) + ", " + platform.Show(path) +
                                          Format(", 0x%lX, ", flags) +
                                          platform.ShowPointer(restart));
}

HANDLE WINAPI CreateFileDouble(LPCWSTR path, DWORD access, DWORD share,
                               LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                               HANDLE pattern)
{
    const Platform& platform = Platform::Active();
    const HRESULT number =
        Answer("CreateFileW", platform.Show(path) + Format(", 0x%lX, %lu, ", access, share) +
                                  platform.ShowPointer(security) +
                                  Format(", %lu, 0x%lX, ", disposition, flags) +
                                  platform.ShowPointer(pattern));
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(number));
}

const Doubles doubles{{"DiInstallDriverW", InstallDriver}, {"CreateFileW", CreateFileDouble}};

// --- outcomes ---

const std::vector<HRESULT> pass_or_fail{S_OK, E_ACCESSDENIED};

// --- arguments, known by their addresses ---

const wchar_t image_file[] = L"C:\\images\\install.wim";
const wchar_t mount_path[] = L"C:\\mount";
const wchar_t image_path[] = L"C:\\offline";
const wchar_t log_file[] = L"C:\\logs\\dism.log";
const wchar_t driver_path[] = L"oem3.inf";
const wchar_t any_path[] = L"\\\\.\\PhysicalDrive1";

void NameArguments(Platform& platform)
{
    platform.Name(image_file, "ImageFilePath");
    platform.Name(mount_path, "MountPath");
    platform.Name(image_path, "ImagePath");
    platform.Name(log_file, "LogFilePath");
    platform.Name(any_path, "Path");
}

// Calls an export whose last argument is the ResultFile and records what it returns.
template <typename... Arguments>
void Call(const char* name, Platform& platform, const Situation& situation, Arguments... arguments)
{
    NameArguments(platform);
    platform.Returned(
        KestroLibrary::Get().Call(name, situation.form, FileOf(situation), arguments...));
}

// --- images ---

TEST(Matrix, MountWimImage)
{
    Compare({{"MountWimImage", PredictMount,
              [](Platform& platform, const Situation& situation) {
                  Call("MountWimImage", platform, situation, image_file, mount_path, log_file);
              }}},
            {all_outcomes});
}

TEST(Matrix, UnmountWimImage)
{
    std::vector<Subject> subjects;
    for (const DWORD flags : {0ul, 1ul, 9999999ul, 10000000ul, 0x80000000ul, 0xFFFFFFFFul})
        subjects.push_back(
            {"UnmountWimImage", [=](const Situation& s) { return PredictUnmount(s, flags); },
             [=](Platform& platform, const Situation& situation) {
                 Call("UnmountWimImage", platform, situation, mount_path, flags, log_file);
             }});
    Compare(subjects, {all_outcomes});
}

// --- drivers ---

void CompareDriverChange(const char* name, ExpectedEvents (*predict)(const Situation&))
{
    Compare({{name, predict,
              [=](Platform& platform, const Situation& situation) {
                  platform.Name(driver_path, "DriverPath");
                  Call(name, platform, situation, image_path, driver_path, log_file);
              }}},
            {all_outcomes});
}

TEST(Matrix, AddDriver)
{
    CompareDriverChange("AddDriver", PredictAddDriver);
}

TEST(Matrix, RemoveDriver)
{
    CompareDriverChange("RemoveDriver", PredictRemoveDriver);
}

Subject GetDriverInfo()
{
    return {"GetDriverInfo", PredictGetDriverInfo,
            [](Platform& platform, const Situation& situation) {
                platform.Name(driver_path, "Driver");
                Call("GetDriverInfo", platform, situation, image_path, driver_path, log_file);
            }};
}

TEST(Matrix, GetDriverInfo)
{
    Compare({GetDriverInfo()}, {all_outcomes});
}

// Records as the platform lays them out.
std::vector<char> RecordsOf(const std::vector<PackageNames>& packages)
{
    constexpr size_t size = 100;
    std::vector<char> records(size * packages.size(), '\xEE');
    for (size_t i = 0; i < packages.size(); ++i) {
        const wchar_t* names[] = {packages[i].published.c_str(), packages[i].original.c_str()};
        std::memcpy(records.data() + size * i, names, sizeof names);
    }
    return records;
}

Subject GetDrivers(const std::vector<PackageNames>& packages)
{
    return {Format("GetDrivers, %u packages", static_cast<unsigned>(packages.size())),
            [=](const Situation& s) { return PredictGetDrivers(s, packages); },
            [=](Platform& platform, const Situation& situation) {
                const std::vector<char> records = RecordsOf(packages);
                platform.packages = records.data();
                platform.package_count = static_cast<UINT>(packages.size());
                Call("GetDrivers", platform, situation, image_path, log_file);
            }};
}

TEST(Matrix, GetDriversWithNothingToList)
{
    Compare({GetDrivers({})}, {all_outcomes});
}

// Every combination of few answers, then every answer in a few places.
void CompareListing(const std::vector<PackageNames>& packages, const Variation& few,
                    int most_deviations)
{
    Compare({GetDrivers(packages)}, few);
    Compare({GetDrivers(packages)}, {all_outcomes, most_deviations});
}

TEST(Matrix, GetDriversWithPackages)
{
    std::vector<PackageNames> packages{{L"oem0.inf", L"net.inf"}};
    CompareListing(packages, {few_outcomes}, 4);
    packages.push_back({L"oem\u00e91.inf", L"\u4e2d\u6587 %s.inf"});
    packages.push_back({L"", L""});
    CompareListing(packages, {few_outcomes}, 4);
    while (packages.size() < 12)
        packages.push_back({L"oem" + std::to_wstring(packages.size()) + L".inf",
                            std::wstring(300, L'x') + L".inf"});
    CompareListing(packages, {pass_or_fail}, 3);
}

// --- the driver list ---

Subject AddDriverList(const char* name, const DriverPaths& paths)
{
    return {name, [=](const Situation& s) { return PredictAddDriverList(s, paths); },
            [=](Platform& platform, const Situation& situation) {
                for (size_t i = 0; i < paths.size(); ++i)
                    platform.Name(paths[i], NameOfEntry(paths, i));
                Call("AddDriverList", platform, situation, image_path, paths.data(), log_file);
            }};
}

const DriverPaths plain_paths{L"C:\\d\\a.inf", L"C:\\d\\b.inf", L"C:\\d\\c.inf", L"C:\\d\\d.inf",
                              L"C:\\d\\e.inf", L"C:\\d\\f.inf", L"C:\\d\\g.inf", L"C:\\d\\h.inf"};
// Keys around the length that decides how they arrive, one of them twice, and others than ASCII.
const wchar_t* const twice = L"twice.inf";
const DriverPaths odd_paths{L"seven.i", L"eight.in", L"",   L"\u00e9\u00e9\u00e9\u00e9.in",
                            twice,      L"a",        twice, L"C:\\\u4e2d\u6587.inf"};
const DriverPaths with_nulls{L"C:\\d\\a.inf", nullptr, L"c.inf", L"C:\\d\\d.inf",
                             nullptr,         nullptr, L"g",     nullptr};

// Only the packages' results vary, or only those of the session; the other calls all succeed.
Subject Varying(Subject subject, bool packages)
{
    const auto predict = subject.predict;
    subject.predict = [=](const Situation& situation) {
        Situation partial = situation;
        partial.answer = [&](const std::string& function) {
            return (function == "DismAddDriver") == packages ? situation.answer(function) : S_OK;
        };
        return predict(partial);
    };
    return subject;
}

// Every pattern of passing and failing calls, then every answer to a few of them.
std::vector<Variation> PatternsThenAnswers()
{
    return {{pass_or_fail}, {all_outcomes, 3}};
}

TEST(Matrix, AddDriverListPackages)
{
    for (const Variation& variation : PatternsThenAnswers()) {
        Compare({Varying(AddDriverList("AddDriverList", plain_paths), true),
                 Varying(AddDriverList("AddDriverList", odd_paths), true)},
                variation);
        Compare({Varying(AddDriverList("AddDriverList with NULLs", with_nulls), true)}, variation,
                {Form::narrow});
    }
}

TEST(Matrix, AddDriverListSession)
{
    const Subject session =
        Varying(AddDriverList("AddDriverList, its session", plain_paths), false);
    Compare({session}, {few_outcomes});
    Compare({session}, {all_outcomes, 3});
}

TEST(Matrix, AddDriverListPackagesAndSession)
{
    for (const Variation& variation : PatternsThenAnswers())
        Compare({AddDriverList("AddDriverList, all its calls", plain_paths)}, variation);
}

// --- no report, or nothing but a report ---

TEST(Matrix, WriteTest)
{
    const auto run = [](Platform&, const Situation& situation) {
        const ResultFile file = FileOf(situation);
        const KestroLibrary& library = KestroLibrary::Get();
        if (situation.form == Form::narrow)
            library.Find<void(__stdcall*)(const char*)>("WriteTest")(file.narrow);
        else
            library.Find<void(__stdcall*)(const wchar_t*)>("WriteTestW")(file.wide);
    };
    // Nothing to answer: only the clock and the last error differ.
    const std::vector<Subject> subjects(100, {"WriteTest", PredictWriteTest, run});
    Compare(subjects, {{S_OK}});
}

void CompareOpener(const char* name, ExpectedEvents (*predict)(const Situation&))
{
    const auto run = [=](Platform& platform, const Situation&) {
        NameArguments(platform);
        const HANDLE handle =
            KestroLibrary::Get().Find<HANDLE(__stdcall*)(const wchar_t*)>(name)(any_path);
        platform.Record(
            Format("returns handle %d", static_cast<int>(reinterpret_cast<intptr_t>(handle))));
    };
    Compare({{name, predict, run}}, {{-1, 0, 1, 4, 0x7FFFFFFC, -2}}, {Form::wide});
}

TEST(Matrix, Openers)
{
    CompareOpener("OpenVdFile", PredictOpenVdFile);
    CompareOpener("OpenPhDrive", PredictOpenPhDrive);
}

TEST(Matrix, InfInstall)
{
    const auto run = [](Platform& platform, const Situation&) {
        NameArguments(platform);
        platform.Returned(static_cast<unsigned>(
            KestroLibrary::Get().Find<int(__stdcall*)(const wchar_t*)>("InfInstall")(any_path)));
    };
    Compare({{"InfInstall", PredictInfInstall, run}},
            {{0, 1, 2, 256, 0x10000, -1, static_cast<HRESULT>(0x80000000)}}, {Form::wide});
}

} // namespace
} // namespace kestro::test
