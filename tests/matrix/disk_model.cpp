// disk_model.cpp - the search for a disk and what happens to the one that is found.
#include "matrix/disk_model.h"

#include "matrix/reporter.h"

#include <cwctype>

namespace kestro::test {

namespace {

bool SameName(const std::wstring& left, const std::wstring& right)
{
    const auto folded = [](const std::wstring& text) {
        std::wstring lower = text.substr(0, 40);
        for (wchar_t& letter : lower)
            letter = static_cast<wchar_t>(std::towlower(letter));
        return lower;
    };
    return folded(left) == folded(right);
}

// What an enumerator came to.
struct Item {
    HRESULT result;
    size_t index;
    bool End() const { return result == S_FALSE; }
};

// One enumerator of the service, in use.
struct Cursor {
    std::string name;
    size_t count;
    bool gives_on_failure = false;
    size_t next = 0;
};

class DiskModel {
  public:
    DiskModel(const Situation& situation, const DiskWorld& world, const DiskRequest& request)
        : report_(situation), world_(world), request_(request),
          clean_(request.action == DiskAction::clean)
    {
    }

    ExpectedEvents Predict()
    {
        report_.Returns(static_cast<unsigned>(Run()));
        return report_.Take();
    }

  private:
    HRESULT Run()
    {
        HRESULT result = S_OK;
        if (!Connect(result))
            return result;
        if (SearchUnallocated(result))
            return result;
        return SearchProviders();
    }

    // True when the service is there; otherwise the result is what the export returns.
    bool Connect(HRESULT& result)
    {
        LogCode("Security Coinitialized Result: ",
                Call("CoInitializeSecurity", "NULL, -1, NULL, NULL, 1, 3, NULL, 0x0, NULL"));
        result = Call("CoCreateInstance", "VdsLoader, NULL, 0x14, IVdsServiceLoader");
        LogCode("CoCreateInstance HRESULT: ", result);
        if (result < 0) {
            Log("CoCreateInstance failed");
            result = clean_ ? 0 : result;
            return false;
        }
        result = Call("loader.LoadService", "NULL");
        Release("loader");
        LogCode("LoadService HRESULT: ", result);
        if (result < 0) {
            result = FailGently("LoadService failed", result);
            return false;
        }
        service_ = "service";
        return true;
    }

    // True when the call ends here.
    bool SearchUnallocated(HRESULT& result)
    {
        Call("service.QueryUnallocatedDisks", "");
        unallocated_ = "unallocated disks";
        Cursor cursor{unallocated_, world_.unallocated.size(), true};
        fetched_ = 0;
        for (;;) {
            Log("Enumerating Unallocated disks");
            const Item item = Next(cursor);
            if (item.End())
                return false;
            const std::string disk = NameOf("unallocated disk", item.index);
            result = View(disk, "IVdsDisk");
            LogCode("IID_IVdsDisk query interface HRESULT: ", result);
            if (result < 0) {
                result = FailGently("Failed to query IID_IVdsDisk interface", result);
                return true;
            }
            result = Call(disk + ".GetProperties", "");
            LogCode("GetProperties HRESULT: ", result);
            if (result < 0) {
                result = FailGently("Failed to get disk properties.", result);
                return true;
            }
            if (Matches(world_.unallocated[item.index])) {
                result = clean_ ? CleanUnallocated(disk) : ChangeState(disk, true);
                return true;
            }
        }
    }

    HRESULT SearchProviders()
    {
        Log("No more providers in the list of unallocated disks.");
        HRESULT result = Call("service.QueryProviders", "1");
        if (result < 0)
            return result;
        providers_ = "providers";
        Log("Querying software providers...");
        Cursor cursor{providers_, world_.providers.size()};
        fetched_ = 0;
        for (;;) {
            const Item item = Next(cursor);
            if (item.End())
                break;
            if (item.result < 0) {
                Log("Error in querying software providers...");
                return item.result;
            }
            if (SearchProvider(item.index, result))
                return result;
        }
        Exit(S_FALSE);
        return clean_ ? 0 : S_FALSE;
    }

    bool SearchProvider(size_t index, HRESULT& result)
    {
        const std::string provider = NameOf("provider", index);
        Log("Querying IVdsProvider interface...");
        result = View(provider, "IVdsProvider");
        if (result < 0)
            return true;
        result = Call(provider + ".GetProperties", "");
        if (result < 0)
            return true;
        result = Call(provider + ".QueryInterface", "IVdsSwProvider");
        Release(provider);
        if (result < 0)
            return true;
        Log("Querying packs...");
        result = Call("software " + provider + ".QueryPacks", "");
        Release("software " + provider);
        if (result < 0) {
            Log("Error in querying packs...");
            return true;
        }
        packs_ = provider + " packs";
        Cursor cursor{packs_, world_.providers[index].size()};
        fetched_ = 0;
        for (int number = 1;; ++number) {
            const Item item = Next(cursor);
            result = item.result;
            if (item.End())
                return false;
            if (result < 0)
                return true;
            PrintNumber("Pack", number);
            if (SearchPack(NameOf((provider + " pack").c_str(), item.index),
                           world_.providers[index][item.index], result))
                return true;
        }
    }

