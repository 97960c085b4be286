// com_slot.h - objects that a call leaves where it says so.
#pragma once

#include <utility>

#include <unknwn.h>
#include <windows.h>

namespace kestro::library {

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

// What a call on an object comes to that the service said it handed out, and did not.
inline constexpr HRESULT kNoObject = E_POINTER;

template <class T, class... Parameters, class... Arguments>
HRESULT CallOn(T* object, HRESULT (STDMETHODCALLTYPE T::*method)(Parameters...),
               Arguments... arguments)
{
    return object != nullptr ? (object->*method)(arguments...) : kNoObject;
}

// QueryInterface for the slot's own interface.
template <class T>
HRESULT Convert(IUnknown* object, ComSlot<T>& slot)
{
    void** const converted = reinterpret_cast<void**>(slot.Put());
    return object != nullptr ? object->QueryInterface(__uuidof(T), converted) : kNoObject;
}

} // namespace kestro::library
