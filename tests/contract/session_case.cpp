// session_case.cpp - the session around every operation on an image, and its exit.
#include "contract/session_case.h"

#include <algorithm>

namespace kestro::test {

namespace {

// The steps of one session as they are expected.
class Session {
  public:
    Session(Form form, const SessionCase& run, const Script& script)
        : run_(run), call_(form, script, Shown(FileOf(form, run), "ResultFile"))
    {
    }

    // False when the session has ended with a failure.
    bool Open()
    {
        call_.Call("DismInitialize(2, " + Shown(run_.log_file, "LogFilePath") + ", NULL)",
                   run_.initialize);
        if (run_.initialize < 0)
            return Fail("DISM_INITIALIZE", "DismInitialize", run_.initialize);
        call_.Write("DISM_INITIALIZE", "Result", "OK");
        call_.Call("DismOpenSession(" + Shown(run_.image, "ImagePath") + ", NULL, NULL, slot of 0)",
                   run_.open);
        if (run_.open < 0)
            return Fail("DISM_OPENSESSION", "DismOpenSession", run_.open);
        handle_ = 7;
        return true;
    }

    bool Commit()
    {
        call_.Call("DismCommitImage(7, 0x0, NULL, NULL, NULL)", run_.commit);
        return run_.commit >= 0 || Fail("DISM_COMMITIMAGE", "DismCommitImage", run_.commit);
    }

    void Close()
    {
        CallClose();
        const HRESULT shutdown = CallShutdown();
        if (shutdown < 0) {
            Fail("DISM_SHUTDOWN", "DismShutdown", shutdown);
            return;
        }
        call_.Write("DISM_SHUTDOWN", "Result", "OK");
        call_.Returns(SuccessValue(call_.GetForm(), shutdown));
    }

    // The exit of a session whose failed step has been reported.
    void Exit(const std::string& section, HRESULT failure)
    {
        call_.Write(section, "Result", "ERR");
        CleanUp(failure);
    }

    void CleanUp(HRESULT failure)
    {
        if (CallClose() < 0)
            call_.ReportCleanUp("DISM_CLOSESESSION", "DismCloseSession", failure);
        if (CallShutdown() < 0)
            call_.ReportCleanUp("DISM_SHUTDOWN", "DismShutdown", failure);
        call_.ReturnCodeLine(failure).Returns(FailureValue(call_.GetForm()));
    }

    Expectation& Steps() { return call_; }

  private:
    static const void* FileOf(Form form, const SessionCase& run)
    {
        return form == Form::narrow ? static_cast<const void*>(run.result_file.narrow)
                                    : static_cast<const void*>(run.result_file.wide);
    }

    bool Fail(const std::string& section, const std::string& function, HRESULT failure)
    {
        call_.ReportFailure(section, function, failure);
        Exit(section, failure);
        return false;
    }

    HRESULT CallClose()
    {
        const HRESULT result = run_.close[closes_++];
        call_.Call(Format("DismCloseSession(%u)", handle_), result);
        return result;
    }

    HRESULT CallShutdown()
    {
        const HRESULT result = run_.shutdown[shutdowns_++];
        call_.Call("DismShutdown()", result);
        return result;
    }

