// client_objects.cpp - which client each object of the service is for.
#include "client_objects.h"

#include "disk_list.h"

#include <map>
#include <mutex>
#include <objbase.h>
#include <rpc.h>
#include <set>
#include <thread>
#include <vector>

#include <rpcdcep.h>

namespace kestro::vds {
namespace {

std::mutex g_objectsMutex;
std::map<DWORD, std::set<ClientObject*>> g_clients;

} // namespace

// Takes COM's references off all that the client left.
void ForgetClient(DWORD client)
{
    std::vector<ClientObject*> left;
    {
        const std::lock_guard lock(g_objectsMutex);
        for (ClientObject* object : g_clients[client])
            if (object->HoldIfAlive())
                left.push_back(object);
        g_clients.erase(client);
    }
    for (ClientObject* object : left) {
        IUnknown* const identity = object->Identity();
        CoDisconnectObject(identity, 0);
        identity->Release();
    }
    if (!left.empty())
        Log(L"a client ended and left " + std::to_wstring(left.size()) + L" objects behind");
}

namespace {

bool Watch(DWORD client)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, client);
    if (process == nullptr)
        return false;
    std::thread([process, client] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        WaitForSingleObject(process, INFINITE);
        CloseHandle(process);
        ForgetClient(client);
        CoUninitialize();
    }).detach();
    return true;
}

DWORD CallingClient()
{
    ULONG client = 0;
    return I_RpcBindingInqLocalClientPID(nullptr, &client) == RPC_S_OK ? client : 0;
}

} // namespace

void ClientObject::NoteClient()
{
    const DWORD client = CallingClient();
    const std::lock_guard lock(g_objectsMutex);
    if (client == 0 || !(g_clients.contains(client) || Watch(client)))
        return; // it lives until it is given back
    g_clients[client].insert(this);
    client_ = client;
}

bool ClientObject::HoldIfAlive()
{
    ULONG references = references_;
    while (references != 0)
        if (references_.compare_exchange_weak(references, references + 1))
            return true;
    return false;
}

ClientObject::~ClientObject()
{
    const std::lock_guard lock(g_objectsMutex);
    if (const auto client = g_clients.find(client_); client != g_clients.end())
        client->second.erase(this);
}

} // namespace kestro::vds
