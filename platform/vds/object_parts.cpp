// object_parts.cpp - what the service's objects hand out in their answers.
#include "object_parts.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kestro::vds {
namespace {

class Enumerator final : public ComObject<IEnumVdsObject> {
  public:
    explicit Enumerator(Objects objects, std::size_t next = 0)
        : objects_(std::move(objects)), next_(next)
    {
    }

    HRESULT STDMETHODCALLTYPE Next(ULONG count, IUnknown** objects, ULONG* fetched) override
    {
        if (objects == nullptr || fetched == nullptr)
            return E_INVALIDARG;
        *fetched = 0;
        for (ULONG i = 0; i < count; ++i)
            objects[i] = nullptr;
        while (*fetched < count && next_ < objects_.size()) {
            objects[*fetched] = objects_[next_++];
            objects[(*fetched)++]->AddRef();
        }
        return *fetched == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const std::size_t left = objects_.size() - next_;
        next_ += std::min<std::size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        next_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumVdsObject** clone) override
    {
        if (clone == nullptr)
            return E_INVALIDARG;
        for (IUnknown* object : objects_)
            object->AddRef();
        *clone = New<Enumerator>(objects_, next_);
        return S_OK;
    }

  private:
    ~Enumerator() override
    {
        for (IUnknown* object : objects_)
            object->Release();
    }

    Objects objects_;
    std::size_t next_;
};

} // namespace

WCHAR* TaskString(const std::wstring& text)
{
    const std::size_t size = (text.size() + 1) * sizeof(WCHAR);
    auto* const copy = static_cast<WCHAR*>(CoTaskMemAlloc(size));
    if (copy != nullptr)
        std::memcpy(copy, text.c_str(), size);
    return copy;
}

GUID IdOf(const wchar_t* kind, const std::wstring& name)
{
    const std::wstring text = kind + (L"\\" + name);
    std::uint64_t halves[2] = {0xcbf29ce484222325, 0x84222325cbf29ce4};
    for (const wchar_t letter : text)
        for (std::uint64_t& half : halves)
            half = (half ^ letter) * 0x100000001b3;
    GUID id;
    std::memcpy(&id, halves, sizeof id);
    return id;
}

HRESULT Enumerate(Objects objects, IEnumVdsObject** enumerator)
{
    if (enumerator == nullptr)
        return E_INVALIDARG;
    *enumerator = New<Enumerator>(std::move(objects));
    return S_OK;
}

} // namespace kestro::vds
