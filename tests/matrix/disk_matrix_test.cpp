// disk_matrix_test.cpp - the disk exports on small disk services, under the answers of their objects.
// A call makes too many calls for every combination: each has a limited number of answers other than
// S_OK, anywhere among its calls.
#include "matrix/comparison.h"
#include "matrix/disk_model.h"

namespace kestro::test {
namespace {

const wchar_t wanted_disk[] = L"\\\\?\\PhysicalDrive1";
const std::wstring wanted = wanted_disk;
const std::wstring other = L"\\\\?\\PhysicalDrive2";

Subject OnDisk(const std::string& name, const DiskWorld& world, const DiskRequest& request)
{
    return {name, [=](const Situation& s) { return PredictDisk(s, world, request); },
            [=](Platform& platform, const Situation& situation) {
                const DiskService service(world);
                const KestroLibrary& library = KestroLibrary::Get();
                platform.Name(request.disk, "diskName");
                if (request.action != DiskAction::clean) {
                    using Function = int32_t(__stdcall*)(const wchar_t*);
                    platform.Returned(static_cast<unsigned>(library.Find<Function>(
                        request.action == DiskAction::online ? "OnlineDisk"
                                                             : "OfflineDisk")(request.disk)));
                    return;
                }
                using Byte = unsigned char;
                using Function = int32_t(__stdcall*)(const wchar_t*, Byte, Byte, Byte, const char*);
                const auto& flags = request.flags;
                platform.Returned(static_cast<unsigned>(library.Find<Function>("CleanDisk")(
                    request.disk, flags[0], flags[1], flags[2], FileOf(situation).narrow)));
            }};
}

// What there may be to search, the wanted disk somewhere or nowhere.
std::vector<DiskWorld> Worlds()
{
    return {
        {},
        {{other}, {}},
        {{wanted}, {}},
        {{other, wanted, wanted}, {{{wanted}}}},
        {{}, {{}}},
        {{}, {{{}}}},
        {{}, {{{other}}}},
        {{other}, {{{wanted}}}},
        {{}, {{{other, wanted}, {wanted}}}},
        {{}, {{{other}, {wanted}}, {{wanted}}}},
        {{}, {{{}, {other}}, {}, {{other}, {wanted}}}},
    };
}

struct ActionName {
    DiskAction action;
    const char* name;
};

constexpr ActionName actions[] = {{DiskAction::clean, "CleanDisk"},
                                  {DiskAction::online, "OnlineDisk"},
                                  {DiskAction::offline, "OfflineDisk"}};

std::vector<Subject> InAllWorlds(const ActionName& action)
{
    std::vector<Subject> subjects;
    for (const DiskWorld& world : Worlds())
        subjects.push_back(OnDisk(action.name, world, {action.action, wanted_disk}));
    return subjects;
}

TEST(DiskMatrix, TwoAnswersOtherThanOk)
{
    for (const ActionName& action : actions)
        Compare(InAllWorlds(action), {all_outcomes, 2}, {Form::narrow});
}

TEST(DiskMatrix, ThreeAnswersOtherThanOk)
{
    for (const ActionName& action : actions)
        Compare({OnDisk(action.name, {{wanted}, {}}, {action.action, wanted_disk}),
                 OnDisk(action.name, {{}, {{{wanted}}}}, {action.action, wanted_disk})},
                {few_outcomes, 3}, {Form::narrow});
}

TEST(DiskMatrix, CleanWithAndWithoutAnObjectToWaitOn)
{
    std::vector<Subject> subjects;
    DiskWorld world{{wanted}, {}, true, true};
    subjects.push_back(
        OnDisk("CleanDisk, objects to wait on", world, {DiskAction::clean, wanted_disk}));
    world = {{}, {{{wanted}}}, true, true};
    subjects.push_back(OnDisk("", world, {DiskAction::clean, wanted_disk}));
    world.async_on_success = world.async_on_failure = false;
    subjects.push_back(OnDisk("", world, {DiskAction::clean, wanted_disk}));
    Compare(subjects, {all_outcomes, 2}, {Form::narrow});
}

TEST(DiskMatrix, CleanHandsItsFlagsOn)
{
    static constexpr unsigned char bytes[] = {0, 1, 2, 128, 255};
    std::vector<Subject> subjects;
    for (const DiskWorld& world : {DiskWorld{{wanted}, {}}, DiskWorld{{}, {{{wanted}}}}})
        for (const unsigned char a : bytes)
            for (const unsigned char b : bytes)
                for (const unsigned char c : bytes)
                    subjects.push_back(OnDisk("CleanDisk, its flags", world,
                                              {DiskAction::clean, wanted_disk, {a, b, c}}));
    Compare(subjects, {{S_OK}}, {Form::narrow});
}

TEST(DiskMatrix, NamesAreComparedWithoutCaseUpToFortyCharacters)
{
    static const std::wstring names[] = {L"",
                                         L"\\\\?\\physicaldrive1",
                                         L"\\\\?\\PhysicalDrive",
                                         L"\\\\?\\PhysicalDrive11",
                                         std::wstring(39, L'x'),
                                         std::wstring(40, L'x'),
                                         std::wstring(40, L'X') + L"tail",
                                         std::wstring(40, L'x') + L"other tail",
                                         std::wstring(39, L'x') + L"y"};
    for (const ActionName& action : actions) {
        std::vector<Subject> subjects;
        for (const std::wstring& asked : names)
            for (const std::wstring& reported : names)
                for (const DiskWorld& world :
                     {DiskWorld{{reported}, {}}, DiskWorld{{}, {{{reported}}}}})
                    subjects.push_back(OnDisk(std::string(action.name) + ", names", world,
                                              {action.action, asked.c_str()}));
        Compare(subjects, {{S_OK}}, {Form::narrow});
    }
}

} // namespace
} // namespace kestro::test
