// com_object.h - what every object of the service has in common: its references and its interfaces.
#pragma once

#include "server.h"

#include <windows.h>

#include <atomic>

namespace kestro::vds {

// Counts as an open object for as long as it lives, which keeps the server running.
template <class First, class... Others>
class ComObject : public First, public Others... {
  public:
    ComObject() { ServerActivity::Entered(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        *object = nullptr;
        if (IsEqualIID(id, __uuidof(IUnknown)))
            *object = static_cast<First*>(this);
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

  protected:
    virtual ~ComObject() { ServerActivity::Left(); }

  private:
    template <class Interface>
    bool Offer(REFIID id, void** object)
    {
        if (!IsEqualIID(id, __uuidof(Interface)))
            return false;
        *object = static_cast<Interface*>(this);
        return true;
    }

    std::atomic<ULONG> references_ = 1;
};

} // namespace kestro::vds
