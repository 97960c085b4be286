// direct_command.cpp - what asks the servicing API itself.
#include "direct_command.h"

#include "interrupt.h"
#include "live_clock.h"
#include "session.h"

#include <filesystem>

namespace kestro::host {

using nlohmann::json;

std::wstring LogFileOf(const Options& options)
{
    return options.log.empty()
               ? (std::filesystem::temp_directory_path() / L"kestro-dism.log").wstring()
               : FullPath(options.log);
}

json FailureToJson(const ServicingError& error)
{
    json failure = CodeToJson(error.Code());
    failure["function"] = error.Function();
    return failure;
}

std::optional<ServicingError> WithServicing(const Context& context,
                                            const std::function<void(const Servicing&)>& work)
{
    const InterruptGuard guard;
    const LiveClock clock(*context.out);
    const std::wstring log = LogFileOf(context.options);
    try {
        const Servicing servicing(log);
        work(servicing);
        return {};
    } catch (const ServicingError& error) {
        context.out->Failed(error.Function(), error.Code());
        context.out->Progress("The platform's own log: " + Shown(log));
        return error;
    }
}

int RunDirectly(const Context& context, const std::string& command,
                const std::function<void(const Servicing&, json&)>& work)
{
    const auto start = std::chrono::steady_clock::now();
    json document = {{"command", command}};
    const auto failure =
        WithServicing(context, [&](const Servicing& servicing) { work(servicing, document); });
    if (failure)
        document["failure"] = FailureToJson(*failure);
    document["succeeded"] = !failure;
    document["elapsed_ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count();
    if (context.out->Json())
        context.out->Document(document);
    if (!failure)
        return kExitSuccess;
    constexpr auto aborted = HRESULT_FROM_WIN32(ERROR_REQUEST_ABORTED);
    return Interrupted() && failure->Code() == aborted ? kExitInterrupted : kExitFailed;
}

std::optional<std::vector<ImageDetails>> ImagesOf(const Context& context, const std::wstring& file,
                                                  json document)
{
    std::vector<ImageDetails> images;
    const auto failure = WithServicing(
        context, [&](const Servicing& servicing) { images = servicing.Images(file); });
    if (!failure)
        return images;
    document["succeeded"] = false;
    document["failure"] = FailureToJson(*failure);
    document["elapsed_ms"] = 0;
    if (context.out->Json())
        context.out->Document(document);
    return {};
}

} // namespace kestro::host
