// output.h - what the host shows: progress and errors on standard error, results on standard output,
// for people or as JSON.
#pragma once

#include "call.h"

#include <nlohmann/json.hpp>

#include <string>

namespace kestro::host {

class Output {
  public:
    explicit Output(bool json) : json_(json) {}

    bool Json() const { return json_; }
    // Headlines and log lines while work goes on. Silent with --json.
    void Progress(const std::string& text) const;
    Follower LogFollower() const;
    // The steps with their outcomes, and what failed.
    void Steps(const Report& report) const;
    void Failed(const std::string& what, std::int32_t code, std::int32_t lastError) const;
    void Line(const std::string& text) const;
    void Error(const std::string& text) const;
    // The one JSON document of a command.
    void Document(const nlohmann::json& document) const;

  private:
    bool json_;
};

nlohmann::json ToJson(const Report& report);
nlohmann::json CodeToJson(std::int32_t code);

} // namespace kestro::host
