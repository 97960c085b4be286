// soak_calls.cpp - one way of calling each export.
#include "soak/soak_calls.h"

namespace kestro::test {

namespace {

const KestroLibrary& Library()
{
    return KestroLibrary::Get();
}

constexpr wchar_t image[] = L"C:\\images\\install.wim";
constexpr wchar_t mount[] = L"C:\\mount";
constexpr wchar_t log_file[] = L"C:\\dism.log";

template <Form form>
unsigned Mount(const SoakArguments& a)
{
    return Library().Call("MountWimImage", form, a.result, +image, +mount, +log_file);
}

template <Form form>
unsigned Unmount(const SoakArguments& a)
{
    return Library().Call("UnmountWimImage", form, a.result, +mount, uint32_t{1}, +log_file);
}

template <Form form>
unsigned Add(const SoakArguments& a)
{
    return Library().Call("AddDriver", form, a.result, +mount, L"C:\\a.inf", +log_file);
}

template <Form form>
unsigned Remove(const SoakArguments& a)
{
    return Library().Call("RemoveDriver", form, a.result, +mount, L"oem0.inf", +log_file);
}

template <Form form>
unsigned AddList(const SoakArguments& a)
{
    std::wstring paths[8];
    const wchar_t* list[8];
    for (int i = 0; i < 8; ++i) {
        paths[i] = L"C:\\maker" + std::to_wstring(a.tag) + L"\\" + std::to_wstring(i) + L".inf";
        list[i] = paths[i].c_str();
    }
    const wchar_t* const* const given = list;
    return Library().Call("AddDriverList", form, a.result, +mount, given, +log_file);
}

template <Form form>
unsigned List(const SoakArguments& a)
{
    return Library().Call("GetDrivers", form, a.result, +mount, +log_file);
}

template <Form form>
unsigned Query(const SoakArguments& a)
{
    return Library().Call("GetDriverInfo", form, a.result, +mount, L"oem0.inf", +log_file);
}

unsigned Clean(const wchar_t* disk, const SoakArguments& a)
{
    using Function = int32_t(__stdcall*)(const wchar_t*, uint8_t, uint8_t, uint8_t, const char*);
    return static_cast<unsigned>(
        Library().Find<Function>("CleanDisk")(disk, 1, 0, 0, a.result.narrow));
}

using PathFunction = int32_t(__stdcall*)(const wchar_t*);

unsigned CallWithPath(const char* name, const wchar_t* path)
{
    return static_cast<unsigned>(Library().Find<PathFunction>(name)(path));
}

// 1 for a handle.
unsigned Open(const char* name, const SoakArguments& a)
{
    const HANDLE handle = Library().Find<HANDLE(__stdcall*)(const wchar_t*)>(name)(a.file);
    return handle ? CloseHandle(handle) != 0 : 0;
}

unsigned WriteNarrow(const SoakArguments& a)
{
    Library().Find<void(__stdcall*)(const char*)>("WriteTest")(a.result.narrow);
    return 0;
}

unsigned WriteWide(const SoakArguments& a)
{
    Library().Find<void(__stdcall*)(const wchar_t*)>("WriteTestW")(a.result.wide);
    return 0;
}

// What the common exit does not give back to the disk service. A disk's properties hold five strings,
// a provider's two and a pack's one.
Leftovers Disks(long references, long strings)
{
    Leftovers left;
    left.objects = references;
    left.strings = strings;
    left.uninitialised = 1;
    return left;
}

Leftovers Records(long arrays, long sessions)
{
    Leftovers left;
    left.records = arrays;
    left.sessions = left.initialisations = sessions;
    return left;
}

} // namespace

const std::vector<SoakCall>& SoakCalls()
{
    constexpr Form narrow = Form::narrow, wide = Form::wide;
    static const std::vector<SoakCall> calls{
        {"MountWimImage", Mount<narrow>, 0, {}, true},
        {"MountWimImageW", Mount<wide>, 1, {}, true},
        {"UnmountWimImage", Unmount<narrow>, 0, {}, true},
        {"UnmountWimImageW", Unmount<wide>, 1, {}, true},
        {"AddDriver", Add<narrow>, 0, {}, true},
        {"AddDriverW", Add<wide>, 1, {}, true},
        {"RemoveDriver", Remove<narrow>, 0, {}, true},
        {"RemoveDriverW", Remove<wide>, 1, {}, true},
        {"AddDriverList", AddList<narrow>, 0, {}, true},
        {"AddDriverListW", AddList<wide>, 1, {}, true},
        // The listing, and the two arrays of a query with its session.
        {"GetDrivers", List<narrow>, 0, Records(1, 0), true},
        {"GetDriversW", List<wide>, 1, Records(1, 0), true},
        {"GetDriverInfo", Query<narrow>, 0, Records(2, 1), true},
        {"GetDriverInfoW", Query<wide>, 0, Records(2, 1), true},
        // The advanced disk and its clean; before a disk in a pack also the other disk and the pack.
        {"CleanDisk", [](const SoakArguments& a) { return Clean(unallocated_disk, a); }, 1,
         Disks(2, 5), true},
        {"CleanDisk (pack)", [](const SoakArguments& a) { return Clean(pack_disk, a); }, 1,
         Disks(4, 13), true},
        // What brings a disk online; before one in a pack also both disks and the pack.
        {"OnlineDisk",
         [](const SoakArguments&) { return CallWithPath("OnlineDisk", unallocated_disk); }, 0,
         Disks(1, 5), false},
        {"OnlineDisk (pack)",
         [](const SoakArguments&) { return CallWithPath("OnlineDisk", pack_disk); }, 0,
         Disks(4, 13), false},
        {"OfflineDisk",
         [](const SoakArguments&) { return CallWithPath("OfflineDisk", unallocated_disk); }, 0,
         Disks(1, 5), false},
        {"OfflineDisk (pack)",
         [](const SoakArguments&) { return CallWithPath("OfflineDisk", pack_disk); }, 0,
         Disks(4, 13), false},
        {"InfInstall",
         [](const SoakArguments&) { return CallWithPath("InfInstall", L"C:\\a.inf"); },
         1,
         {},
         false},
        {"OpenVdFile", [](const SoakArguments& a) { return Open("OpenVdFile", a); }, 1, {}, false},
        {"OpenPhDrive",
         [](const SoakArguments& a) { return Open("OpenPhDrive", a); },
         1,
         {},
         false},
        {"WriteTest", WriteNarrow, 0, {}, true},
        {"WriteTestW", WriteWide, 0, {}, true},
    };
    return calls;
}

} // namespace kestro::test
