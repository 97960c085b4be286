// class_registration.cpp - how clients find the running service.
//
// Wine's table of running classes (in rpcss.exe) keeps what a process put there after that process died, and
// sends every later client to the dead one. So the table does not get the factory itself, as
// CoRegisterClassObject would put it there, but a reference that is always good: an object of custom
// marshalling, whose class in kestro_vdsclient.dll finds the service that runs now, or starts it.
#include "class_registration.h"

#include "disk_list.h"
#include "service_names.h"

#include <cstring>
#include <objbase.h>
#include <rpc.h>
#include <string>

#include <rpcdcep.h>

namespace kestro::vds {
namespace {

using Bytes = std::string;

template <class Number>
void Append(Bytes& bytes, const Number& number)
{
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// As DCOM lays it out; it carries no data of its own.
Bytes ReferenceToTheClient()
{
    constexpr DWORD signature = 0x574F454D, custom = 4;
    Bytes bytes;
    Append(bytes, signature);
    Append(bytes, custom);
    Append(bytes, IID_IServiceProvider);
    Append(bytes, kReferenceClass);
    Append(bytes, DWORD{0});
    Append(bytes, DWORD{0});
    return bytes;
}

// --- Wine's table of running classes --------------------------------------------------------------------

RPC_BINDING_HANDLE Connect()
{
    unsigned char text[] = "ncalrpc:[irpcss]";
    RPC_BINDING_HANDLE binding = nullptr;
    return RpcBindingFromStringBindingA(text, &binding) == RPC_S_OK ? binding : nullptr;
}

// The table's first procedure: class, flags and object in, cookie and result out.
HRESULT SendRegistration(RPC_BINDING_HANDLE binding, const Bytes& object)
{
    RPC_CLIENT_INTERFACE table = {};
    table.Length = sizeof table;
    table.InterfaceId.SyntaxGUID = {
        0x85da4974, 0xedc7, 0x40ff, {0xba, 0xd4, 0x9c, 0x45, 0x25, 0xa8, 0xd0, 0x44}};
    table.TransferSyntax = {
        {0x8a885d04, 0x1ceb, 0x11c9, {0x9f, 0xe8, 0x08, 0x00, 0x2b, 0x10, 0x48, 0x60}}, {2, 0}};

    const auto size = static_cast<DWORD>(object.size());
    Bytes request;
    Append(request, kLoaderClass);
    Append(request, DWORD{REGCLS_MULTIPLEUSE});
    Append(request, DWORD{1}); // the object is there
    Append(request, size);
    Append(request, size);
    request += object;

    RPC_MESSAGE message = {};
    message.Handle = binding;
    message.DataRepresentation = 0x10; // little-endian, ASCII, IEEE
    message.RpcInterfaceInformation = &table;
    message.BufferLength = static_cast<unsigned>(request.size());
    RPC_STATUS status = I_RpcNegotiateTransferSyntax(&message);
    if (status == RPC_S_OK)
        status = I_RpcGetBuffer(&message);
    if (status != RPC_S_OK)
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    std::memcpy(message.Buffer, request.data(), request.size());
    status = I_RpcSendReceive(&message);
    if (status != RPC_S_OK)
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    HRESULT result = E_UNEXPECTED;
    if (message.BufferLength >= 2 * sizeof(DWORD))
        std::memcpy(&result, static_cast<const char*>(message.Buffer) + sizeof(DWORD),
                    sizeof result);
    I_RpcFreeBuffer(&message);
    return result;
}

bool EnterIntoTable()
{
    const RPC_BINDING_HANDLE binding = Connect();
    if (binding == nullptr)
        return false;
    const HRESULT result = SendRegistration(binding, ReferenceToTheClient());
    RPC_BINDING_HANDLE given = binding;
    RpcBindingFree(&given);
    if (FAILED(result))
        Log(L"Wine's table of running classes answers " +
            std::to_wstring(static_cast<unsigned long>(result)));
    return SUCCEEDED(result);
}

// --- the way to the factory -----------------------------------------------------------------------------

Bytes Marshalled(IClassFactory* factory)
{
    IStream* stream = nullptr;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &stream)))
        return {};
    Bytes bytes;
    HGLOBAL memory = nullptr;
    STATSTG about = {};
    if (SUCCEEDED(CoMarshalInterface(stream, IID_IClassFactory, factory, MSHCTX_LOCAL, nullptr,
                                     MSHLFLAGS_TABLESTRONG)) &&
        SUCCEEDED(GetHGlobalFromStream(stream, &memory)) &&
        SUCCEEDED(stream->Stat(&about, STATFLAG_NONAME))) {
        bytes.assign(static_cast<const char*>(GlobalLock(memory)), about.cbSize.LowPart);
        GlobalUnlock(memory);
    }
    stream->Release();
    return bytes;
}

bool WriteFactory(const Bytes& bytes)
{
    HKEY key = nullptr;
    if (bytes.empty() ||
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kFactoryKey, 0, nullptr, REG_OPTION_VOLATILE,
                        KEY_SET_VALUE, nullptr, &key, nullptr) != ERROR_SUCCESS)
        return false;
    const LSTATUS status = RegSetValueExW(key, kFactoryValue, 0, REG_BINARY,
                                          reinterpret_cast<const BYTE*>(bytes.data()),
                                          static_cast<DWORD>(bytes.size()));
    RegCloseKey(key);
    return status == ERROR_SUCCESS;
}

} // namespace

bool PublishLoader(IClassFactory* factory)
{
    return WriteFactory(Marshalled(factory)) && EnterIntoTable();
}

} // namespace kestro::vds
