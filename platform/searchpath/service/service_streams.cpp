#include "service/service_streams.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include <velmora/searchpath/served_change.hpp>

#include "service/wire.hpp"

namespace Velmora::SearchPath {
namespace {

// How long a subscriber or a lookup's client may take to take a frame.
constexpr int kSendMs = 10'000;
// How often a subscription with nothing to send looks whether its client has left. Its thread
// and connection stay until it does, and count against the service's connections: a client that
// attaches and leaves again and again must not fill them.
constexpr std::chrono::milliseconds kLookAgain{20};
// A subscriber that has not taken this much is dropped rather than kept without end.
constexpr std::size_t kMostBacklogBytes = std::size_t{64} << 20;
constexpr std::size_t kMostBacklogFrames = std::size_t{1} << 16;

static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free,
              "the generation is shared between processes: it must be a plain atomic word");

std::atomic_ref<std::uint64_t> GenerationIn(const os::SharedPage& page) {
    return std::atomic_ref<std::uint64_t>(
        *reinterpret_cast<std::uint64_t*>(static_cast<char*>(page.Address()) + kGenerationOffset));
}

void SendDeclined(int socket) {
    os::System().SocketSend(socket, Frame(EncodeReply({kDeclined, {}, {}})), kSendMs);
}

}  // namespace

// The state lookups answer from, and the generation the page shows for it.
struct ServiceStreams::Served {
    std::uint64_t generation = 0;
    std::shared_ptr<const PathManagement::IPath> path;
};

ServiceStreams::ServiceStreams(MainSearchPathManager& manager, Log log)
    : m_manager(manager), m_log(std::move(log)) {}

std::unique_ptr<ServiceStreams> ServiceStreams::Open(const ServicePlace& place,
                                                     MainSearchPathManager& manager, Log log,
                                                     std::string& problem) {
    std::unique_ptr<ServiceStreams> streams(new ServiceStreams(manager, std::move(log)));
    auto& system = os::System();
    streams->m_pagePath = place.folder + "/" + place.key + ".gen";
    // The lock is ours: a page left there is a dead service's. Its clients keep their mapping of
    // that file, which no one writes to again, and learn from their subscription that it died.
    system.RemoveFile(streams->m_pagePath);
    if (const int err =
            system.CreateSharedPage(streams->m_pagePath, kGenerationPageBytes, streams->m_page);
        err != 0) {
        problem = fmt::format("cannot make {}: {}", streams->m_pagePath, os::ErrorText(err));
        return nullptr;
    }
    std::string opening = wire::Opening("VPgn");
    std::memcpy(streams->m_page->Address(), opening.data(), opening.size());
    const auto state = manager.GetState();
    {
        std::lock_guard lock(streams->m_mutex);
        streams->m_served = std::make_shared<const Served>(Served{state->generation, state->path});
        GenerationIn(*streams->m_page).store(state->generation);
    }
    // A change published between GetState and here is told all the same: Publish takes up every
    // generation beyond the one served.
    streams->m_observer = manager.AddPathChangeObserver(
        [raw = streams.get()](const PathManagement::PathChange& change) { raw->Publish(change); });
    if (const auto now = manager.GetState(); now->generation > state->generation) {
        std::lock_guard lock(streams->m_mutex);
        if (streams->m_served->generation < now->generation) {
            streams->m_served = std::make_shared<const Served>(Served{now->generation, now->path});
            GenerationIn(*streams->m_page).store(now->generation);
        }
    }
    return streams;
}

ServiceStreams::~ServiceStreams() {
    Close();
    m_manager.RemovePathChangeObserver(m_observer);
    m_page.reset();
    os::System().RemoveFile(m_pagePath);
}

