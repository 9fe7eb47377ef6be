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

// The commands that only read the saved path, and so may be answered by its service.
bool ReadsSavedPathOnly(const CLI::App& chosen) {
    static constexpr std::string_view kServed[] = {"which", "ls", "path", "entries", "shadows"};
    for (const std::string_view name : kServed) {
        if (chosen.get_name() == name) {
            // A batch reads standard input as it answers: only the command itself can do that.
            const CLI::Option* batch = chosen.get_option_no_throw("--batch");
            return batch == nullptr || batch->count() == 0;
        }
    }
    return false;
}

std::string ServiceMode() {
    const char* mode = std::getenv("VPATH_SERVICE");
    return mode == nullptr ? std::string() : std::string(mode);
}

}  // namespace

bool ServiceMayServe(const PathOptions& options) {
    return !options.noService && ServiceMode() != "off" && !options.GivesPath();
}

bool ServiceStartsWhenMissing() {
    return ServiceMode() == "auto";
}

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
    if (options.noService || mode == "off" || options.GivesPath() || !ReadsSavedPathOnly(chosen))
        return std::nullopt;
    const auto place = ServicePlaceOf(options);
    if (!place)
        return std::nullopt;
    Velmora::SearchPath::ServiceRequest request;
    request.pathDefinition = place->pathDefinition;
    if (Velmora::os::System().CurrentFolder(request.folder) != 0)
        return std::nullopt;
    request.arguments.assign(argv + 1, argv + argc);
    request.settings = Velmora::SearchPath::AnswerSettings();
    const auto reply = Velmora::SearchPath::AskPathService(*place, request, {});
    if (!reply) {
        if (mode == "auto" && !Velmora::SearchPath::PathServiceRuns(*place)) {
            try {
                SpawnService(*place, std::nullopt);
            } catch (const std::exception& e) {
                Warn(e.what());
            }
        }
        return std::nullopt;
    }
    // The reply is whole: only now is any of it printed.
    std::fwrite(reply->err.data(), 1, reply->err.size(), stderr);
    std::fwrite(reply->out.data(), 1, reply->out.size(), stdout);
    return reply->status;
}

}  // namespace vpath_cli
