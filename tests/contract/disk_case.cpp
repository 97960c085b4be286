// disk_case.cpp - the steps of a call on a disk, as events.
#include "contract/disk_case.h"

#include <cstdint>

namespace kestro::test {

namespace {

std::string ReturnEvent(HRESULT value)
{
    return Format("returns %08X", static_cast<unsigned>(value));
}

// "1.2.3" -> "1.2", and its last number.
std::pair<std::string, std::string> Split(const std::string& number)
{
    const size_t dot = number.rfind('.');
    return {number.substr(0, dot), number.substr(dot + 1)};
}

} // namespace

const char* NameOf(DiskExport what)
{
    return what == DiskExport::clean    ? "CleanDisk"
           : what == DiskExport::online ? "OnlineDisk"
                                        : "OfflineDisk";
}

std::string DiskAction::Describe() const
{
    return Format("query %08X, act %08X, wait %08X delivering %08X, interface %d, async %d",
                  static_cast<unsigned>(query), static_cast<unsigned>(act),
                  static_cast<unsigned>(wait), static_cast<unsigned>(delivered), gives_interface,
                  gives_async);
}

DiskRun::DiskRun(DiskNames unallocated, std::vector<Packs> providers, std::vector<std::string> real)
    : platform({}, std::move(real))
{
    service.unallocated = std::move(unallocated);
    service.providers = std::move(providers);
}

void DiskRun::Answer(const std::string& number, const DiskAction& action)
{
    const std::string disk = "disk " + number;
    platform.Answer(disk + ".QueryInterface", {action.query});
    platform.Answer("advanced " + disk + ".Clean", {action.act});
    platform.Answer("online " + disk + ".Online", {action.act});
    platform.Answer("online " + disk + ".Offline", {action.act});
    platform.Answer("async.Wait", {action.wait});
    service.delivered = action.delivered;
    if (!action.gives_interface)
        service.withheld.insert({"advanced " + disk, "online " + disk});
    (action.gives_async ? service.given_anyway : service.withheld).insert("async");
}

void DiskRun::Call(DiskExport what, const DiskCase& arguments)
{
    // At a place of its own, wherever the disks have their names.
    const std::wstring name = arguments.disk ? arguments.disk : L"";
    const wchar_t* disk = arguments.disk ? name.c_str() : nullptr;
    platform.Name(disk, "DiskName");
    platform.Name(arguments.result_file, "ResultFile");
    const KestroLibrary& library = KestroLibrary::Get();
    int32_t result = 0;
    if (what == DiskExport::clean) {
        // The rest of each flag's register means nothing.
        using Clean =
            int32_t(__stdcall*)(const wchar_t*, unsigned, unsigned, unsigned, const char*);
        constexpr unsigned rest = 0xABCDEF00;
        const auto& [force, force_oem, full] = arguments.flags;
        result = library.Find<Clean>(NameOf(what))(disk, rest | force, rest | force_oem,
                                                   rest | full, arguments.result_file);
    } else {
        result = library.Find<int32_t(__stdcall*)(const wchar_t*)>(NameOf(what))(disk);
    }
    platform.Record(ReturnEvent(result));
    platform.Unname(disk);
}

DiskSteps::DiskSteps(DiskExport what, const std::string& result_file)
    : what_(what), call_(Form::narrow, {}, result_file)
{
}

DiskSteps& DiskSteps::Call(const std::string& call, HRESULT result)
{
    call_.Call(call, result);
    return *this;
}

DiskSteps& DiskSteps::Log(const std::string& line)
{
    if (what_ == DiskExport::clean)
        call_.Log(line);
    return *this;
}

DiskSteps& DiskSteps::LogNumber(const std::string& label, HRESULT number)
{
    return Log(label).Log(std::to_string(number));
}

DiskSteps& DiskSteps::Trace(const std::string& line)
{
    if (what_ == DiskExport::clean)
        call_.Event("console narrow " + Quote(line.c_str()));
    return *this;
}

DiskSteps& DiskSteps::Release(const std::string& object)
{
    call_.Event(object + ".Release() -> 0");
    return *this;
}

DiskSteps& DiskSteps::Next(const std::string& enumerator, HRESULT result)
{
    const bool first = started_.insert(enumerator).second;
    return Call(enumerator + (first ? ".Next(1, slot of 0)" : ".Next(1)"), result);
}

DiskSteps& DiskSteps::Convert(const std::string& object, const char* interface_name, HRESULT result)
{
    Call("any " + object + ".QueryInterface(" + interface_name + ")", result);
    return Release("any " + object);
}

DiskSteps& DiskSteps::Compare(const wchar_t* disk_name)
{
    call_.Event("_wcsnicmp(DiskName, " + Quote(disk_name) + ", 40)");
    return *this;
}

// --- connection ---

DiskSteps& DiskSteps::CreateLoader(HRESULT result, HRESULT security)
{
    Call("CoInitializeSecurity(NULL, -1, NULL, NULL, 1, 3, NULL, 0x0, NULL)", security);
    LogNumber("Security Coinitialized Result: ", security);
    Call("CoCreateInstance(VdsLoader, NULL, 0x14, IVdsServiceLoader)", result);
    return LogNumber("CoCreateInstance HRESULT: ", result);
}

DiskSteps& DiskSteps::LoadService(HRESULT result)
{
    Call("loader.LoadService(NULL)", result).Release("loader");
    return LogNumber("LoadService HRESULT: ", result);
}

DiskSteps& DiskSteps::QueryUnallocated(HRESULT result)
{
    return Call("service.QueryUnallocatedDisks()", result);
}

DiskSteps& DiskSteps::Connect()
{
    return CreateLoader().LoadService().QueryUnallocated();
}

// --- unallocated disks ---

DiskSteps& DiskSteps::NextUnallocated(HRESULT result)
{
    return Log("Enumerating Unallocated disks").Next("unallocated disks", result);
}

DiskSteps& DiskSteps::ConvertUnallocated(const std::string& number, HRESULT result)
{
    Convert("disk " + number, "IVdsDisk", result);
    return LogNumber("IID_IVdsDisk query interface HRESULT: ", result);
}

DiskSteps& DiskSteps::UnallocatedProperties(const std::string& number, HRESULT result)
{
    Call("disk " + number + ".GetProperties()", result);
    return LogNumber("GetProperties HRESULT: ", result);
}

DiskSteps& DiskSteps::Unallocated(const std::string& number, const wchar_t* disk_name)
{
    NextUnallocated().ConvertUnallocated(number).UnallocatedProperties(number);
    return Compare(disk_name);
}

DiskSteps& DiskSteps::QueryProviders(HRESULT result)
{
    NextUnallocated(S_FALSE).Log("No more providers in the list of unallocated disks.");
    Call("service.QueryProviders(0x1)", result);
    return result < 0 ? *this : Log("Querying software providers...");
}

// --- disks in packs ---

DiskSteps& DiskSteps::NextProvider(HRESULT result)
{
    return Next("providers", result);
}

DiskSteps& DiskSteps::ConvertProvider(const std::string& number, HRESULT result)
{
    Log("Querying IVdsProvider interface...");
    return Convert("provider " + number, "IVdsProvider", result);
}

DiskSteps& DiskSteps::ProviderProperties(const std::string& number, HRESULT result)
{
    return Call("provider " + number + ".GetProperties()", result);
}

DiskSteps& DiskSteps::ConvertToSoftware(const std::string& number, HRESULT result)
{
    Call("provider " + number + ".QueryInterface(IVdsSwProvider)", result);
    return Release("provider " + number);
}

DiskSteps& DiskSteps::QueryPacks(const std::string& number, HRESULT result)
{
    Log("Querying packs...").Call("software provider " + number + ".QueryPacks()", result);
    return Release("software provider " + number);
}

DiskSteps& DiskSteps::Provider(const std::string& number)
{
    NextProvider().ConvertProvider(number).ProviderProperties(number);
    return ConvertToSoftware(number).QueryPacks(number);
}

DiskSteps& DiskSteps::NextPack(const std::string& number, HRESULT result)
{
    const auto [provider, pack] = Split(number);
    Next("packs " + provider, result);
    return result < 0 ? *this : Trace("Pack #: " + pack + "\n");
}

DiskSteps& DiskSteps::QueryDisks(const std::string& number, HRESULT properties, HRESULT result)
{
    Call("pack " + number + ".GetProperties()", properties);
    return Call("pack " + number + ".QueryDisks()", result);
}

DiskSteps& DiskSteps::Pack(const std::string& number)
{
    return NextPack(number).Convert("pack " + number, "IVdsPack").QueryDisks(number);
}

DiskSteps& DiskSteps::NextDisk(const std::string& number, HRESULT result)
{
    const auto [pack, disk] = Split(number);
    Next("disks " + pack, result);
    return result < 0 ? *this : Trace("Disk #: " + disk + "\n");
}

DiskSteps& DiskSteps::DiskProperties(const std::string& number, HRESULT result)
{
    return Call("disk " + number + ".GetProperties()", result);
}

DiskSteps& DiskSteps::Disk(const std::string& number, const wchar_t* disk_name)
{
    NextDisk(number).Convert("disk " + number, "IVdsDisk").DiskProperties(number);
    return Compare(disk_name);
}

// --- the ends ---

DiskSteps& DiskSteps::Switch(const std::string& disk, bool unallocated, const DiskAction& action,
                             const std::vector<const char*>& releases)
{
    Call(disk + ".QueryInterface(IVdsDiskOnline)", action.query);
    if (unallocated)
        Release(disk);
    if (action.query < 0)
        return Returns(action.query);
    if (!action.gives_interface)
        return Returns(null_object);
    const char* method = what_ == DiskExport::online ? ".Online()" : ".Offline()";
    Call("online " + disk + method, action.act);
    if (action.act >= 0)
        CommonExit(releases, action.act);
    return Returns(action.act);
}

DiskSteps& DiskSteps::CleanUnallocated(const std::string& disk, const std::string& clean,
                                       const DiskAction& action,
                                       const std::vector<const char*>& releases)
{
    Call(disk + ".QueryInterface(IVdsAdvancedDisk)", action.query);
    LogNumber("IVdsAdvancedDisk HRESULT: ", action.query).Release(disk);
    if (action.query < 0)
        return Log("Failed to query IVdsAdvancedDisk interface")
            .CommonExit(releases, action.query)
            .Returns(0);

    HRESULT result = null_object;
    if (action.gives_interface) {
        Call(clean, action.act);
        result = action.act;
    }
    LogNumber("Clean HRESULT: ", result);
    if (action.gives_interface && action.gives_async) {
        Call("async.Wait(zeroed output)", action.wait);
        result = action.delivered;
    }
    Log(result < 0 ? "Failed to clean disk." : "Disk cleaned successfully.");
    return CommonExit(releases, result).Returns(result < 0 ? 0 : 1);
}

DiskSteps& DiskSteps::CleanInPack(const std::string& disk, const std::string& clean,
                                  const DiskAction& action,
                                  const std::vector<const char*>& releases)
{
    Call(disk + ".QueryInterface(IVdsAdvancedDisk)", action.query).Release(disk);
    if (action.query < 0)
        return Log("Failed to query IVdsAdvancedDisk interface").Returns(action.query);

    HRESULT result = null_object;
    if (action.gives_interface) {
        Call(clean, action.act);
        result = action.act;
    }
    if (result < 0)
        return Log("Failed to clean disk.").CommonExit(releases, result).Returns(0);
    LogNumber("Clean HRESULT: ", result);
    if (action.gives_async) {
        Call("async.Wait(zeroed output)", action.wait);
        result = action.delivered;
    }
    if (result < 0)
        return Log("Failed to clean disk.").Returns(result);
    return Log("Disk cleaned successfully.").CommonExit(releases, result).Returns(1);
}

DiskSteps& DiskSteps::Act(const std::string& number, const std::vector<const char*>& releases,
                          const DiskAction& action, const DiskCase& arguments)
{
    const std::string disk = "disk " + number;
    const bool unallocated = number.find('.') == std::string::npos;
    if (what_ != DiskExport::clean)
        return Switch(disk, unallocated, action, releases);
    const auto& [force, force_oem, full] = arguments.flags;
    const std::string clean =
        Format("advanced %s.Clean(%d, %d, %d, slot of NULL)", disk.c_str(), force, force_oem, full);
    return unallocated ? CleanUnallocated(disk, clean, action, releases)
                       : CleanInPack(disk, clean, action, releases);
}

DiskSteps& DiskSteps::NotFound(const std::vector<const char*>& releases)
{
    return CommonExit(releases, S_FALSE).Returns(what_ == DiskExport::clean ? 0 : S_FALSE);
}

DiskSteps& DiskSteps::CommonExit(const std::vector<const char*>& releases, HRESULT last)
{
    for (const char* object : releases)
        Release(object);
    Log("All resources were released safely (Inside Main).");
    call_.Event("CoUninitialize");
    return LogNumber("Last HRESULT: ", last);
}

DiskSteps& DiskSteps::Returns(HRESULT value)
{
    call_.Event(ReturnEvent(value));
    return *this;
}

testing::AssertionResult Does(const DiskRun& run, const DiskSteps& steps)
{
    return SameTranscript(steps.Events(), run.platform.Recorded()) << NameOf(steps.What());
}

} // namespace kestro::test
