// questions.cpp - one call for each question, and one question or more for each function. None changes anything
// but the questions' own folder: the one image that is mounted is a copy, and is unmounted without saving;
// everything else names what is not there.
#include "questions.h"

#include "kestro.hpp"

#include <cstdio>
#include <stdexcept>

#include <objbase.h>

namespace kestro::check {
namespace {

constexpr wchar_t kNoDisk[] = L"\\\\?\\KestroDiskThatIsNotThere";
constexpr wchar_t kNoDrive[] = L"\\\\.\\PhysicalDrive9999";
constexpr std::uint32_t kDropChanges = 1;

// A question while it is asked: the library, and its paths for the length of the call.
struct Asked {
    Asked(const std::string& question, const Place& place)
        : library(place.library.wstring()), image(place.image.wstring()),
          mount((place.folder / L"mount").wstring()),
          present((place.folder / L"present.txt").wstring()),
          missingImage((place.folder / L"missing.wim").wstring()),
          missingInf((place.folder / L"missing.inf").wstring()),
          log((place.folder / L"servicing.log").wstring()),
          wideResult(place.ResultFile(question).wstring()),
          narrowResult(place.ResultFile(question).string())
    {
    }

    // An image function, by its form's name; its log and ResultFile are its last arguments.
    template <class... Arguments>
    std::string Image(const std::string& function, Arguments... arguments) const
    {
        if (function.back() == 'W')
            return std::to_string(
                library.Get<std::uint8_t KESTRO_CALL(Arguments..., const wchar_t*, const wchar_t*)>(
                    function.c_str())(arguments..., log.c_str(), wideResult.c_str()));
        return std::to_string(
            library.Get<std::uint8_t KESTRO_CALL(Arguments..., const wchar_t*, const char*)>(
                function.c_str())(arguments..., log.c_str(), narrowResult.c_str()));
    }

    // A disk function; it wants COM on the calling thread.
    template <class... Arguments>
    std::string Disk(const char* function, Arguments... arguments) const
    {
        const auto call = library.Get<std::int32_t KESTRO_CALL(Arguments...)>(function);
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
            throw std::runtime_error("no COM");
        const std::int32_t value = call(arguments...);
        char text[16];
        std::snprintf(text, sizeof text, value < 0 ? "0x%08lX" : "%ld", static_cast<long>(value));
        return text;
    }

    std::string Open(const char* function, const wchar_t* path) const
    {
        const Handle handle(library.Get<void * KESTRO_CALL(const wchar_t*)>(function)(path));
        return handle ? "a handle" : "null, error " + std::to_string(GetLastError());
    }

