// vdsclient.cpp - kestro_vdsclient.dll: what COM loads into a client that asks for the disk service. It finds
// the service that runs now, or has the service manager start it.
#include "../service_names.h"

#include <windows.h>

#include <objbase.h>
#include <servprov.h>

#include <winsvc.h>

namespace kestro::vds {
namespace {

constexpr DWORD kPatience = 30000; // milliseconds for the service to start
constexpr DWORD kPause = 10;

// What each object here is: one for the whole life of the DLL.
template <class... Interfaces>
class Permanent : public Interfaces... {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        *object = nullptr;
        static_cast<void>((Offer<Interfaces>(id, object) || ...));
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

  private:
    template <class Interface>
    bool Offer(REFIID id, void** object)
    {
        if (!IsEqualIID(id, __uuidof(Interface)) && !IsEqualIID(id, IID_IUnknown))
            return false;
        *object = static_cast<Interface*>(this);
        return true;
    }
};

class PermanentFactory : public Permanent<IClassFactory> {
  public:
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

// --- the service ----------------------------------------------------------------------------------------

// The factory of the service that runs, or ran.
HRESULT Factory(IClassFactory** factory)
{
    BYTE bytes[1024];
    DWORD size = sizeof bytes;
    const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, kFactoryKey, kFactoryValue,
                                        RRF_RT_REG_BINARY, nullptr, bytes, &size);
    if (status != ERROR_SUCCESS)
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    IStream* stream = nullptr;
    HRESULT result = CreateStreamOnHGlobal(nullptr, TRUE, &stream);
    if (FAILED(result))
        return result;
    result = stream->Write(bytes, size, nullptr);
    if (SUCCEEDED(result))
        result = stream->Seek({}, STREAM_SEEK_SET, nullptr);
    if (SUCCEEDED(result))
        result = CoUnmarshalInterface(stream, IID_IClassFactory, reinterpret_cast<void**>(factory));
    stream->Release();
    return result;
}

HRESULT AskTheService(REFIID id, void** object)
{
    IClassFactory* factory = nullptr;
    HRESULT result = Factory(&factory);
    if (FAILED(result))
        return result;
    result = factory->CreateInstance(nullptr, id, object);
    factory->Release();
    return result;
}

// Has the service started, when it does not run. The error of a start that the service manager refuses.
DWORD Start()
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (manager == nullptr)
        return GetLastError();
    DWORD error = ERROR_SUCCESS;
    const SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_START);
    if (service == nullptr || !StartServiceW(service, 0, nullptr))
        error = GetLastError();
    if (service != nullptr)
        CloseServiceHandle(service);
    CloseServiceHandle(manager);
    // One that is ending is started again as soon as it has.
    const bool underWay = error == ERROR_SERVICE_ALREADY_RUNNING ||
                          error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL ||
                          error == ERROR_SERVICE_REQUEST_TIMEOUT;
    return underWay ? ERROR_SUCCESS : error;
}

class LoaderFactory final : public PermanentFactory {
  public:
    // Until the service answers. One that died is out of reach, whatever COM calls that.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        *object = nullptr;
        if (outer != nullptr)
            return CLASS_E_NOAGGREGATION;
        const ULONGLONG end = GetTickCount64() + kPatience;
        for (;;) {
            const HRESULT result = AskTheService(id, object);
            if (SUCCEEDED(result) || result == E_NOINTERFACE || GetTickCount64() >= end)
                return result;
            if (const DWORD error = Start(); error != ERROR_SUCCESS)
                return HRESULT_FROM_WIN32(error);
            Sleep(kPause);
        }
    }
} g_loaderFactory;

// --- what the table of running classes leads to -----------------------------------------------------------

class Reference final : public Permanent<IServiceProvider, IMarshal> {
  public:
    HRESULT STDMETHODCALLTYPE QueryService(REFGUID service, REFIID id, void** object) override
    {
        *object = nullptr;
        return IsEqualGUID(service, kLoaderClass) ? g_loaderFactory.QueryInterface(id, object)
                                                  : CLASS_E_CLASSNOTAVAILABLE;
    }

    HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream*, REFIID id, void** object) override
    {
        return QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD,
                                                CLSID* id) override
    {
        *id = kReferenceClass;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD,
                                                DWORD* size) override
    {
        *size = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE MarshalInterface(IStream*, REFIID, void*, DWORD, void*,
                                               DWORD) override
    {
        return S_OK;
    }
} g_reference;

class ReferenceFactory final : public PermanentFactory {
  public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        *object = nullptr;
        return outer != nullptr ? CLASS_E_NOAGGREGATION : g_reference.QueryInterface(id, object);
    }
} g_referenceFactory;

} // namespace
} // namespace kestro::vds

STDAPI DllGetClassObject(REFCLSID id, REFIID interfaceId, void** object)
{
    using namespace kestro::vds;
    *object = nullptr;
    return IsEqualCLSID(id, kReferenceClass)
               ? g_referenceFactory.QueryInterface(interfaceId, object)
               : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
