// system_commands.cpp - disks, the INF install, and the self-test.
#include "session.h"
#include "usage_error.h"

#include <filesystem>

namespace kestro::host {
namespace {

using nlohmann::json;

int FinishDisk(const Session& session, const std::wstring& disk, const DiskOutcome& outcome,
               const std::string& done)
{
    const std::string name = Shown(disk);
    if (session.Out().Json()) {
        json document = session.Document(outcome);
        document["disk"] = name;
        document["found"] = outcome.found;
        session.Out().Document(document);
    }
    if (outcome.succeeded) {
        session.Out().Line(done);
        return kExitSuccess;
    }
    if (!outcome.found) {
        session.Out().Error("there is no disk " + name);
        return kExitNotFound;
    }
    session.Out().Failed(outcome.failure->function, outcome.failure->hresult);
    return kExitFailed;
}

} // namespace

int DiskCleanCommand(const Context& context, const std::wstring& name, const CleanFlags& flags)
{
    const std::string disk = Shown(name);
    if (!flags.yes)
        throw UsageError(
            "this would wipe the disk " + disk +
            (flags.what.full ? ", every sector of it" : ", its partitions and their data") +
            (flags.what.force ? "; also with data volumes (--force)" : "") +
            (flags.what.forceOem ? "; also with an OEM partition (--force-oem)" : "") +
            ". Nothing was done. Add --yes to do it.");
    Session session(context, "disk clean");
    session.Out().Progress("Cleaning " + disk);
    const ResultPath result = session.NextResult(Form::Narrow);
    return FinishDisk(session, name, session.Kestro().CleanDisk(name, flags.what, result.Text()),
                      "Cleaned " + disk);
}

int DiskOnlineCommand(const Context& context, const std::wstring& name, bool online)
{
    Session session(context, online ? "disk online" : "disk offline");
    return FinishDisk(session, name,
                      online ? session.Kestro().OnlineDisk(name)
                             : session.Kestro().OfflineDisk(name),
                      Shown(name) + (online ? " is online" : " is offline"));
}

int InfInstallCommand(const Context& context, const std::wstring& inf)
{
    const std::wstring path = FullPath(inf);
    const std::string shown = Shown(path);
    if (!std::filesystem::is_regular_file(path))
        throw UsageError("there is no INF file " + shown);
    Session session(context, "inf install");
    const InstallOutcome outcome = session.Kestro().InfInstall(path);
    const std::int32_t code = HRESULT_FROM_WIN32(outcome.lastError);
    if (session.Out().Json()) {
        json document = {
            {"command", "inf install"}, {"succeeded", outcome.succeeded}, {"inf", shown}};
        if (!outcome.succeeded)
            document["failure"] = CodeToJson(code);
        session.Out().Document(document);
    }
    if (outcome.succeeded) {
        session.Out().Line("Installed " + shown);
        return kExitSuccess;
    }
    session.Out().Failed("InfInstall", code);
    return kExitFailed;
}

namespace {

std::string PathOf(HMODULE module)
{
    wchar_t path[32768] = {};
    if (module == nullptr || GetModuleFileNameW(module, path, 32767) == 0)
        return "not loaded";
    return Shown(path);
}

} // namespace

int SelfTestCommand(const Context& context)
{
    Session session(context, "selftest");
    const std::string kestroPath = PathOf(session.GetLibrary().Module());
    const std::string dismPath = PathOf(GetModuleHandleW(L"DismApi.dll"));
    session.Out().Line("Kestro.dll    " + kestroPath);
    session.Out().Line("DismApi.dll   " + dismPath);

    bool good = true;
    json forms = json::array();
    for (const Form form : {Form::Narrow, Form::Wide}) {
        const ResultPath result = session.NextResult(form);
        const bool readable =
            Operations(session.GetLibrary(), form).WriteTest(result.Text()).succeeded;
        good = good && readable;
        const std::string name = form == Form::Narrow ? "WriteTest" : "WriteTestW";
        session.Out().Line(name + std::string(14 - name.size(), ' ') +
                           (readable ? "a host here reads what the library writes"
                                     : "what the library writes cannot be read here"));
        forms.push_back({{"form", name}, {"readable", readable}});
    }
    if (session.Out().Json())
        session.Out().Document({{"command", "selftest"},
                                {"succeeded", good},
                                {"kestro_dll", kestroPath},
                                {"dismapi_dll", dismPath},
                                {"forms", forms}});
    return good ? kExitSuccess : kExitFailed;
}

} // namespace kestro::host