// Runs on the thread that made the change, one change at a time, after the manager published it.
//
// The order is what keeps an attached client's memo from ever answering from a state older than
// the one the service answers from. Lookups answer from m_served, never from the manager, and
// the page's generation is stored (sequentially consistent: it is visible to every process before
// anything after it) before m_served moves to the new state. So by the time any lookup can give an
// answer of generation g+1, every client that reads the page sees g+1 and drops what it
// remembered of g; and a client keeps an answer only when the generation the answer carries is
// the one it read from the page before asking (AttachedPath). The service's manager may hold the
// new state a moment before the page shows it, while this observer waits for its turn; no answer
// of the service reflects it until then.
void ServiceStreams::Publish(const PathManagement::PathChange& change) {
    const auto describe = [&] {
        return std::make_shared<const std::string>(
            Frame(EncodeServedChange(DescribeChange(change))));
    };
    // Described outside the lock, where it keeps no lookup waiting, and only for listeners.
    std::shared_ptr<const std::string> frame;
    if (Subscribers() != 0)
        frame = describe();
    std::lock_guard lock(m_mutex);
    if (change.generation <= m_served->generation)
        return;  // taken up when the streams opened
    GenerationIn(*m_page).store(change.generation);
    m_served = std::make_shared<const Served>(Served{change.generation, change.after});
    if (m_closed || m_subscribers.empty())
        return;
    if (!frame)
        frame = describe();  // a subscriber came meanwhile
    for (auto& subscriber : m_subscribers) {
        if (subscriber.overflowed)
            continue;
        subscriber.bytes += frame->size();
        subscriber.frames.push_back(frame);
        if (subscriber.bytes > kMostBacklogBytes || subscriber.frames.size() > kMostBacklogFrames) {
            subscriber.overflowed = true;
            subscriber.frames.clear();
        }
    }
    m_changed.notify_all();
}

std::shared_ptr<const ServiceStreams::Served> ServiceStreams::Current() const {
    std::lock_guard lock(m_mutex);
    return m_served;
}

std::size_t ServiceStreams::Subscribers() const {
    std::lock_guard lock(m_mutex);
    return m_subscribers.size();
}

void ServiceStreams::Close() {
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
    }
    m_changed.notify_all();
}

void ServiceStreams::ServeSubscription(int socket, const ServiceRequest& request) {
    // Its client remembers answers: they must be the ones its own settings would give.
    if (request.settings != AnswerSettings()) {
        SendDeclined(socket);
        return;
    }
    auto& system = os::System();
    std::list<Subscriber>::iterator me;
    std::uint64_t from = 0;
    {
        std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        me = m_subscribers.emplace(m_subscribers.end());
        from = m_served->generation;
    }
    // Frames queued from here on follow the opening frame: the subscriber hears of every
    // generation after `from`, each once, in order.
    bool serving = system.SocketSend(socket, Frame(EncodeSubscribed(from)), kSendMs) == 0;
    std::deque<std::shared_ptr<const std::string>> frames;
    while (serving) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait_for(lock, kLookAgain,
                               [&] { return m_closed || me->overflowed || !me->frames.empty(); });
            if (m_closed)
                break;
            if (me->overflowed) {
                if (m_log)
                    m_log("dropped a subscriber that fell too far behind");
                break;
            }
            frames.swap(me->frames);
            me->bytes = 0;
        }
        // A subscriber says nothing after its request: something to read is its end.
        if (frames.empty() && system.SocketWait(socket, 0) == 0)
            break;
        for (const auto& frame : frames) {
            if (system.SocketSend(socket, *frame, kSendMs) != 0) {
                serving = false;
                break;
            }
        }
        frames.clear();
    }
    std::lock_guard lock(m_mutex);
    m_subscribers.erase(me);
}

void ServiceStreams::ServeLookup(int socket, const ServiceRequest& request,
                                 const std::function<void()>& freshen) {
    if (request.settings != AnswerSettings()) {
        SendDeclined(socket);
        return;
    }
    if (freshen)
        freshen();
    const auto served = Current();
    LookupAnswer answer;
    answer.generation = served->generation;
    answer.files.reserve(request.arguments.size());
    for (const auto& name : request.arguments)
        answer.files.push_back(ResolveOnPath(*served->path, name));
    os::System().SocketSend(socket, Frame(EncodeLookupAnswer(answer)), kSendMs);
}

}  // namespace Velmora::SearchPath
