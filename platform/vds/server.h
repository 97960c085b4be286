// server.h - the life of the service's process: started by COM, ended when nobody needs it.
#pragma once

#include <windows.h>

namespace kestro::vds {

// Objects that live and operations that run. The process ends with the last of its one client's objects, or
// with the client itself, which may have left some behind; an operation is brought to its end first.
class ServerActivity {
  public:
    static void Entered();
    static void Left();
    static void OperationBegan();
    static void OperationEnded();
    // The process that the objects are for: when it ends, nobody needs them any more. False when it cannot be
    // watched.
    static bool ServeOnly(DWORD client);
    // Returns when the process may end.
    static void WaitUntilIdle();
};

} // namespace kestro::vds
