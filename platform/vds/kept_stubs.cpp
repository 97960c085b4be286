// kept_stubs.cpp - a stub of every interface that stays as long as the service runs.
//
// With the last stub of an interface Wine takes the interface off its RPC runtime and waits until no call on it
// is under way. A call that ends at that very moment is waited for in vain, and from then on nobody gets a stub
// of anything: the service hangs, for all its clients. So no stub is the last one.
#include "kept_stubs.h"

#include "disk_list.h"

#include <vds_interfaces.h>

#include <objbase.h>

#include <string>

namespace kestro::vds {
namespace {

// Nobody ever calls it: what leads to it is thrown away.
class Anchor final : public IUnknown {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        for (const IID& kept : kIds)
            if (IsEqualIID(id, kept)) {
                *object = this;
                return S_OK;
            }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    // Those of which clients get objects.
    static constexpr IID kIds[] = {
        __uuidof(IUnknown),       __uuidof(IVdsServiceLoader), __uuidof(IVdsService),
        __uuidof(IEnumVdsObject), __uuidof(IVdsProvider),      __uuidof(IVdsSwProvider),
        __uuidof(IVdsPack),       __uuidof(IVdsDisk),          __uuidof(IVdsAdvancedDisk),
        __uuidof(IVdsAsync),      __uuidof(IVdsDiskOnline)};
};

} // namespace

void KeepStubs()
{
    static Anchor anchor;
    for (const IID& id : Anchor::kIds) {
        IStream* stream = nullptr;
        HRESULT result = CreateStreamOnHGlobal(nullptr, TRUE, &stream);
        if (SUCCEEDED(result)) {
            result = CoMarshalInterface(stream, id, &anchor, MSHCTX_LOCAL, nullptr,
                                        MSHLFLAGS_TABLESTRONG);
            stream->Release();
        }
        if (FAILED(result))
            Log(L"the service cannot keep a stub: " +
                std::to_wstring(static_cast<unsigned long>(result)));
    }
}

} // namespace kestro::vds
