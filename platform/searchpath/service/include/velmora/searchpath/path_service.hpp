#pragma once
// PathService: a resident process's service of one saved path, so that commands answer from
// memory instead of proving the whole path afresh at every start.
//
// It holds the path's MainSearchPathManager, started from the path cache, with a PathWatcher on
// its folders and its path definition file, and answers requests on a Unix socket (its place:
// service_place.hpp, its protocol: service_protocol.hpp). Before it answers a request it makes
// sure that the watcher has taken in every change completed before the request arrived
// (PathWatcher::Sync); when it cannot be sure (events lost, folders polled), it reads the path
// again first. It answers only a peer of its own user. Programs that stay attached
// (attached_path.hpp) subscribe to its changes and look names up; it keeps, beside its socket, the
// generation page through which they know when their remembered answers went stale.
//
//   std::string problem;
//   auto service = PathService::Open({.pathDefinition = file, .answer = Run, .log = Log}, problem);
//   if (!service) { ... problem ... }
//   return service->Serve();  // until stopped, or idle for idleTimeout
//
// One service per saved path: Open fails (AlreadyRunning) while another holds the lock.
//
// Started by the user's systemd (vpath.socket, socket activation), it serves the listening socket
// handed over for its place instead of making one, and leaves it to systemd when it ends. While a
// service started by hand holds the lock, it waits for that one to end: systemd would only start
// it again and again. Started by hand while that socket unit listens at its place, it leaves the
// place to systemd's service (AlreadyRunning).

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/service_place.hpp>
#include <velmora/searchpath/service_protocol.hpp>

namespace Velmora::SearchPath {

// The idle time after which a service ends by itself, unless told otherwise.
inline constexpr std::chrono::seconds kDefaultServiceIdleTimeout{30 * 60};

// ServiceBatch: a client's `which --batch` while it goes on: answers each piece of names that the
// client sends, on the path as it is when the piece arrives.
class VELMORA_SEARCHPATH_EXPORT ServiceBatch {
  public:
    virtual ~ServiceBatch();
    // Answer: the answers to `names` (each ended by the batch's separator): what the command
    // prints for them and its status for them alone. Called on the batch's connection thread,
    // after the sync, one piece at a time.
    virtual ServiceReply Answer(std::string_view names) = 0;
};

class VELMORA_SEARCHPATH_EXPORT PathService {
  public:
    struct Options {
        std::string pathDefinition;  // the path definition file (native path)
        std::chrono::milliseconds idleTimeout = kDefaultServiceIdleTimeout;
        // Answers a Run request on the manager's current path; called on the request's
        // connection thread, one request at a time (never beside another Run or Batch start),
        // after the sync.
        std::function<ServiceReply(const ServiceRequest&, MainSearchPathManager&)> answer{};
        // Starts a Batch request's batch, putting in `opening` what the command prints before
        // its first name; null declines (then `opening` is not sent). Called as `answer` is.
        std::function<std::unique_ptr<ServiceBatch>(const ServiceRequest&, MainSearchPathManager&,
                                                    ServiceReply& opening)>
            batch{};
        // Hears what the service has to say (started, refused a peer, warnings); any thread.
        std::function<void(const std::string&)> log{};
    };

    enum class OpenError { None, AlreadyRunning, Failed };

    // Open: takes the lock, opens the manager and its watcher and listens (or takes the socket
    // that systemd handed over). Null when it cannot, with why in `problem` and `error`.
    static std::unique_ptr<PathService> Open(Options options, std::string& problem,
                                             OpenError& error);
    ~PathService();
    PathService(const PathService&) = delete;
    PathService& operator=(const PathService&) = delete;

    // Serve: answers requests, each connection on a thread of its own, until a Stop request, or
    // until no connection was open for the idle timeout; then ends the connections still open and
    // removes the socket, unless systemd handed it over. Returns the exit status for the process
    // (0).
    int Serve();

    const ServicePlace& Place() const noexcept;

    // ServeOne: waits at most `timeout` for one connection and answers it on the calling thread;
    // false when none came. For tests.
    bool ServeOne(std::chrono::milliseconds timeout);
    bool Stopped() const noexcept;

  private:
    struct Impl;
    explicit PathService(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Velmora::SearchPath
