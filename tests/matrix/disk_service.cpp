// disk_service.cpp - packs, providers, the service itself, and the COM functions that lead to it.
#include "matrix/disk_service.h"

#include "matrix/disk_objects.h"

#include <cwchar>

namespace kestro::test {

namespace {

DiskService* active = nullptr;

struct NamedId {
    GUID id;
    const char* name;
};

constexpr NamedId known_ids[] = {
    {{0x9C38ED61, 0xD565, 0x4728, {0xAE, 0xEE, 0xC8, 0x09, 0x52, 0xF0, 0xEC, 0xDE}}, "VdsLoader"},
    {{0xE0393303, 0x90D4, 0x4A97, {0xAB, 0x71, 0xE9, 0xB6, 0x71, 0xEE, 0x27, 0x29}},
     "IVdsServiceLoader"},
    {{0x10C5E575, 0x7984, 0x4E81, {0xA5, 0x6B, 0x43, 0x1F, 0x5F, 0x92, 0xAE, 0x42}},
     "IVdsProvider"},
    {{0x9AA58360, 0xCE33, 0x4F92, {0xB6, 0x58, 0xED, 0x24, 0xB1, 0x44, 0x25, 0xB8}},
     "IVdsSwProvider"},
    {{0x3B69D7F5, 0x9D94, 0x4648, {0x91, 0xCA, 0x79, 0x93, 0x9B, 0xA2, 0x63, 0xBF}}, "IVdsPack"},
    {{0x07E5C822, 0xF00C, 0x47A1, {0x8F, 0xCE, 0xB2, 0x44, 0xDA, 0x56, 0xFD, 0x06}}, "IVdsDisk"},
    {{0x6E6F6B40, 0x977C, 0x4069, {0xBD, 0xDD, 0xAC, 0x71, 0x00, 0x59, 0xF8, 0xC0}},
     "IVdsAdvancedDisk"},
    {{0x90681B1D, 0x6A7F, 0x48E8, {0x90, 0x61, 0x31, 0xB7, 0xAA, 0x12, 0x53, 0x22}},
     "IVdsDiskOnline"},
};

} // namespace

std::string NameOfId(const GUID& id)
{
    for (const NamedId& known : known_ids)
        if (IsEqualGUID(known.id, id))
            return known.name;
    return "another GUID";
}

namespace {

// An object as an enumerator hands it out: good for a query of its interface alone.
template <typename Viewed, typename... Arguments>
Object* Fetched(const char* wanted, const std::string& name, const Arguments&... arguments)
{
    return DiskService::Active().Make<Object>(
        "fetched " + name, [=, &arguments...](const std::string& asked) -> void* {
            return asked == wanted ? DiskService::Active().Make<Viewed>(name, arguments...)
                                   : nullptr;
        });
}

Enumerator* EnumerateDisks(const std::string& name, const DiskWorld::Disks& disks, bool on_failure)
{
    return DiskService::Active().Make<Enumerator>(
        name + " disks", disks.size(), on_failure, [=, &disks](size_t i) {
            return Fetched<Disk>("IVdsDisk",
                                 Format("%s disk %d", name.c_str(), static_cast<int>(i)), disks[i]);
        });
}

class Pack : public Object {
  public:
    Pack(std::string name, const DiskWorld::Disks& disks) : Object(std::move(name)), disks_(disks)
    {
    }
    virtual HRESULT STDMETHODCALLTYPE GetProperties(char* record)
    {
        std::memset(record, 0xEE, 32);
        return Answer(name_ + ".GetProperties", "");
    }
    METHOD_OF_NO_USE(GetProvider)
    METHOD_OF_NO_USE(QueryVolumes)
    // The result is nobody's concern: there is always an enumerator.
    virtual HRESULT STDMETHODCALLTYPE QueryDisks(void** slot)
    {
        const HRESULT result = Answer(name_ + ".QueryDisks", "");
        *slot = EnumerateDisks(name_, disks_, false);
        return result;
    }
    METHOD_OF_NO_USE(CreateVolume)
    METHOD_OF_NO_USE(AddDisk)
    METHOD_OF_NO_USE(MigrateDisks)
    METHOD_OF_NO_USE(ReplaceDisk)
    METHOD_OF_NO_USE(RemoveMissingDisk)
    METHOD_OF_NO_USE(Recover)

  private:
    const DiskWorld::Disks& disks_;
};

class SoftwareProvider : public Object {
  public:
    SoftwareProvider(const std::string& provider, const DiskWorld::Packs& packs)
        : Object("software " + provider), provider_(provider), packs_(packs)
    {
    }
    virtual HRESULT STDMETHODCALLTYPE QueryPacks(void** slot)
    {
        const HRESULT result = Answer(name_ + ".QueryPacks", "");
        *slot = nullptr;
        if (result >= 0)
            *slot = DiskService::Active().Make<Enumerator>(
                provider_ + " packs", packs_.size(), false, [this](size_t i) {
                    return Fetched<Pack>(
                        "IVdsPack", Format("%s pack %d", provider_.c_str(), static_cast<int>(i)),
                        packs_[i]);
                });
        return result;
    }
    METHOD_OF_NO_USE(CreatePack)

