// disk_model.h - what the three disk exports have to do with a given disk service.
#pragma once

#include "matrix/disk_service.h"
#include "matrix/model.h"

namespace kestro::test {

enum class DiskAction { clean, online, offline };

struct DiskRequest {
    DiskAction action;
    const wchar_t* disk; // goes by the name diskName
    std::array<unsigned char, 3> flags{0, 1, 200};
};

ExpectedEvents PredictDisk(const Situation& situation, const DiskWorld& world,
                           const DiskRequest& request);

} // namespace kestro::test
