// vpath service run|start|stop|status: the path service of the saved path, a resident process
// that keeps the path in memory, fresh by watching its folders, and answers the commands that read
// it in a few milliseconds (see context/service_use.hpp for which commands, and when).
//
//   vpath service start      start it in the background; returns once it answers
//   vpath service status     whether it runs (exit 0) and what it holds; exit 1 when it does not
//   vpath service stop       end it
//   vpath service run        run it in the foreground, logging to standard error

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>

#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_service.hpp>
#include <velmora/searchpath/service_client.hpp>

#include "commands.hpp"
#include "context/path_cache_use.hpp"
#include "context/service_use.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::SearchPath;

struct ServiceOptions {
    std::optional<long> idleSeconds;
};

// Held while the service writes its log, and while a command it runs has standard error, so that
// no log line lands in a command's output.
std::recursive_mutex g_streams;

void Log(const std::string& message) {
    std::lock_guard lock(g_streams);
    std::fprintf(stderr, "vpath service: %s\n", message.c_str());
    std::fflush(stderr);
}

// Whether the client's standard output is a terminal.
bool ClientTerminal(const ServiceRequest& request) {
    return std::any_of(request.settings.begin(), request.settings.end(),
                       [](const auto& setting) { return setting.first == kTerminalSetting; });
}

