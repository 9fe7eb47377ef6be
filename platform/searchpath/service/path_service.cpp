#include <velmora/searchpath/path_service.hpp>

#include <cerrno>
#include <stdexcept>

#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/cached_start.hpp>
#include <velmora/searchpath/path_watcher.hpp>

#include "service_streams.hpp"

namespace Velmora::SearchPath {
namespace {

using Clock = std::chrono::steady_clock;

// How long one client may take to send its request, and to take its reply.
constexpr int kRequestMs = 5'000;
constexpr int kReplyMs = 60'000;
// How long a request waits for the watcher to take in the changes made before it; then the
// path is read again instead.
constexpr std::chrono::milliseconds kSyncTimeout{10'000};

std::string ResidentMemory() {
    std::string status;
    if (os::System().ReadFile("/proc/self/status", status) != 0)
        return "unknown";
    const auto at = status.find("VmRSS:");
    if (at == std::string::npos)
        return "unknown";
    const auto start = status.find_first_not_of(" \t", at + 6);
    const auto end = status.find('\n', start);
    return status.substr(start, end - start);
}

}  // namespace

struct PathService::Impl {
    Options options;
    ServicePlace place;
    int lock = -1;
    int listener = -1;
    std::unique_ptr<MainSearchPathManager> manager;
    std::unique_ptr<PathWatcher> watcher;
    std::unique_ptr<ServiceStreams> streams;
    Clock::time_point started = Clock::now();
    bool stopped = false;
    std::uint64_t answered = 0;  // commands run

    ~Impl() {
        streams.reset();
        watcher.reset();
        if (listener >= 0) {
            os::System().RemoveFile(place.socket);
            os::System().CloseFile(listener);
        }
        manager.reset();
        if (lock >= 0)
            os::System().CloseFile(lock);
    }

    void Log(const std::string& message) const {
        if (options.log)
            options.log(message);
    }

    // Makes the path as fresh as the disk: for when the watcher cannot vouch for it.
    void Revalidate() {
        foundation::core::except::Notification problems;
        manager->ReloadPathDefinition(problems);
        if (!problems.empty())
            Log(problems.ToNativeText());
        manager->RefreshFolders(*manager->GetPathFolderIRIs());
    }

    ServiceReply Status() const {
        const auto path = manager->GetSnapshot();
        const auto uptime =
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - started);
        return {0,
                fmt::format("pid {}\nsocket {}\npathdef {}\nfolders {}\nfiles {}\n"
                            "memory {}\nuptime {} s\nanswered {}\n",
                            os::System().ProcessId(), place.socket, place.pathDefinition,
                            path->GetFolderEntries().size(), path->GetFileCount(), ResidentMemory(),
                            uptime.count(), answered),
                {}};
    }

    ServiceReply Answer(const ServiceRequest& request) {
        if (request.pathDefinition != place.pathDefinition)
            return {kDeclined, {}, {}};
        switch (request.operation) {
            case ServiceOperation::Status:
                return Status();
            case ServiceOperation::Stop:
                stopped = true;
                streams->Close();
                Log("stopped on request");
                return {0, {}, {}};
            case ServiceOperation::Run:
                break;
            case ServiceOperation::Subscribe:
            case ServiceOperation::Lookup:
                return {kDeclined, {}, {}};
        }
        if (request.settings != AnswerSettings() || !options.answer)
            return {kDeclined, {}, {}};
        Freshen();
        ++answered;
        return options.answer(request, *manager);
    }

    // Makes the path as fresh as the disk was when the request came.
    void Freshen() {
        if (watcher->Sync(kSyncTimeout) != PathWatcher::SyncResult::Synced)
            Revalidate();
    }

    // The requests that stay with the service (subscribers) or that its attached clients make.
    void Stream(int socket, const ServiceRequest& request) {
        if (request.pathDefinition != place.pathDefinition) {
            os::System().SocketSend(socket, Frame(EncodeReply({kDeclined, {}, {}})), kReplyMs);
            return;
        }
        try {
            if (request.operation == ServiceOperation::Subscribe)
                streams->ServeSubscription(socket, request);
            else
                streams->ServeLookup(socket, request, [this] { Freshen(); });
        } catch (const std::exception& e) {
            Log(fmt::format("a request failed: {}", e.what()));
        }
    }

