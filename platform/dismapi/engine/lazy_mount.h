// lazy_mount.h - an image that is shown and not extracted: a process of its own shows what the image file
// holds, an overlay above it takes the changes. Read-only there is no overlay.
#pragma once

#include "image_server.h"
#include "mount_record.h"
#include "servicing_error.h"

#include <string>

namespace kestro::servicing {

// The layers lie on a file system that no overlay can use.
class LayersUnfit : public ServicingError {
  public:
    using ServicingError::ServicingError;
};

// What can be said of a lazy mount without touching it.
enum class MountPresence {
    Whole,
    Broken,    // nothing is mounted, or nobody serves it: it can be put back
    Covered,   // something else is mounted over it
    Elsewhere, // it is mounted where this process does not see it
};

// The mounts of one record, by its `layers`: a folder with
//   served    locked by the serving process
//   lower     where the image is mounted
//   upper     what has changed, as the overlay writes it down
//   work      the overlay's own
class LazyMount {
  public:
    // `name` is what the mounts are called in the system's lists; `mountLock` the lock of the record, while it
    // is held.
    LazyMount(const MountRecord& record, std::string name, std::string serverProgram,
              int mountLock);
    // To ask where the layers are.
    explicit LazyMount(const MountRecord& record) : LazyMount(record, {}, {}, -1) {}

    // Throws when the system lets no lazy mounts be made at all.
    static void RequireSystem();

    // Everything below throws ServicingError.
    MountPresence Look() const;
    void MakeLayers() const;
    void Mount() const; // LayersUnfit
    // Takes the mount off its directory; the image stays served. Throws partly_unmounted when the mount is
    // in use, and changes nothing.
    void TakeOff() const;
    void PutOn() const;
    // Takes off what is broken.
    void Clear() const;
    // When nothing is on the directory any more: the serving process ends, and the layers are removed. False
    // when another mount namespace still shows the image: the layers stay as long as it does.
    bool Remove() const;

    std::string Upper() const { return layers_ + "/upper"; }

  private:
    std::string Lock() const { return layers_ + "/served"; }
    std::string Lower() const { return layers_ + "/lower"; }
    std::string Work() const { return layers_ + "/work"; }
    void Serve() const;

    std::string image_, directory_, layers_, name_, serverProgram_;
    unsigned index_;
    int mountLock_;
    bool readOnly_;
};

} // namespace kestro::servicing