// Runs one command the way the program would, on the service's path, and gives what it printed;
// a batch the command hands over goes to `batch`.
ServiceReply RunServed(const ServiceRequest& request, MainSearchPathManager& manager,
                       std::unique_ptr<ServiceBatch>* batch) {
    auto& system = Velmora::os::System();
    if (system.ChangeFolder(request.folder) != 0)
        return {kDeclined, {}, {}};
    // The service answers this command itself: "--no-service" keeps it from asking itself.
    std::vector<std::string> arguments = {"vpath", "--no-service"};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<char*> argv;
    for (auto& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::lock_guard lock(g_streams);
    std::cout.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    int savedOut = -1;
    int savedErr = -1;
    if (system.CaptureStream(1, savedOut) != 0)
        return {kDeclined, {}, {}};
    if (system.CaptureStream(2, savedErr) != 0) {
        std::string ignored;
        system.EndCapture(1, savedOut, ignored);
        return {kDeclined, {}, {}};
    }
    ServiceReply reply;
    {
        // Each command starts as a new process would: what an earlier one chose is forgotten.
        ResetCacheChoices();
        const ServedManager served(manager, ClientTerminal(request), batch);
        reply.status = RunVpath(static_cast<int>(arguments.size()), argv.data());
    }
    std::cout.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    std::clearerr(stdout);
    const int outError = system.EndCapture(1, savedOut, reply.out);
    const int errError = system.EndCapture(2, savedErr, reply.err);
    if (outError != 0 || errError != 0)
        return {kDeclined, {}, {}};
    return reply;
}

int Run(const PathOptions& pathOptions, const ServiceOptions& options) {
    const auto place = ServicePlaceOf(pathOptions);
    if (!place)
        throw std::runtime_error("there is no place for the path service (set XDG_RUNTIME_DIR)");
    PathService::Options serviceOptions{
        .pathDefinition = place->pathDefinition,
        .answer =
            [](const ServiceRequest& request, MainSearchPathManager& manager) {
                return RunServed(request, manager, nullptr);
            },
        .batch = [](const ServiceRequest& request, MainSearchPathManager& manager,
                    ServiceReply& opening) -> std::unique_ptr<ServiceBatch> {
            // Only the batch of which: the command hands it over as it starts.
            if (request.arguments.empty() || request.arguments.front() != "which")
                return nullptr;
            std::unique_ptr<ServiceBatch> batch;
            opening = RunServed(request, manager, &batch);
            return opening.status == kExitOk ? std::move(batch) : nullptr;
        },
        .log = Log};
    if (options.idleSeconds) {
        serviceOptions.idleTimeout = *options.idleSeconds > 0
                                         ? std::chrono::milliseconds(*options.idleSeconds * 1000)
                                         : std::chrono::milliseconds(-1);
    }
    std::string problem;
    PathService::OpenError error = PathService::OpenError::None;
    auto service = PathService::Open(std::move(serviceOptions), problem, error);
    if (!service) {
        Fail(problem);
        return error == PathService::OpenError::AlreadyRunning ? kExitNotFound : kExitTrouble;
    }
    return service->Serve();
}

std::optional<ServiceReply> Ask(const ServicePlace& place, ServiceOperation operation) {
    ServiceRequest request;
    request.operation = operation;
    request.pathDefinition = place.pathDefinition;
    return AskPathService(place, request, {});
}

int Start(const PathOptions& pathOptions, const ServiceOptions& options) {
    const auto place = ServicePlaceOf(pathOptions);
    if (!place)
        throw std::runtime_error("there is no place for the path service (set XDG_RUNTIME_DIR)");
    if (Ask(*place, ServiceOperation::Status))
        return kExitOk;
    std::uint32_t process = SpawnService(*place, options.idleSeconds);
    // Started from a warm cache, a large path answers within a second or two.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    // One that ended at once found the lock held: by another one starting, which is given a
    // while, or by one dying, whose lock goes only with its last thread. It is tried again, a few
    // times a second, until one answers.
    std::optional<std::chrono::steady_clock::time_point> firstEnd;
    while (std::chrono::steady_clock::now() < deadline) {
        if (Ask(*place, ServiceOperation::Status))
            return kExitOk;
        if (!Velmora::os::System().ProcessExists(process)) {
            const auto now = std::chrono::steady_clock::now();
            if (!firstEnd)
                firstEnd = now;
            if (now - *firstEnd > std::chrono::seconds(5))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (Ask(*place, ServiceOperation::Status))
                return kExitOk;
            process = SpawnService(*place, options.idleSeconds);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    Fail(fmt::format("the path service (pid {}) did not answer; see {}", process, place->log));
    return kExitTrouble;
}

// The process id that a status reply names on its first line ("pid N").
std::uint32_t ProcessOf(const ServiceReply& status) {
    std::uint32_t process = 0;
    if (status.out.starts_with("pid "))
        std::from_chars(status.out.data() + 4, status.out.data() + status.out.size(), process);
    return process;
}

int Stop(const PathOptions& pathOptions) {
    const auto place = ServicePlaceOf(pathOptions);
    const auto status = place ? Ask(*place, ServiceOperation::Status) : std::nullopt;
    if (!status || !Ask(*place, ServiceOperation::Stop)) {
        Fail("no path service runs for this path");
        return kExitNotFound;
    }
    // Stop returns once the service's process has ended, its last writes (the path cache, in the
    // background) done: whoever stops it may then remove what it wrote. Without its process id,
    // the socket it removes as it ends is waited for (unless it is systemd's, which stays).
    const std::uint32_t process = ProcessOf(*status);
    auto& system = Velmora::os::System();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    Velmora::os::FileStatus socket;
    while (std::chrono::steady_clock::now() < deadline &&
           (process != 0 ? system.ProcessExists(process)
                         : system.LinkStatus(place->socket, socket) == 0)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return kExitOk;
}

int Status(const PathOptions& pathOptions) {
    const auto place = ServicePlaceOf(pathOptions);
    const auto reply = place ? Ask(*place, ServiceOperation::Status) : std::nullopt;
    if (!reply) {
        Fail("no path service runs for this path");
        return kExitNotFound;
    }
    std::fwrite(reply->out.data(), 1, reply->out.size(), stdout);
    return kExitOk;
}

}  // namespace

Command RegisterService(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<ServiceOptions>();
    auto* service = app.add_subcommand(
        "service",
        "The path service: a resident process that keeps the saved path in memory and answers "
        "the commands on the saved path in milliseconds");
    service->require_subcommand(1);
    auto* run = service->add_subcommand("run", "Run it in the foreground, logging to stderr");
    auto* start = service->add_subcommand(
        "start", "Start it in the background (log in $XDG_STATE_HOME/vpath) once it answers");
    service->add_subcommand("stop", "End it");
    service->add_subcommand("status",
                            "Exit 0 and print its pid, socket, folders, files, memory and uptime "
                            "when it runs; exit 1 when it does not");
    for (auto* sub : {run, start}) {
        sub->add_option("--idle-timeout", options->idleSeconds,
                        "End after this many seconds without a request (default 1800; 0: never)")
            ->type_name("SECONDS");
    }
    service->footer(
        "Commands use the service of their saved path when it runs; --no-service or "
        "VPATH_SERVICE=off answer without it, and VPATH_SERVICE=auto starts it when none runs. "
        "With systemd, 'systemctl --user enable --now vpath.socket' starts the service of the "
        "usual path definition file whenever a command needs it.");
    return {service, [service, options, &pathOptions] {
                if (pathOptions.GivesPath()) {
                    throw std::runtime_error(
                        "the path service serves a saved path: --path, --path-file and "
                        "--example do not apply");
                }
                const std::string action = service->get_subcommands().front()->get_name();
                if (action == "run")
                    return Run(pathOptions, *options);
                if (action == "start")
                    return Start(pathOptions, *options);
                if (action == "stop")
                    return Stop(pathOptions);
                return Status(pathOptions);
            }};
}

}  // namespace vpath_cli
