// com_object.h - what every object of the service has in common: its references and its interfaces.
#pragma once

#include "client_objects.h"

#include <windows.h>

#include <utility>

namespace kestro::vds {

template <class First, class... Others>
class ComObject : public First, public Others..., public ClientObject {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        *object = nullptr;
        if (IsEqualIID(id, __uuidof(IUnknown)))
            *object = Identity();
        else
            static_cast<void>((Offer<First>(id, object) || ... || Offer<Others>(id, object)));
        if (*object == nullptr)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references_;
        if (left == 0)
            delete this;
        return left;
    }

  private:
    IUnknown* Identity() override { return static_cast<First*>(this); }

    template <class Interface>
    bool Offer(REFIID id, void** object)
    {
        if (!IsEqualIID(id, __uuidof(Interface)))
            return false;
        *object = static_cast<Interface*>(this);
        return true;
    }
};

// Every object is made by this.
template <class Object, class... Arguments>
Object* New(Arguments&&... arguments)
{
    auto* const object = new Object(std::forward<Arguments>(arguments)...);
    object->NoteClient();
    return object;
}

} // namespace kestro::vds
