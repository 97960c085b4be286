// interview.h - every question asked in a process of its own, its answer beside the expected one.
#ifndef KESTRO_CHECK_INTERVIEW_H
#define KESTRO_CHECK_INTERVIEW_H

#include "programs.h"

namespace kestro::check {

// One record for each question: what was expected, what was found. `expected` is the file of that name.
nlohmann::ordered_json Interview(const Folders& folders, const nlohmann::ordered_json& expected,
                                 bool wine, const Progress& progress);

// The other end: makes one question's call in this process and writes what it returned.
int AnswerOne(const std::string& question, const Folders& folders);

} // namespace kestro::check

#endif
