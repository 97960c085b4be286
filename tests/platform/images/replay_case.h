// replay_case.h - an image laid under an overlay by hand, and saved by replaying the overlay's upper
// directory onto libwim's read-write mount.
#pragma once

#include "image_case.h"
#include "upper_replay.h"

#include <map>
#include <string>

namespace kestro::test {

// Whether images can be mounted here, and overlays with an upper directory in the folder.
bool CanLayer(const fs::path& folder);

// What is below a directory: of each path the type, the time of last write to 100 ns, and the content,
// or where a link leads.
using View = std::map<std::string, std::string>;
View ViewOf(const fs::path& directory);

class ReplayCase : public ImageCase {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Mounts the image below a new overlay, in Mounted().
    void Lay();
    void TakeAway();
    // Saves what the overlay shows. It stays mounted.
    void Save(const servicing::Progress& progress = {});
    // The mount ended without a word; what was not saved comes back over the image as it now is.
    void PutBack();
    servicing::ReplayPlan Plan(const servicing::UpperState& now) const;
    // The image holds what the overlay shows.
    void ExpectSaved() const;
    std::string Details() const;
    std::string NewDirectory() const;

    std::string Lower() const { return folder_ / "lower"; }
    std::string Upper() const { return folder_ / ("upper" + std::to_string(generation_)); }
    std::string Work() const { return folder_ / ("work" + std::to_string(generation_)); }

    servicing::UpperState former_;

  private:
    int generation_ = 0;
};

} // namespace kestro::test

// For the beginning of a test or of a fixture's SetUp.
#define SKIP_UNLESS_LAYERED(folder)                                                                \
    if (!kestro::test::CanLayer(folder))                                                           \
    GTEST_SKIP() << "FUSE or overlays cannot be mounted here"