  private:
    std::string provider_;
    const DiskWorld::Packs& packs_;
};

class Provider : public Object {
  public:
    Provider(const std::string& name, const DiskWorld::Packs& packs)
        : Object(name, [=, &packs](const std::string& wanted) -> void* {
              return wanted == "IVdsSwProvider"
                         ? DiskService::Active().Make<SoftwareProvider>(name, packs)
                         : nullptr;
          })
    {
    }
    virtual HRESULT STDMETHODCALLTYPE GetProperties(char* record)
    {
        std::memset(record, 0xEE, 64);
        return Answer(name_ + ".GetProperties", "");
    }
};

class Service : public Object {
  public:
    Service() : Object("service") {}
    METHOD_OF_NO_USE(IsServiceReady)
    METHOD_OF_NO_USE(WaitForServiceReady)
    METHOD_OF_NO_USE(GetProperties)
    virtual HRESULT STDMETHODCALLTYPE QueryProviders(DWORD mask, void** slot)
    {
        const HRESULT result = Answer("service.QueryProviders", Format("%lu", mask));
        const auto& providers = DiskService::Active().World().providers;
        *slot = nullptr;
        if (result >= 0)
            *slot = DiskService::Active().Make<Enumerator>(
                "providers", providers.size(), false, [&](size_t i) {
                    return Fetched<Provider>(
                        "IVdsProvider", Format("provider %d", static_cast<int>(i)), providers[i]);
                });
        return result;
    }
    METHOD_OF_NO_USE(QueryMaskedDisks)
    // There is an enumerator, and it hands out disks, even where failures are reported.
    virtual HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(void** slot)
    {
        const HRESULT result = Answer("service.QueryUnallocatedDisks", "");
        *slot = EnumerateDisks("unallocated", DiskService::Active().World().unallocated, true);
        return result;
    }
};

class Loader : public Object {
  public:
    Loader() : Object("loader") {}
    virtual HRESULT STDMETHODCALLTYPE LoadService(LPWSTR machine, void** slot)
    {
        const HRESULT result = Answer("loader.LoadService", Quote(machine));
        *slot = result >= 0 ? DiskService::Active().Make<Service>() : nullptr;
        return result;
    }
};

// --- COM itself ---

HRESULT WINAPI InitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG count, void* services,
                                  void* reserved, DWORD authentication, DWORD impersonation,
                                  void* list, DWORD capabilities, void* reserved_too)
{
    const Platform& platform = Platform::Active();
    return Answer("CoInitializeSecurity",
                  platform.ShowPointer(descriptor) + Format(", %ld, ", count) +
                      platform.ShowPointer(services) + ", " + platform.ShowPointer(reserved) +
                      Format(", %lu, %lu, ", authentication, impersonation) +
                      platform.ShowPointer(list) + Format(", 0x%lX, ", capabilities) +
                      platform.ShowPointer(reserved_too));
}

HRESULT WINAPI CreateInstance(REFCLSID class_id, LPUNKNOWN outer, DWORD context, REFIID id,
                              LPVOID* slot)
{
    const HRESULT result = Answer(
        "CoCreateInstance", NameOfId(class_id) + ", " + Platform::Active().ShowPointer(outer) +
                                Format(", 0x%lX, ", context) + NameOfId(id));
    *slot = result >= 0 ? DiskService::Active().Make<Loader>() : nullptr;
    return result;
}

void WINAPI Uninitialize()
{
    Platform::Active().Record("CoUninitialize()");
}

int __cdecl CompareNames(const wchar_t* left, const wchar_t* right, size_t count)
{
    const Platform& platform = Platform::Active();
    Platform::Active().Record("_wcsnicmp(" + platform.Show(left) + ", " + Quote(right) +
                              Format(", %u)", static_cast<unsigned>(count)));
    return _wcsnicmp(left, right, count);
}

const Doubles doubles{{"CoInitializeSecurity", InitializeSecurity},
                      {"CoCreateInstance", CreateInstance},
                      {"CoUninitialize", Uninitialize},
                      {"_wcsnicmp", CompareNames}};

} // namespace

DiskService::DiskService(const DiskWorld& world) : world_(world)
{
    active = this;
}

DiskService::~DiskService()
{
    active = nullptr;
}

DiskService& DiskService::Active()
{
    if (!active)
        abort();
    return *active;
}

} // namespace kestro::test
