// questions.h - what the system's own services are asked through the library's functions.
#ifndef KESTRO_CHECK_QUESTIONS_H
#define KESTRO_CHECK_QUESTIONS_H

#include <filesystem>
#include <string>
#include <vector>

namespace kestro::check {

// The questions share these files; they are asked in the order of QuestionNames().
struct Place {
    std::filesystem::path library, image, folder;

    std::filesystem::path ResultFile(const std::string& question) const
    {
        return folder / (question + ".ini");
    }
};

std::vector<std::string> QuestionNames();

// Makes the question's call; what it returned, as text.
std::string Ask(const std::string& question, const Place& place);

} // namespace kestro::check

#endif
