// client_objects.h - which client each object of the service is for. COM under Wine does not notice that a
// client ended: what it left behind goes here.
#pragma once

#include <windows.h>

#include <atomic>

namespace kestro::vds {

class ClientObject {
  public:
    ClientObject() = default;
    ClientObject(const ClientObject&) = delete;
    ClientObject& operator=(const ClientObject&) = delete;

    // Notes the finished object under the client whose call is under way.
    void NoteClient();

  protected:
    virtual ~ClientObject();
    virtual IUnknown* Identity() = 0;

    std::atomic<ULONG> references_ = 1;

  private:
    friend void ForgetClient(DWORD client);
    // A reference, unless the last one has been given back already: such an object is going.
    bool HoldIfAlive();

    DWORD client_ = 0;
};

} // namespace kestro::vds