    void Serve(int socket) {
        std::uint32_t peer = 0;
        if (const int err = os::System().SocketPeerUser(socket, peer); err != 0) {
            Log(fmt::format("cannot tell who connected: {}", os::ErrorText(err)));
            return;
        }
        if (peer != os::System().UserId()) {
            Log(fmt::format("refused a client of another user (uid {})", peer));
            return;
        }
        auto& system = os::System();
        if (system.SocketSend(socket, Frame(EncodeHello(system.ProcessId())), kRequestMs) != 0)
            return;
        std::string header;
        std::string payload;
        if (system.SocketReceive(socket, 4, kRequestMs, header) != 0)
            return;
        const std::uint32_t size = FrameLength(header);
        if (size > kMostRequestBytes) {
            Log(fmt::format("refused a request of {} bytes", size));
            return;
        }
        if (system.SocketReceive(socket, size, kRequestMs, payload) != 0)
            return;
        const auto request = ParseRequest(payload);
        if (!request) {
            Log("refused a malformed request");
            return;
        }
        if (request->operation == ServiceOperation::Subscribe ||
            request->operation == ServiceOperation::Lookup) {
            Stream(socket, *request);
            return;
        }
        ServiceReply reply;
        try {
            reply = Answer(*request);
        } catch (const std::exception& e) {
            Log(fmt::format("a request failed: {}", e.what()));
            reply = {kDeclined, {}, {}};
        }
        system.SocketSend(socket, Frame(EncodeReply(reply)), kReplyMs);
    }
};

PathService::PathService(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
PathService::~PathService() = default;

std::unique_ptr<PathService> PathService::Open(Options options, std::string& problem,
                                               OpenError& error) {
    error = OpenError::Failed;
    auto impl = std::make_unique<Impl>();
    impl->options = std::move(options);
    const auto place = PlaceOfService(impl->options.pathDefinition);
    if (!place) {
        problem = "there is no folder for the path service's socket (set XDG_RUNTIME_DIR)";
        return nullptr;
    }
    impl->place = *place;
    if (problem = ServiceFolderProblem(place->folder, true); !problem.empty())
        return nullptr;
    auto& system = os::System();
    if (const int err = system.OpenLockFile(place->lock, impl->lock); err != 0) {
        impl->lock = -1;
        problem = fmt::format("cannot open {}: {}", place->lock, os::ErrorText(err));
        return nullptr;
    }
    if (const int err = system.LockExclusive(impl->lock, false); err != 0) {
        if (err == EWOULDBLOCK)
            error = OpenError::AlreadyRunning;
        problem = err == EWOULDBLOCK
                      ? fmt::format("a path service of {} runs already", place->pathDefinition)
                      : fmt::format("cannot lock {}: {}", place->lock, os::ErrorText(err));
        return nullptr;
    }
    const auto log = [impl = impl.get()](const std::string& message) { impl->Log(message); };
    MainSearchPathManager::Options managerOptions;
    managerOptions.pathDefinition.emplace(place->pathDefinition);
    // A large path's watches are set up from what its cache knows while the path is checked
    // against the disk, not after.
    // Shared with the manager, which keeps the options: nothing of this frame is captured.
    auto early = std::make_shared<std::optional<EarlyWatches>>();
    if (auto slot = PathCacheForPathDefinition(place->pathDefinition)) {
        slot->inMemory = true;  // another program truncating the cache must not kill the service
        managerOptions.pathCache = PathCacheUse{
            .at = *slot,
            .inBackground = true,
            .warn = log,
            .loaded = [early, pathDefinition = place->pathDefinition](
                          const FolderEntryList& known) { early->emplace(pathDefinition, known); }};
    }
    foundation::core::except::Notification problems;
    impl->manager = MainSearchPathManager::Open(std::move(managerOptions), problems);
    if (!impl->manager) {
        problem = problems.ToNativeText();
        return nullptr;
    }
    PathWatcher::Options watcherOptions{.warn = log,
                                        .failed =
                                            [log](std::exception_ptr failure) {
                                                try {
                                                    std::rethrow_exception(failure);
                                                } catch (const std::exception& e) {
                                                    log(e.what());
                                                }
                                            },
                                        .syncFolder = place->folder};
    try {
        impl->watcher = *early ? std::make_unique<PathWatcher>(*impl->manager, watcherOptions,
                                                               std::move(**early))
                               : std::make_unique<PathWatcher>(*impl->manager, watcherOptions);
    } catch (const std::exception& e) {
        problem = e.what();
        return nullptr;
    }
    impl->streams = ServiceStreams::Open(*place, *impl->manager, log, problem);
    if (!impl->streams)
        return nullptr;
    // The lock is ours: a socket left there is a dead service's.
    system.RemoveFile(place->socket);
    if (const int err = system.SocketListen(place->socket, impl->listener); err != 0) {
        impl->listener = -1;
        problem = fmt::format("cannot listen at {}: {}", place->socket, os::ErrorText(err));
        return nullptr;
    }
    error = OpenError::None;
    return std::unique_ptr<PathService>(new PathService(std::move(impl)));
}

const ServicePlace& PathService::Place() const noexcept {
    return m_impl->place;
}

bool PathService::Stopped() const noexcept {
    return m_impl->stopped;
}

bool PathService::ServeOne(std::chrono::milliseconds timeout) {
    int socket = -1;
    if (os::System().SocketAccept(m_impl->listener, static_cast<int>(timeout.count()), socket) !=
        0) {
        return false;
    }
    m_impl->Serve(socket);
    os::System().CloseFile(socket);
    return true;
}

int PathService::Serve() {
    m_impl->Log(
        fmt::format("serving {} at {}", m_impl->place.pathDefinition, m_impl->place.socket));
    while (!m_impl->stopped) {
        if (!ServeOne(m_impl->options.idleTimeout) && m_impl->streams->Subscribers() == 0) {
            m_impl->Log("no request for the idle time: stopping");
            break;
        }
    }
    return 0;
}

}  // namespace Velmora::SearchPath
