// direct_command.h - what asks the servicing API itself, because no function of Kestro.dll offers it.
#pragma once

#include "commands.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestro::host {

// The servicing API's own log file for these options.
std::wstring LogFileOf(const Options& options);

// What a document says of a failed function.
nlohmann::json FailureToJson(const ServicingError& error);

// Works with the API while no function of Kestro.dll does. A failure of the API is shown and returned.
std::optional<ServicingError> WithServicing(const Context& context,
                                            const std::function<void(const Servicing&)>& work);

// Runs the work of a command and returns its exit code. The work adds its keys to the document, also before it
// fails; a failure of the API goes into it, too.
int RunDirectly(const Context& context, const std::string& command,
                const std::function<void(const Servicing&, nlohmann::json& document)>& work);

// The images of the file that a command works on. Nothing when that fails: the command is over then, with the
// document that it prints.
std::optional<std::vector<ImageDetails>> ImagesOf(const Context& context, const std::wstring& file,
                                                  nlohmann::json document);

} // namespace kestro::host
