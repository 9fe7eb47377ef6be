#include <velmora/searchpath/path_service.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <malloc.h>

#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/cached_start.hpp>
#include <velmora/searchpath/path_watcher.hpp>

#include "service/service_streams.hpp"
#include "service/socket_activation.hpp"

namespace Velmora::SearchPath {
namespace {

using Clock = std::chrono::steady_clock;

// How long one client may take to send its request, and to take its reply.
constexpr int kRequestMs = 5'000;
constexpr int kReplyMs = 60'000;
// How long a changed path is held after the reply, for the client to hang up first.
constexpr int kLingerMs = 200;
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

// Whether a socket accepts connections at `path`.
bool Listened(const std::string& path) {
    int socket = -1;
    if (os::System().SocketConnect(path, 1'000, socket) != 0)
        return false;
    os::System().CloseFile(socket);
    return true;
}

}  // namespace

ServiceBatch::~ServiceBatch() = default;

struct PathService::Impl {
    Options options;
    ServicePlace place;
    int lock = -1;
    int listener = -1;
    bool handed = false;  // the listener is the service manager's: it outlives the service
    std::unique_ptr<MainSearchPathManager> manager;
    std::unique_ptr<PathWatcher> watcher;
    std::unique_ptr<ServiceStreams> streams;
    Clock::time_point started = Clock::now();
    std::atomic<bool> stopped = false;
    std::atomic<std::uint64_t> answered = 0;  // commands run
    // Held while a command runs for a client: the command's streams and current folder are the
    // process's.
    std::mutex running;

    // The connections being answered, each on its thread; the threads that ended, to be joined.
    std::mutex connectionsMutex;
    std::map<std::uint64_t, std::pair<std::thread, int>> connections;
    std::vector<std::uint64_t> ended;
    std::uint64_t nextConnection = 0;
    Clock::time_point lastActive = Clock::now();

    ~Impl() {
        streams.reset();
        watcher.reset();
        if (listener >= 0) {
            if (!handed)
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

    // Makes sure that the path holds every change completed before now.
    void Sync() {
        if (watcher->Sync(kSyncTimeout) != PathWatcher::SyncResult::Synced)
            Revalidate();
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
                            uptime.count(), answered.load()),
                {}};
    }

    // Whether the service may answer `request` with its own settings.
    static bool SameSettings(const ServiceRequest& request) {
        auto settings = request.settings;
        std::erase_if(settings, [](const auto& setting) { return setting.first.starts_with(':'); });
        return settings == AnswerSettings();
    }

    ServiceReply Answer(const ServiceRequest& request) {
        if (request.pathDefinition != place.pathDefinition)
            return {kDeclined, {}, {}};
        switch (request.operation) {
            case ServiceOperation::Status:
                return Status();
            case ServiceOperation::Stop:
                Log("stopped on request");
                return {0, {}, {}};
            case ServiceOperation::Run:
            case ServiceOperation::Batch:
                break;
            case ServiceOperation::Subscribe:
            case ServiceOperation::Lookup:
                return {kDeclined, {}, {}};
        }
        if (!SameSettings(request) || !options.answer)
            return {kDeclined, {}, {}};
        Sync();
        ++answered;
        const std::lock_guard hold(running);
        return options.answer(request, *manager);
    }

    // Answers a batch: its opening, then each piece of names, until the client ends it.
    void AnswerBatch(int socket, const ServiceRequest& request) {
        auto& system = os::System();
        std::unique_ptr<ServiceBatch> batch;
        ServiceReply opening;
        if (request.pathDefinition == place.pathDefinition && SameSettings(request) &&
            options.batch) {
            Sync();
            const std::lock_guard hold(running);
            batch = options.batch(request, *manager, opening);
        }
        if (!batch)
            opening = {kDeclined, {}, {}};
        if (system.SocketSend(socket, Frame(EncodeReply(opening)), kReplyMs) != 0 || !batch)
            return;
        ++answered;
        std::string header;
        std::string names;
        // A batch may wait for its next name as long as the program feeding it likes.
        while (!stopped && system.SocketReceive(socket, 4, -1, header) == 0) {
            const std::uint32_t size = FrameLength(header);
            if (size == 0 || size > kMostRequestBytes ||
                system.SocketReceive(socket, size, kRequestMs, names) != 0) {
                return;
            }
            Sync();
            if (system.SocketSend(socket, Frame(EncodeReply(batch->Answer(names))), kReplyMs) !=
                0) {
                return;
            }
        }
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
                streams->ServeLookup(socket, request, [this] { Sync(); });
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
        try {
            if (request->operation == ServiceOperation::Batch) {
                AnswerBatch(socket, *request);
                return;
            }
            ServiceReply reply;
            // The path as it was: a change lets go of it, and letting go of a long path takes a
            // while, which the client need not wait for.
            auto before = manager->GetState();
            try {
                reply = Answer(*request);
            } catch (const std::exception& e) {
                Log(fmt::format("a request failed: {}", e.what()));
                reply = {kDeclined, {}, {}};
            }
            system.SocketSend(socket, Frame(EncodeReply(reply)), kReplyMs);
            // A client hangs up as soon as the reply is whole: the path that a change replaced is
            // let go of after that (or after a short while), so that the client, woken to read
            // its reply, need not share the processors with it.
            if (manager->GetState() != before) {
                std::string ignored;
                system.SocketReceive(socket, 1, kLingerMs, ignored);
            }
            before.reset();
            if (request->operation == ServiceOperation::Stop && reply.status == 0)
                Stop();
        } catch (const std::exception& e) {
            Log(fmt::format("a request failed: {}", e.what()));
        }
    }

    // Stop: ends Serve's loop, which is woken by a connection of its own.
    void Stop() {
        stopped = true;
        streams->Close();  // its subscribers hear the end at once
        int wake = -1;
        if (os::System().SocketConnect(place.socket, 100, wake) == 0)
            os::System().CloseFile(wake);
    }

    // Answers `socket` on a thread of its own.
    void StartConnection(int socket) {
        const std::lock_guard hold(connectionsMutex);
        const std::uint64_t id = nextConnection++;
        auto& slot = connections[id];
        slot.second = socket;
        slot.first = std::thread([this, id, socket] {
            Serve(socket);
            const std::lock_guard done(connectionsMutex);
            os::System().CloseFile(socket);
            connections[id].second = -1;
            ended.push_back(id);
            lastActive = Clock::now();
        });
    }

    // Joins the threads of the connections that ended; true when none is open.
    bool JoinEnded() {
        std::vector<std::thread> threads;
        bool idle = false;
        {
            const std::lock_guard hold(connectionsMutex);
            for (const std::uint64_t id : ended) {
                threads.push_back(std::move(connections[id].first));
                connections.erase(id);
            }
            ended.clear();
            idle = connections.empty();
        }
        for (auto& thread : threads)
            thread.join();
        return idle;
    }

    // Ends the connections still open (a batch waiting for names) and waits for their threads.
    void EndConnections() {
        {
            const std::lock_guard hold(connectionsMutex);
            for (auto& [id, connection] : connections) {
                if (connection.second >= 0)
                    os::System().SocketShutdown(connection.second);
            }
        }
        for (;;) {
            JoinEnded();
            const std::lock_guard hold(connectionsMutex);
            if (connections.empty())
                return;
            // A thread that has not ended yet is waited for a moment.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
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
    auto handed = detail::TakeHandedSocket(place->socket);
    if (!handed.problem.empty()) {
        problem = handed.problem;
        return nullptr;
    }
    impl->listener = handed.descriptor;
    impl->handed = handed.descriptor >= 0;
    auto& system = os::System();
    if (const int err = system.OpenLockFile(place->lock, impl->lock); err != 0) {
        impl->lock = -1;
        problem = fmt::format("cannot open {}: {}", place->lock, os::ErrorText(err));
        return nullptr;
    }
    int locked = system.LockExclusive(impl->lock, false);
    // The service manager starts its service whenever a client connects: one that gave way to a
    // service started by hand would only be started again and again, so it waits for that one.
    if (locked == EWOULDBLOCK && impl->handed) {
        impl->Log(fmt::format("waiting for the path service that holds {} to end", place->lock));
        locked = system.LockExclusive(impl->lock, true);
    }
    if (const int err = locked; err != 0) {
        if (err == EWOULDBLOCK)
            error = OpenError::AlreadyRunning;
        problem = err == EWOULDBLOCK
                      ? fmt::format("a path service of {} runs already", place->pathDefinition)
                      : fmt::format("cannot lock {}: {}", place->lock, os::ErrorText(err));
        return nullptr;
    }
    // The lock is ours, so no other service listens at the socket: something that does is the
    // service manager's socket unit, which starts its own service there when a client connects.
    if (!impl->handed && Listened(place->socket)) {
        error = OpenError::AlreadyRunning;
        problem = fmt::format(
            "the user's service manager listens at {} (vpath.socket): it starts "
            "the path service there when a command connects",
            place->socket);
        return nullptr;
    }
    const auto log = [impl = impl.get()](const std::string& message) { impl->Log(message); };
    MainSearchPathManager::Options managerOptions;
    managerOptions.pathDefinition.emplace(place->pathDefinition);
    // The service changes the path for its clients: each change reads the file again under its
    // lock, and finds there what it saved last, which is then not parsed again.
    managerOptions.pathDefinition->KeepLastReading();
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
    if (!impl->handed) {
        // The lock is ours and nothing listens: a socket left there is a dead service's.
        system.RemoveFile(place->socket);
        if (const int err = system.SocketListen(place->socket, impl->listener); err != 0) {
            impl->listener = -1;
            problem = fmt::format("cannot listen at {}: {}", place->socket, os::ErrorText(err));
            return nullptr;
        }
    }
    error = OpenError::None;
    // Reading the path leaves the heap holding what its start worked with and let go (the cache's
    // decoding, the scan's listings): given back, so that what the service holds is the path.
    malloc_trim(0);
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
    auto& impl = *m_impl;
    impl.Log(fmt::format("serving {} at {}", impl.place.pathDefinition, impl.place.socket));
    const auto idle = impl.options.idleTimeout;
    // At most this many connections are answered at once; more wait to be accepted.
    constexpr std::size_t kMostConnections = 64;
    while (!impl.stopped) {
        const bool none = impl.JoinEnded();
        Clock::time_point lastActive;
        std::size_t open = 0;
        {
            const std::lock_guard hold(impl.connectionsMutex);
            lastActive = impl.lastActive;
            open = impl.connections.size();
        }
        if (open >= kMostConnections) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        // Woken at the idle deadline, or every second while connections are open, since their
        // end does not wake the loop.
        int wait = -1;
        if (!none) {
            wait = 1000;
        } else if (idle.count() >= 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                lastActive + idle - Clock::now());
            if (left.count() <= 0) {
                impl.Log("no request for the idle time: stopping");
                break;
            }
            wait = static_cast<int>(std::min<std::int64_t>(left.count(), 24 * 3600 * 1000));
        }
        int socket = -1;
        if (const int err = os::System().SocketAccept(impl.listener, wait, socket); err != 0) {
            if (err != ETIMEDOUT) {
                impl.Log(fmt::format("cannot accept: {}", os::ErrorText(err)));
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
            continue;
        }
        if (impl.stopped) {
            os::System().CloseFile(socket);
            break;
        }
        {
            const std::lock_guard hold(impl.connectionsMutex);
            impl.lastActive = Clock::now();
        }
        impl.StartConnection(socket);
    }
    impl.stopped = true;
    impl.streams->Close();
    impl.EndConnections();
    return 0;
}

}  // namespace Velmora::SearchPath
