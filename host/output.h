// output.h - what the host shows: progress and errors on standard error, results on standard output,
// for people or as JSON.
#pragma once

#include "call.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace kestro::host {

class Output {
  public:
    explicit Output(bool json) : json_(json) {}

    bool Json() const { return json_; }
    // Headlines and log lines while work goes on. Silent with --json.
    void Progress(const std::string& text) const;
    Follower LogFollower() const;
    // One line of a terminal that is written over again and again while work goes on; nowhere else.
    bool IsLive() const;
    void Live(std::chrono::milliseconds since) const;
    // What a live line says besides the time.
    void SetPercent(std::uint64_t done, std::uint64_t of) const;
    void EndLive() const;
    // Shows how far a call has come, and lets a request to end cancel it.
    Watch LiveWatch() const;
    // The steps with their outcomes, and what failed.
    void Steps(const Report& report) const;
    void Failed(const std::string& what, std::int32_t code,
                std::optional<std::int32_t> lastError = {}) const;
    void Line(const std::string& text) const;
    void Error(const std::string& text) const;
    // Ready lines, as they are.
    void Text(const std::string& text, bool asError) const;
    // The one JSON document of a command. While documents are gathered it is kept for the one who gathers.
    void Document(const nlohmann::json& document);
    void Gather() { gathered_ = nlohmann::json::array(); }
    nlohmann::json Gathered() { return std::exchange(gathered_, nlohmann::json()); }

  private:
    void Write(std::FILE* stream, DWORD handle, const std::string& text) const;
    void Clear() const;

    bool json_;
    mutable std::mutex mutex_;     // a live line is written by a thread of its own
    mutable std::size_t live_ = 0; // how long the line is that is written over
    mutable std::atomic<int> percent_ = -1;
    nlohmann::json gathered_; // an array while documents are gathered
};

nlohmann::json ToJson(const Report& report);
nlohmann::json CodeToJson(std::int32_t code);

} // namespace kestro::host