    Library library;
    std::wstring image, mount, present, missingImage, missingInf, log, wideResult;
    std::string narrowResult;
};

std::string WriteTests(const Asked& to, bool wide)
{
    if (wide)
        to.library.Get<decltype(::WriteTestW)>("WriteTestW")(to.wideResult.c_str());
    else
        to.library.Get<decltype(::WriteTest)>("WriteTest")(to.narrowResult.c_str());
    return "nothing";
}

std::string AddList(const Asked& to, const char* function)
{
    const wchar_t* const inf = to.missingInf.c_str();
    const wchar_t* const eight[] = {inf, inf, inf, inf, inf, inf, inf, inf};
    return to.Image<const wchar_t*, const wchar_t* const*>(function, to.mount.c_str(), eight);
}

std::string Install(const Asked& to)
{
    const auto call = to.library.Get<decltype(::InfInstall)>("InfInstall");
    const std::int32_t value = call(to.missingInf.c_str());
    return std::to_string(value) + (value == 0 ? ", error " + std::to_string(GetLastError()) : "");
}

struct Question {
    const char* name;
    std::string (*ask)(const Asked& to);
};

// Each mount comes before what is asked about a mounted image, and each unmount after it.
const Question kQuestions[] = {
    {"WriteTest", [](const Asked& to) { return WriteTests(to, false); }},
    {"WriteTestW", [](const Asked& to) { return WriteTests(to, true); }},
    {"MountWimImage-missing",
     [](const Asked& to) {
         return to.Image("MountWimImage", to.missingImage.c_str(), to.mount.c_str());
     }},
    {"MountWimImageW-missing",
     [](const Asked& to) {
         return to.Image("MountWimImageW", to.missingImage.c_str(), to.mount.c_str());
     }},
    {"UnmountWimImage-not-mounted",
     [](const Asked& to) { return to.Image("UnmountWimImage", to.mount.c_str(), kDropChanges); }},
    {"MountWimImage",
     [](const Asked& to) { return to.Image("MountWimImage", to.image.c_str(), to.mount.c_str()); }},
    {"GetDrivers", [](const Asked& to) { return to.Image("GetDrivers", to.mount.c_str()); }},
    {"GetDriversW", [](const Asked& to) { return to.Image("GetDriversW", to.mount.c_str()); }},
    {"GetDriverInfo",
     [](const Asked& to) { return to.Image("GetDriverInfo", to.mount.c_str(), L"oem9.inf"); }},
    {"GetDriverInfoW",
     [](const Asked& to) { return to.Image("GetDriverInfoW", to.mount.c_str(), L"oem9.inf"); }},
    {"AddDriver",
     [](const Asked& to) {
         return to.Image("AddDriver", to.mount.c_str(), to.missingInf.c_str());
     }},
    {"AddDriverW",
     [](const Asked& to) {
         return to.Image("AddDriverW", to.mount.c_str(), to.missingInf.c_str());
     }},
    {"AddDriverList", [](const Asked& to) { return AddList(to, "AddDriverList"); }},
    {"AddDriverListW", [](const Asked& to) { return AddList(to, "AddDriverListW"); }},
    {"RemoveDriver",
     [](const Asked& to) { return to.Image("RemoveDriver", to.mount.c_str(), L"oem9.inf"); }},
    {"RemoveDriverW",
     [](const Asked& to) { return to.Image("RemoveDriverW", to.mount.c_str(), L"oem9.inf"); }},
    {"UnmountWimImage",
     [](const Asked& to) { return to.Image("UnmountWimImage", to.mount.c_str(), kDropChanges); }},
    {"MountWimImageW",
     [](const Asked& to) {
         return to.Image("MountWimImageW", to.image.c_str(), to.mount.c_str());
     }},
    {"UnmountWimImageW",
     [](const Asked& to) { return to.Image("UnmountWimImageW", to.mount.c_str(), kDropChanges); }},
    {"CleanDisk",
     [](const Asked& to) {
         const std::uint8_t no = 0;
         return to.Disk<const wchar_t*, std::uint8_t, std::uint8_t, std::uint8_t, const char*>(
             "CleanDisk", kNoDisk, no, no, no, to.narrowResult.c_str());
     }},
    {"OnlineDisk", [](const Asked& to) { return to.Disk<const wchar_t*>("OnlineDisk", kNoDisk); }},
    {"OfflineDisk",
     [](const Asked& to) { return to.Disk<const wchar_t*>("OfflineDisk", kNoDisk); }},
    {"InfInstall-missing", Install},
    {"OpenVdFile", [](const Asked& to) { return to.Open("OpenVdFile", to.present.c_str()); }},
    {"OpenVdFile-missing",
     [](const Asked& to) { return to.Open("OpenVdFile", to.missingImage.c_str()); }},
    {"OpenPhDrive-missing", [](const Asked& to) { return to.Open("OpenPhDrive", kNoDrive); }},
};

} // namespace

std::vector<std::string> QuestionNames()
{
    std::vector<std::string> names;
    for (const Question& question : kQuestions)
        names.emplace_back(question.name);
    return names;
}

std::string Ask(const std::string& name, const Place& place)
{
    for (const Question& question : kQuestions)
        if (question.name == name)
            return question.ask(Asked(name, place));
    throw std::runtime_error("no such question: " + name);
}

} // namespace kestro::check
