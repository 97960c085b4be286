// driver_api.cpp - the driver packages of an offline image.
#include "api_state.h"
#include "driver_records.h"
#include "driver_store.h"
#include "file_system.h"
#include "inf_package.h"
#include "record_block.h"

#include <filesystem>

using namespace kestro::servicing;

namespace fs = std::filesystem;

namespace {

std::string WindowsText(const fs::path& hostPath)
{
    return Utf8(WindowsPath(hostPath.string()).data());
}

std::string InfPath(PCWSTR path)
{
    const std::string inf = HostPath(path);
    if (IsDirectory(inf))
        Refuse(code::access_denied, inf + " is a directory and not an INF file");
    if (!fs::exists(inf))
        Refuse(code::file_not_found, "there is no INF file " + inf);
    return inf;
}

DriverPackage ReadInf(const Session& session, const fs::path& inf)
{
    DriverPackage package = session.packages->Read(inf);
    package.origin = WindowsText(inf.parent_path());
    return package;
}

// An INF that cannot be read is still listed: it is in the image, and only a listing that shows it
// lets its owner remove it.
PackageInfo Describe(const ApiState& state, const Session& session, const PublishedInf& inf)
{
    PackageInfo info;
    info.publishedName = inf.name;
    info.originalFileName = WindowsText(inf.original);
    info.inBox = inf.inBox;
    try {
        info.package = ReadInf(session, inf.path);
        info.signature = session.drivers->Signature(inf, info.package.catalog).state;
    } catch (const ServicingError& error) {
        state.log.Warning("the list shows " + inf.name + " without its details: " + error.what());
    }
    return info;
}

// What a published INF says; nothing for one that is not there or cannot be read.
std::optional<DriverPackage> Described(const ApiState& state, const Session& session,
                                       const std::string& published)
{
    const auto inf = session.drivers->Find(published);
    if (!inf)
        return std::nullopt;
    try {
        return ReadInf(session, inf->path);
    } catch (const ServicingError& error) {
        state.log.Warning(published + " is removed without its details: " + error.what());
        return std::nullopt;
    }
}

bool IsPath(const std::string& text)
{
    return text.find_first_of("\\/:") != std::string::npos;
}

PackageInfo DescribeInf(const Session& session, PCWSTR path)
{
    PackageInfo info;
    const fs::path inf = InfPath(path);
    info.originalFileName = WindowsText(inf);
    info.package = ReadInf(session, inf);
    if (const auto catalog = FindPath(inf.parent_path(), info.package.catalog);
        catalog && !info.package.catalog.empty())
        info.signature = CheckCatalog(*catalog, {{inf, inf.filename()}}).state;
    return info;
}

void LogAdded(const ApiState& state, const AddResult& added, const std::string& inf)
{
    if (added.alreadyThere)
        state.log.Info(inf + " is in the image already, as " + added.published);
    else
        state.log.Info(inf + " was added as " + added.published + ", in " + added.folder.string());
}

} // namespace

extern "C" HRESULT WINAPI DismAddDriver(DismSession session, PCWSTR driverPath,
                                        WINBOOL forceUnsigned)
{
    return ServeInitialized("DismAddDriver", [&](ApiState& state) -> HRESULT {
        const Session& open = state.Find(session);
        const std::string inf = InfPath(driverPath);
        const auto package = ReadInf(open, inf);
        LogAdded(state, open.drivers->Add(package, forceUnsigned), inf);
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismRemoveDriver(DismSession session, PCWSTR driverPath)
{
    return ServeInitialized("DismRemoveDriver", [&](ApiState& state) -> HRESULT {
        const Session& open = state.Find(session);
        if (driverPath == nullptr)
            Refuse(code::invalid_parameter, "the package's published name is missing");
        const std::string name = Utf8(driverPath);
        const auto described = Described(state, open, name);
        open.drivers->Remove(name, described ? &*described : nullptr);
        state.log.Info(name + " was removed");
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismGetDrivers(DismSession session, WINBOOL allDrivers,
                                         DismDriverPackage** driverPackage, UINT* count)
{
    return ServeInitialized("DismGetDrivers", [&](ApiState& state) -> HRESULT {
        const Session& open = state.Find(session);
        if (driverPackage == nullptr || count == nullptr)
            Refuse(code::invalid_parameter,
                   "the place for the packages or their number is missing");
        std::vector<PackageInfo> packages;
        for (const auto& inf : open.drivers->List(allDrivers))
            packages.push_back(Describe(state, open, inf));
        *driverPackage = MakePackageRecords(packages);
        *count = static_cast<UINT>(packages.size());
        state.log.Info(std::to_string(*count) + " driver packages are in " + open.root);
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismGetDriverInfo(DismSession session, PCWSTR driverPath,
                                            DismDriver** driver, UINT* count,
                                            DismDriverPackage** driverPackage)
{
    return ServeInitialized("DismGetDriverInfo", [&](ApiState& state) -> HRESULT {
        const Session& open = state.Find(session);
        if (driverPath == nullptr || driver == nullptr || count == nullptr)
            Refuse(code::invalid_parameter,
                   "the package, the place for the drivers or their number is missing");
        const std::string name = Utf8(driverPath);
        const auto published = IsPath(name) ? std::nullopt : open.drivers->Find(name);
        const PackageInfo info =
            published ? Describe(state, open, *published) : DescribeInf(open, driverPath);
        // The package is optional to the caller.
        if (driverPackage != nullptr)
            *driverPackage = MakePackageRecords({info});
        *driver = MakeDriverRecords(info.package, ImageArchitecture(open.root));
        *count = static_cast<UINT>(info.package.models.size());
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismDelete(void* structure)
{
    return Serve("DismDelete", [&](ApiState&) -> HRESULT {
        if (!TakeBack(structure))
            Refuse(code::invalid_parameter, "this is no memory that the API handed out");
        return S_OK;
    });
}

// Also without DismInitialize, whose own failure may be what is asked about.
extern "C" HRESULT WINAPI DismGetLastErrorMessage(DismString** errorMessage)
{
    return Serve("DismGetLastErrorMessage", [&](ApiState&) -> HRESULT {
        if (errorMessage == nullptr)
            Refuse(code::invalid_parameter, "the place for the message is missing");
        *errorMessage = MakeString(LastError());
        return S_OK;
    });
}
