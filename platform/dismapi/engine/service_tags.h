// service_tags.h - the numbers that order the drivers of one load order group.
#pragma once

#include "hive_file.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace kestro::servicing {

class ServiceTags {
  public:
    ServiceTags(HiveFile& system, std::string controlSet)
        : system_(system), controlSet_(std::move(controlSet))
    {
    }

    // A service that has a tag keeps it.
    void Give(HiveFile::Key service, const std::string& group, bool toFront);
    // Before the service itself goes.
    void TakeBack(HiveFile::Key service);

  private:
    std::vector<std::uint32_t> Order(const std::string& group) const;
    void SetOrder(const std::string& group, const std::vector<std::uint32_t>& tags);
    // Of all services of the group but one.
    std::set<std::uint32_t> TagsOfOthers(HiveFile::Key service, const std::string& group) const;

    HiveFile& system_;
    std::string controlSet_;
};

} // namespace kestro::servicing