    const SessionCase& run_;
    Expectation call_;
    unsigned handle_ = 0;
    int closes_ = 0;
    int shutdowns_ = 0;
};

const char* FunctionOf(DriverChange change)
{
    return change == DriverChange::add ? "DismAddDriver" : "DismRemoveDriver";
}

std::string NameOfPath(size_t index)
{
    return Format("DriverPaths[%u]", static_cast<unsigned>(index));
}

// The narrow text of a wide name, by way of a copy.
void ExpectConversion(Expectation& call, const std::string& shown)
{
    const std::string conversion = "WideCharToMultiByte(0, 0, copy of " + shown + " and its zero, ";
    call.Event("SysAllocString(" + shown + ")");
    call.Event(conversion + "NULL, 0)").Event(conversion + "buffer)");
}

void ExpectPass(Expectation& call, size_t index, const DriverList& list)
{
    const wchar_t* path = list.paths[index];
    const HRESULT result = list.results[index];
    // The same pointer twice has the name of its last place.
    size_t named = index;
    for (size_t i = 0; i < list.paths.size(); ++i)
        if (list.paths[i] == path)
            named = i;
    const std::string shown = Shown(path, NameOfPath(named).c_str());
    const Key key = path ? Key(Narrow(path)) : Key();

    if (path)
        ExpectConversion(call, shown);
    call.Call("DismAddDriver(7, " + shown + ", 0)", result);
    if (result < 0) {
        call.Log("DismAddDriver Failed. Following error code.");
        call.Log(Format("%d", static_cast<int>(result)));
        call.Write("DISM_ADDDRIVER", key, "ERR");
        call.WriteLastError("DISM_ADDDRIVER_ERRORS", key);
    }
    call.Write("DISM_ADDDRIVER", key, "OK");
    if (path)
        call.Event("SysFreeString(copy of " + shown + ")");
}

void ExpectPackage(Expectation& call, unsigned index, const Package& package)
{
    const std::string published = Quote(package.published_name.c_str());
    const std::string original = Quote(package.original_name.c_str());
    call.ConsoleWide(L"Driver Package " + std::to_wstring(index) + L": " + package.published_name +
                     L"\n");
    call.ConsoleWide(L"Original file name: " + package.original_name + L"\n\n");
    ExpectConversion(call, published);
    ExpectConversion(call, original);
    call.Log("Driver Package " + std::to_string(index) +
             " - PublishedName: " + Narrow(package.published_name) +
             " - Original file name: " + Narrow(package.original_name));
    const ExpectedEvent release("SysFreeString of either copy", [=](const std::string& event) {
        return event == "SysFreeString(copy of " + published + ")" ||
               event == "SysFreeString(copy of " + original + ")";
    });
    call.Event(release).Event(release);
}

constexpr size_t record_size = 100;

// The platform's package records, the last one ending where memory ends.
class PackageRecords {
  public:
    explicit PackageRecords(const std::vector<Package>& packages)
        : size_((packages.size() * record_size + page - 1) / page * page)
    {
        memory_ = static_cast<char*>(
            VirtualAlloc(nullptr, size_ + page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD before = 0;
        VirtualProtect(memory_ + size_, page, PAGE_NOACCESS, &before);
        char* record = First(packages.size());
        for (const Package& package : packages) {
            const wchar_t* names[] = {package.published_name.c_str(),
                                      package.original_name.c_str()};
            std::fill(record, record + record_size, '\xEE');
            std::copy_n(reinterpret_cast<const char*>(names), sizeof names, record);
            record += record_size;
        }
    }
    ~PackageRecords() { VirtualFree(memory_, 0, MEM_RELEASE); }
    PackageRecords(const PackageRecords&) = delete;
    PackageRecords& operator=(const PackageRecords&) = delete;

    char* First(size_t count) const { return memory_ + size_ - count * record_size; }

  private:
    static constexpr size_t page = 4096;
    size_t size_;
    char* memory_;
};

} // namespace

std::string SessionCase::Describe() const
{
    return Format("initialize %08X, open %08X, operation %08X, commit %08X, close %08X %08X, "
                  "shutdown %08X %08X",
                  static_cast<unsigned>(initialize), static_cast<unsigned>(open),
                  static_cast<unsigned>(operation), static_cast<unsigned>(commit),
                  static_cast<unsigned>(close[0]), static_cast<unsigned>(close[1]),
                  static_cast<unsigned>(shutdown[0]), static_cast<unsigned>(shutdown[1]));
}

Expectation ExpectSession(Form form, const SessionCase& run, const Operation& operation,
                          const Script& script)
{
    Session session(form, run, script);
    if (!session.Open())
        return session.Steps();
    const HRESULT result = operation.run(session.Steps());
    if (result < 0)
        session.Exit(operation.section, result);
    else if (!operation.commits || session.Commit())
        session.Close();
    return session.Steps();
}

void PrepareSession(Platform& platform, const SessionCase& run)
{
    platform.Name(run.image, "ImagePath");
    platform.Name(run.log_file, "LogFilePath");
    platform.Name(run.result_file.narrow, "ResultFile");
    platform.Name(run.result_file.wide, "ResultFile");
    platform.Answer("DismInitialize", {run.initialize});
    platform.Answer("DismOpenSession", {run.open});
    platform.Answer("DismCommitImage", {run.commit});
    platform.Answer("DismCloseSession", {run.close[0], run.close[1]});
    platform.Answer("DismShutdown", {run.shutdown[0], run.shutdown[1]});
}

// --- AddDriver, RemoveDriver ---

Expectation ExpectDriverChange(Form form, DriverChange change, const SessionCase& run,
                               const wchar_t* driver, const Script& script)
{
    const std::string shown = Shown(driver, "DriverPath");
    const char* section = change == DriverChange::add ? "DISM_ADDDRIVER" : "DISM_REMOVEDRIVER";
    const Operation operation{section, true, [&](Expectation& call) {
                                  call.Call(FunctionOf(change) + ("(7, " + shown) +
                                                (change == DriverChange::add ? ", 0)" : ")"),
                                            run.operation);
                                  if (run.operation < 0)
                                      call.ReportFailure(section, FunctionOf(change),
                                                         run.operation);
                                  else
                                      call.Write(section, "Result", "OK");
                                  return run.operation;
                              }};
    return ExpectSession(form, run, operation, script);
}

void RunDriverChange(Platform& platform, Form form, DriverChange change, const SessionCase& run,
                     const wchar_t* driver)
{
    PrepareSession(platform, run);
    platform.Name(driver, "DriverPath");
    platform.Answer(FunctionOf(change), {run.operation});
    platform.Returned(
        KestroLibrary::Get().Call(change == DriverChange::add ? "AddDriver" : "RemoveDriver", form,
                                  run.result_file, run.image, driver, run.log_file));
}

testing::AssertionResult ChangeDoesWhatItHasTo(Form form, DriverChange change,
                                               const SessionCase& run, const wchar_t* driver,
                                               const Script& script)
{
    Platform platform(script);
    RunDriverChange(platform, form, change, run, driver);
    return SameTranscript(ExpectDriverChange(form, change, run, driver, script).Events(),
                          platform.Recorded())
           << NameOf(form) << ' ' << FunctionOf(change) << ": " << run.Describe();
}

// --- AddDriverList ---

Expectation ExpectList(Form form, const SessionCase& run, const DriverList& list,
                       const Script& script)
{
    // A package that fails does not fail the session.
    const Operation operation{"", true, [&](Expectation& call) {
                                  for (size_t i = 0; i < list.paths.size(); ++i)
                                      ExpectPass(call, i, list);
                                  return S_OK;
                              }};
    return ExpectSession(form, run, operation, script);
}

void RunList(Platform& platform, Form form, const SessionCase& run, const DriverList& list)
{
    PrepareSession(platform, run);
    for (size_t i = 0; i < list.paths.size(); ++i)
        platform.Name(list.paths[i], NameOfPath(i));
    platform.Answer("DismAddDriver", {list.results.begin(), list.results.end()});
    platform.Returned(KestroLibrary::Get().Call("AddDriverList", form, run.result_file, run.image,
                                                list.paths.data(), run.log_file));
}

testing::AssertionResult ListDoesWhatItHasTo(Form form, const SessionCase& run,
                                             const DriverList& list, const Script& script)
{
    Platform platform(script);
    RunList(platform, form, run, list);
    if (platform.live_copies != 0)
        return testing::AssertionFailure() << platform.live_copies << " copies left";
    return SameTranscript(ExpectList(form, run, list, script).Events(), platform.Recorded())
           << NameOf(form) << ": " << run.Describe();
}

// --- GetDrivers ---

Expectation ExpectListing(Form form, const SessionCase& run, const std::vector<Package>& packages,
                          const Script& script)
{
    const Operation operation{
        "DISM_GETDRIVERS", false, [&](Expectation& call) {
            call.Call("DismGetDrivers(7, 0, slot of NULL, slot of 0)", run.operation);
            if (run.operation < 0) {
                call.ReportFailure("DISM_GETDRIVERS", "DismGetDrivers", run.operation);
                return run.operation;
            }
            if (packages.empty())
                call.Log("No third party drivers found inside the image.");
            call.ConsoleWide(L"\n\nThese are the third party drivers from the image:\n\n");
            call.Log("These are the third party drivers from the image.");
            for (unsigned i = 0; i < packages.size(); ++i)
                ExpectPackage(call, i, packages[i]);
            call.Write("DISM_GETDRIVERS", "Result", "OK");
            return run.operation;
        }};
    return ExpectSession(form, run, operation, script);
}

void RunListing(Platform& platform, Form form, const SessionCase& run,
                const std::vector<Package>& packages)
{
    const PackageRecords records(packages);
    PrepareSession(platform, run);
    platform.Answer("DismGetDrivers", {run.operation});
    platform.packages = records.First(packages.size());
    platform.package_count = static_cast<UINT>(packages.size());
    platform.Returned(
        KestroLibrary::Get().Call("GetDrivers", form, run.result_file, run.image, run.log_file));
}

testing::AssertionResult ListingDoesWhatItHasTo(Form form, const SessionCase& run,
                                                const std::vector<Package>& packages,
                                                const Script& script)
{
    Platform platform(script);
    RunListing(platform, form, run, packages);
    if (platform.live_copies != 0)
        return testing::AssertionFailure() << platform.live_copies << " copies left";
    return SameTranscript(ExpectListing(form, run, packages, script).Events(), platform.Recorded())
           << NameOf(form) << ": " << run.Describe();
}

// --- GetDriverInfo ---

Expectation ExpectDetails(Form form, const SessionCase& run, const wchar_t* driver,
                          const Script& script)
{
    Session session(form, run, script);
    if (!session.Open())
        return session.Steps();
    Expectation& call = session.Steps();
    call.Call("DismGetDriverInfo(7, " + Shown(driver, "DriverPath") +
                  ", slot of NULL, slot of 0, slot of NULL)",
              run.operation);
    if (run.operation >= 0)
        return call.Returns(static_cast<unsigned>(run.operation) & 0xFF);
    call.ConsoleWide(L"DismGetDriverInfo Failed: " + Hexadecimal(run.operation) + L"\n");
    session.CleanUp(run.operation);
    return call;
}

void RunDetails(Platform& platform, Form form, const SessionCase& run, const wchar_t* driver)
{
    PrepareSession(platform, run);
    platform.Name(driver, "DriverPath");
    platform.Answer("DismGetDriverInfo", {run.operation});
    platform.Returned(KestroLibrary::Get().Call("GetDriverInfo", form, run.result_file, run.image,
                                                driver, run.log_file));
}

testing::AssertionResult DetailsDoWhatTheyHaveTo(Form form, const SessionCase& run,
                                                 const wchar_t* driver, const Script& script)
{
    Platform platform(script);
    RunDetails(platform, form, run, driver);
    return SameTranscript(ExpectDetails(form, run, driver, script).Events(), platform.Recorded())
           << NameOf(form) << ": " << run.Describe();
}

} // namespace kestro::test
