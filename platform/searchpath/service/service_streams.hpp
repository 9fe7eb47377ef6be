#pragma once
// The path service's long-lived uses: subscribers told of every change of the path, lookups of
// names, and the generation page through which attached clients know when what they remember has
// gone out of date (attached_path.hpp is their side).
//
//   auto streams = ServiceStreams::Open(place, *manager, log, problem);
//   ... on a connection's own thread, once its request is read:
//   case ServiceOperation::Subscribe: streams->ServeSubscription(socket, request); break;
//   case ServiceOperation::Lookup: streams->ServeLookup(socket, request, syncOrRevalidate); break;
//   ... when the service ends, before the manager goes:
//   streams->Close();
//
// Internal to the service room.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/service_place.hpp>
#include <velmora/searchpath/service_protocol.hpp>

namespace Velmora::SearchPath {

// The generation page: `<key>.gen` beside the socket, kGenerationPageBytes long:
//   bytes 0-3  "VPgn"
//   bytes 4-7  the protocol's version (little-endian)
//   bytes 8-15 the generation of the state the service answers from (native byte order, read
//              and written as one atomic 64-bit word)
inline constexpr std::size_t kGenerationPageBytes = 64;
inline constexpr std::size_t kGenerationOffset = 8;

class ServiceStreams {
  public:
    using Log = std::function<void(const std::string&)>;

    // Open: makes the generation page (replacing a dead service's) and starts hearing the
    // manager's changes. Null, with why in `problem`, when the page cannot be made.
    static std::unique_ptr<ServiceStreams> Open(const ServicePlace& place,
                                                MainSearchPathManager& manager, Log log,
                                                std::string& problem);
    ~ServiceStreams();
    ServiceStreams(const ServiceStreams&) = delete;
    ServiceStreams& operator=(const ServiceStreams&) = delete;

    // ServeSubscription: declines a client whose settings differ from the service's (its answers
    // would not be the client's); else sends on `socket` the generation it starts from, then one
    // frame per change, until the client leaves, Close is called, or the client falls so far behind
    // that its frames would fill the service's memory (then the connection is closed, never a frame
    // dropped). Blocks the calling thread meanwhile.
    void ServeSubscription(int socket, const ServiceRequest& request);

    // ServeLookup: resolves the request's names on the state the generation page shows and sends
    // the answer. `freshen` runs first: it takes in every change made before the request.
    void ServeLookup(int socket, const ServiceRequest& request,
                     const std::function<void()>& freshen);

    // Close: ends every subscription and refuses new ones.
    void Close();

    // Subscribers: how many are being served; a service with subscribers is not idle.
    std::size_t Subscribers() const;

  private:
    struct Served;
    struct Subscriber {
        std::deque<std::shared_ptr<const std::string>> frames;
        std::size_t bytes = 0;
        bool overflowed = false;
    };

    ServiceStreams(MainSearchPathManager& manager, Log log);
    void Publish(const PathManagement::PathChange& change);
    std::shared_ptr<const Served> Current() const;

    MainSearchPathManager& m_manager;
    Log m_log;
    std::string m_pagePath;
    std::unique_ptr<os::SharedPage> m_page;
    std::uint64_t m_observer = 0;

    mutable std::mutex m_mutex;  // guards all below
    std::condition_variable m_changed;
    std::shared_ptr<const Served> m_served;
    std::list<Subscriber> m_subscribers;
    bool m_closed = false;
};

}  // namespace Velmora::SearchPath