    bool SearchPack(const std::string& pack, const DiskWorld::Disks& disks, HRESULT& result)
    {
        result = View(pack, "IVdsPack");
        if (result < 0)
            return true;
        Call(pack + ".GetProperties", "");
        Call(pack + ".QueryDisks", "");
        pack_disks_ = pack + " disks";
        Cursor cursor{pack_disks_, disks.size()};
        fetched_ = 0;
        for (int number = 1;; ++number) {
            const Item item = Next(cursor);
            result = item.result;
            if (item.End())
                return false;
            if (result < 0)
                return true;
            PrintNumber("Disk", number);
            const std::string disk = NameOf((pack + " disk").c_str(), item.index);
            result = View(disk, "IVdsDisk");
            if (result < 0)
                return true;
            Call(disk + ".GetProperties", "");
            if (Matches(disks[item.index])) {
                result = clean_ ? CleanInPack(disk) : ChangeState(disk, false);
                return true;
            }
        }
    }

    HRESULT CleanUnallocated(const std::string& disk)
    {
        HRESULT result = Call(disk + ".QueryInterface", "IVdsAdvancedDisk");
        LogCode("IVdsAdvancedDisk HRESULT: ", result);
        Release(disk);
        if (result < 0)
            return FailGently("Failed to query IVdsAdvancedDisk interface", result);
        result = CallClean(disk);
        LogCode("Clean HRESULT: ", result);
        result = Wait(disk, result);
        if (result < 0)
            return FailGently("Failed to clean disk.", result);
        return Cleaned(result);
    }

    HRESULT CleanInPack(const std::string& disk)
    {
        HRESULT result = Call(disk + ".QueryInterface", "IVdsAdvancedDisk");
        Release(disk);
        if (result < 0) {
            Log("Failed to query IVdsAdvancedDisk interface");
            return result;
        }
        result = CallClean(disk);
        if (result < 0)
            return FailGently("Failed to clean disk.", result);
        LogCode("Clean HRESULT: ", result);
        result = Wait(disk, result);
        if (result < 0) {
            Log("Failed to clean disk.");
            return result;
        }
        return Cleaned(result);
    }

    HRESULT Cleaned(HRESULT result)
    {
        Log("Disk cleaned successfully.");
        Exit(result);
        return 1;
    }

    HRESULT CallClean(const std::string& disk)
    {
        const auto& flags = request_.flags;
        return Call("advanced " + disk + ".Clean",
                    Format("%d, %d, %d, slot of NULL", flags[0], flags[1], flags[2]));
    }

    HRESULT Wait(const std::string& disk, HRESULT cleaned)
    {
        if (!(cleaned >= 0 ? world_.async_on_success : world_.async_on_failure))
            return cleaned;
        Call("async of advanced " + disk + ".Wait", "zeroed");
        return Call("async of advanced " + disk + ".Delivers", "");
    }

    HRESULT ChangeState(const std::string& disk, bool released)
    {
        HRESULT result = Call(disk + ".QueryInterface", "IVdsDiskOnline");
        if (released)
            Release(disk);
        if (result < 0)
            return result;
        result = Call("online " + disk +
                          (request_.action == DiskAction::online ? ".Online" : ".Offline"),
                      "");
        if (result >= 0)
            Exit(result);
        return result;
    }

    // A failure of the way to the disk that CleanDisk takes to the common exit.
    HRESULT FailGently(const char* line, HRESULT result)
    {
        if (!clean_)
            return result;
        Log(line);
        Exit(result);
        return 0;
    }

    void Exit(HRESULT result)
    {
        for (const std::string& held : {providers_, packs_, pack_disks_, service_, unallocated_})
            if (!held.empty())
                Release(held);
        Log("All resources were released safely (Inside Main).");
        report_.Event("CoUninitialize()");
        LogCode("Last HRESULT: ", result);
    }

    Item Next(Cursor& cursor)
    {
        const std::string call = cursor.name + ".Next";
        const std::string arguments = Format("1, slot of %d", fetched_);
        fetched_ = 0;
        if (cursor.next == cursor.count) {
            report_.Event(call + "(" + arguments + ") -> 00000001");
            return {S_FALSE, 0};
        }
        const HRESULT result = Call(call, arguments);
        if (result == S_FALSE || (result < 0 && !cursor.gives_on_failure))
            return {result, 0};
        fetched_ = 1;
        return {result, cursor.next++};
    }

    // Asks a fetched object for the interface that it is used through.
    HRESULT View(const std::string& object, const char* wanted)
    {
        const HRESULT result = Call("fetched " + object + ".QueryInterface", wanted);
        Release("fetched " + object);
        return result;
    }

    bool Matches(const std::wstring& name)
    {
        report_.Event("_wcsnicmp(diskName, " + Quote(name.c_str()) + ", 40)");
        return SameName(request_.disk, name);
    }

    void PrintNumber(const char* kind, int number)
    {
        if (clean_)
            report_.Event("console narrow \"" + Format("%s #: %d", kind, number) + "\\n\"");
    }

    HRESULT Call(const std::string& function, const std::string& arguments)
    {
        return report_.Call(function, arguments);
    }
    void Release(const std::string& object) { report_.Event(object + ".Release()"); }
    void Log(const char* line)
    {
        if (clean_)
            report_.Log(line);
    }
    void LogCode(const char* label, HRESULT result)
    {
        if (!clean_)
            return;
        report_.Log(label);
        report_.Log(Format("%d", static_cast<int>(result)));
    }
    static std::string NameOf(const char* kind, size_t index)
    {
        return Format("%s %d", kind, static_cast<int>(index));
    }

    Reporter report_;
    const DiskWorld& world_;
    const DiskRequest& request_;
    bool clean_;
    int fetched_ = 0;
    // What the common exit finds to release.
    std::string service_, unallocated_, providers_, packs_, pack_disks_;
};

} // namespace

ExpectedEvents PredictDisk(const Situation& situation, const DiskWorld& world,
                           const DiskRequest& request)
{
    return DiskModel(situation, world, request).Predict();
}

} // namespace kestro::test
