// image_api.cpp - what image files hold.
#include "api_state.h"
#include "image_records.h"

using namespace kestro::servicing;

extern "C" HRESULT WINAPI DismGetImageInfo(PCWSTR imageFile, DismImageInfo** imageInfo, UINT* count)
{
    return ServeInitialized("DismGetImageInfo", [&](ApiState& state) -> HRESULT {
        if (imageInfo == nullptr || count == nullptr)
            Refuse(code::invalid_parameter, "the place for the images or their number is missing");
        const std::string file = HostPath(imageFile);
        const std::vector<ImageInfo> images = ReadImageInfo(file);
        *imageInfo = MakeImageRecords(images);
        *count = static_cast<UINT>(images.size());
        state.log.Info(file + " holds " + std::to_string(*count) + " images");
        return S_OK;
    });
}
