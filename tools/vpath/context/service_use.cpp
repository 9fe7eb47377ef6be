#include "service_use.hpp"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/service_client.hpp>

namespace vpath_cli {
namespace {

using Velmora::SearchPath::ServicePlace;

// The commands that the service of the saved path may answer.
bool Served(const CLI::App& chosen) {
    static constexpr std::string_view kServed[] = {"which",   "ls",  "path", "entries",
                                                   "shadows", "add", "rm"};
    const std::string& name = chosen.get_name();
    if (name == "cache") {
        const CLI::Option* action = chosen.get_option_no_throw("action");
        return action == nullptr || action->count() == 0 || action->as<std::string>() == "status";
    }
    for (const std::string_view served : kServed) {
        if (name == served) {
            // A batch sends its names in pieces (OpenServiceBatch) rather than all at once.
            const CLI::Option* batch = chosen.get_option_no_throw("--batch");
            return batch == nullptr || batch->count() == 0;
        }
    }
    return false;
}

// The request for `arguments` on the saved path, as this process would run it; none when there
// is no place for a service or no current folder.
std::optional<Velmora::SearchPath::ServiceRequest> RequestFor(
    const PathOptions& options, Velmora::SearchPath::ServiceOperation operation,
    std::vector<std::string> arguments, std::optional<ServicePlace>& place) {
    place = ServicePlaceOf(options);
    if (!place)
        return std::nullopt;
    Velmora::SearchPath::ServiceRequest request;
    request.operation = operation;
    request.pathDefinition = place->pathDefinition;
    if (Velmora::os::System().CurrentFolder(request.folder) != 0)
        return std::nullopt;
    request.arguments = std::move(arguments);
    request.settings = Velmora::SearchPath::AnswerSettings();
    if (Velmora::os::System().IsTerminal(1))
        request.settings.emplace_back(Velmora::SearchPath::kTerminalSetting, "1");
    return request;
}

// When a service is found absent and VPATH_SERVICE is "auto", starts one for the next command.
void StartIfAuto(const ServicePlace& place, const std::string& mode) {
    if (mode != "auto" || Velmora::SearchPath::PathServiceRuns(place))
        return;
    try {
        SpawnService(place, std::nullopt);
    } catch (const std::exception& e) {
        Warn(e.what());
    }
}

std::string ServiceMode() {
    const char* mode = std::getenv("VPATH_SERVICE");
    return mode == nullptr ? std::string() : std::string(mode);
}

}  // namespace

std::optional<ServicePlace> ServicePlaceOf(const PathOptions& options) {
    const std::string location =
        options.pathDefinition.value_or(Velmora::SearchPath::PathDefinitionFile::DefaultLocation());
    return Velmora::SearchPath::PlaceOfService(location);
}

std::uint32_t SpawnService(const ServicePlace& place, const std::optional<long>& idleSeconds) {
    auto& system = Velmora::os::System();
    std::string program;
    if (const int err = system.RealPath("/proc/self/exe", program); err != 0)
        throw std::runtime_error("cannot find the vpath program: " + Velmora::os::ErrorText(err));
    std::vector<std::string> argv = {program, "--pathdef", place.pathDefinition, "service", "run"};
    if (idleSeconds) {
        argv.push_back("--idle-timeout");
        argv.push_back(std::to_string(*idleSeconds));
    }
    std::string log = place.log.empty() ? std::string("/dev/null") : place.log;
    if (!place.log.empty()) {
        const auto slash = place.log.rfind('/');
        if (system.MakeFolders(place.log.substr(0, slash)) != 0)
            log = "/dev/null";
    }
    std::uint32_t process = 0;
    if (const int err = system.SpawnDetached(argv, log, process); err != 0) {
        throw std::runtime_error(
            fmt::format("cannot start the path service: {}", Velmora::os::ErrorText(err)));
    }
    return process;
}

std::optional<int> AnswerThroughService(const CLI::App& chosen, const PathOptions& options,
                                        int argc, char** argv) {
    const std::string mode = ServiceMode();
    if (options.noService || mode == "off" || options.GivesPath() || !Served(chosen))
        return std::nullopt;
    std::optional<ServicePlace> place;
    const auto request = RequestFor(options, Velmora::SearchPath::ServiceOperation::Run,
                                    {argv + 1, argv + argc}, place);
    if (!request)
        return std::nullopt;
    const auto reply = Velmora::SearchPath::AskPathService(*place, *request, {});
    if (!reply) {
        StartIfAuto(*place, mode);
        return std::nullopt;
    }
    // The reply is whole: only now is any of it printed.
    std::fwrite(reply->err.data(), 1, reply->err.size(), stderr);
    std::fwrite(reply->out.data(), 1, reply->out.size(), stdout);
    return reply->status;
}

std::unique_ptr<Velmora::SearchPath::PathServiceBatch> OpenServiceBatch(
    const PathOptions& options, const std::vector<std::string>& arguments, int& status) {
    const std::string mode = ServiceMode();
    if (options.noService || mode == "off" || options.GivesPath())
        return nullptr;
    std::optional<ServicePlace> place;
    auto request =
        RequestFor(options, Velmora::SearchPath::ServiceOperation::Batch, arguments, place);
    if (!request)
        return nullptr;
    Velmora::SearchPath::ServiceReply opening;
    auto batch = Velmora::SearchPath::PathServiceBatch::Open(*place, *request, {}, opening);
    if (!batch) {
        StartIfAuto(*place, mode);
        return nullptr;
    }
    std::fwrite(opening.err.data(), 1, opening.err.size(), stderr);
    std::fwrite(opening.out.data(), 1, opening.out.size(), stdout);
    status = opening.status;
    return batch;
}

}  // namespace vpath_cli
