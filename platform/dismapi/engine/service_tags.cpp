// service_tags.cpp - the numbers that order the drivers of one load order group.
#include "service_tags.h"

#include "image_tree.h"

#include <algorithm>

namespace kestro::servicing {

// Control\GroupOrderList has a value for each group: how many tags, then the tags in their order.
std::vector<std::uint32_t> ServiceTags::Order(const std::string& group) const
{
    const auto value =
        system_.Value(system_.Find(controlSet_ + "\\Control\\GroupOrderList"), group);
    std::vector<std::uint32_t> tags;
    for (std::size_t at = 4; value && at + 4 <= value->data.size(); at += 4)
        tags.push_back(NumberOf({"", registry::number, value->data.substr(at, 4)}));
    return tags;
}

void ServiceTags::SetOrder(const std::string& group, const std::vector<std::uint32_t>& tags)
{
    const HiveFile::Key list = system_.Make(controlSet_ + "\\Control\\GroupOrderList");
    if (tags.empty()) {
        system_.RemoveValue(list, group);
        return;
    }
    std::string bytes = NumberBytes(tags.size(), 4);
    for (const auto tag : tags)
        bytes += NumberBytes(tag, 4);
    system_.Set(list, {BytesValue(group, bytes)});
}

std::set<std::uint32_t> ServiceTags::TagsOfOthers(HiveFile::Key service,
                                                  const std::string& group) const
{
    std::set<std::uint32_t> tags;
    for (const auto other : system_.Children(system_.Find(controlSet_ + "\\Services"))) {
        const auto tag = other == service ? std::nullopt : system_.Value(other, "Tag");
        const auto itsGroup = tag ? system_.Value(other, "Group") : std::nullopt;
        if (itsGroup && EqualNames(TextOf(*itsGroup), group))
            tags.insert(NumberOf(*tag));
    }
    return tags;
}

void ServiceTags::Give(HiveFile::Key service, const std::string& group, bool toFront)
{
    auto order = Order(group);
    if (const auto there = system_.Value(service, "Tag")) {
        if (std::find(order.begin(), order.end(), NumberOf(*there)) != order.end())
            return;
        order.push_back(NumberOf(*there));
        SetOrder(group, order);
        return;
    }
    const auto taken = TagsOfOthers(service, group);
    std::uint32_t tag = 1;
    while (taken.contains(tag) || std::find(order.begin(), order.end(), tag) != order.end())
        ++tag;
    order.insert(toFront ? order.begin() : order.end(), tag);
    SetOrder(group, order);
    system_.Set(service, {NumberValue("Tag", tag)});
}

void ServiceTags::TakeBack(HiveFile::Key service)
{
    const auto tag = system_.Value(service, "Tag");
    const auto group = system_.Value(service, "Group");
    if (!tag || !group || TagsOfOthers(service, TextOf(*group)).contains(NumberOf(*tag)))
        return;
    auto order = Order(TextOf(*group));
    if (std::erase(order, NumberOf(*tag)) != 0)
        SetOrder(TextOf(*group), order);
}

} // namespace kestro::servicing
