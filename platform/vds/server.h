// server.h - the life of the service's process: started by COM, ended when nobody needs it.
#pragma once

#include <windows.h>

namespace kestro::vds {

// Objects that live and operations that run. The process ends a while after the last one has gone, and
// also when clients that were killed have left their objects behind and nothing is asked any more.
class ServerActivity {
  public:
    static void Entered();
    static void Left();
    static void OperationBegan();
    static void OperationEnded();
    // A call came in.
    static void Called();
    // Returns when the process may end.
    static void WaitUntilIdle();
};

} // namespace kestro::vds
