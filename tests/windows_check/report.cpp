// report.cpp - what was found, for people and for programs.
#include "report.h"

#include <sstream>

namespace kestro::check {
namespace {

using nlohmann::ordered_json;

struct Part {
    const char* name;
    const char* key; // of a record's name
    const char* heading;
};

const Part kParts[] = {
    {"programs", "program", "Tests that bring their own doubles"},
    {"printed", "call", "What the library prints"},
    {"questions", "question", "What the system's own services answered"},
};

// Strings as they are, everything else as JSON.
std::string TextOf(const ordered_json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

void ShowLines(std::ostream& out, const char* mark, const ordered_json& value)
{
    const ordered_json lines = value.is_array() ? value : ordered_json::array({value});
    if (lines.empty())
        out << "        " << mark << " (nothing)\n";
    for (const ordered_json& line : lines)
        out << "        " << mark << ' ' << TextOf(line) << '\n';
}

void ShowDifference(std::ostream& out, const ordered_json& record)
{
    if (record.contains("ended"))
        out << "      ended " << TextOf(record["ended"]) << '\n';
    if (record.contains("failed"))
        for (const ordered_json& test : record["failed"])
            out << "      " << TextOf(test["test"]) << '\n';
    if (!record.contains("expected"))
        return;
    for (const auto& [field, wanted] : record["expected"].items()) {
        if (record["found"][field] == wanted)
            continue;
        out << "      " << field << ", - expected, + found:\n";
        ShowLines(out, "-", wanted);
        ShowLines(out, "+", record["found"][field]);
    }
}

} // namespace

std::size_t Differences(const ordered_json& report)
{
    std::size_t count = 0;
    for (const Part& part : kParts)
        for (const ordered_json& record : report.at(part.name))
            count += record.at("passed") ? 0U : 1U;
    return count;
}

std::string ReadableReport(const ordered_json& report)
{
    std::ostringstream out;
    out << "Kestro " << TextOf(report["kestro"]) << ", " << Differences(report)
        << " difference(s)\n\n";
    for (const auto& [name, value] : report["system"].items())
        out << "  " << name << ": " << TextOf(value) << '\n';
    for (const Part& part : kParts) {
        out << '\n' << part.heading << '\n';
        for (const ordered_json& record : report[part.name]) {
            out << (record["passed"] ? "  same       " : "  DIFFERENT  ")
                << TextOf(record[part.key]);
            if (record.contains("tests"))
                out << " (" << record["tests"] << " tests)";
            out << '\n';
            if (!record["passed"])
                ShowDifference(out, record);
        }
    }
    out << '\n';
    for (const ordered_json& remark : report["remarks"])
        out << TextOf(remark) << '\n';
    return out.str();
}

} // namespace kestro::check
