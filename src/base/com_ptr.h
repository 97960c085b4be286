// com_ptr.h - owners of COM objects.
#pragma once

#include <utility>

namespace kestro::library {

// Owns one reference, given back at the end of the scope.
template <class T>
class ComPtr {
  public:
    ComPtr() = default;
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ~ComPtr() { Release(); }

    T* Get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

    // For a call that fills it in. The former object is released first.
    T** Put()
    {
        Release();
        return &object_;
    }
    void Release()
    {
        if (T* object = std::exchange(object_, nullptr))
            object->Release();
    }

  private:
    T* object_ = nullptr;
};

// One of a call's slots for objects of the service. It holds the latest object of its kind and is
// released only where the code says so: what a call leaves behind in the service is part of what a
// host can rely on, so nothing is given back behind its back.
template <class T>
class ComSlot {
  public:
    ComSlot() = default;
    ComSlot(const ComSlot&) = delete;
    ComSlot& operator=(const ComSlot&) = delete;

    T* Get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

    // For a call that fills it in. The former object is left as it is.
    T** Put()
    {
        object_ = nullptr;
        return &object_;
    }
    void Release()
    {
        if (T* object = std::exchange(object_, nullptr))
            object->Release();
    }

  private:
    T* object_ = nullptr;
};

} // namespace kestro::library
