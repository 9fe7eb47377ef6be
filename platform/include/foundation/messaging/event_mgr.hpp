#pragma once
// The messaging service's event managers: observers subscribe to a type of event; whoever notifies
// an event has it delivered to those observers on its own thread, in order, before notify returns.
//
// Every session has one set of subscriptions. createLocalEventMgr hands out a local manager of a
// session, a cheap handle that any number of callers may make and drop: an event notified through
// one local manager reaches every observer subscribed through any manager of the same session.
//
//   auto events = createLocalEventMgr(SessionEmId);
//   auto subscription = events->subscribe<FileFolderChangedEvent>(
//       [](const FileFolderChangedEvent& e) { Refresh(e.getLocation()); });
//   events->notify(FileFolderChangedEvent(u"file:///tb/x.vl", {}), DeliverMode{0});
//   // Refresh(u"file:///tb/x.vl") has run when notify returns
//
// Thread-safe: subscribing, unsubscribing and notifying may happen on any threads at once. Once a
// Subscription is dropped its observer is not called again, and no call of it is still running on
// another thread (dropping it inside its own observer is allowed).

#include <cstdint>
#include <functional>
#include <memory>
#include <typeindex>
#include <utility>

#include <velmora/platform/export.hpp>

namespace foundation::messaging {

// Event: the base of everything that goes through an event manager. Observers subscribe to the
// dynamic type of the event exactly (not to its bases).
class VELMORA_PLATFORM_EXPORT Event {
  public:
    virtual ~Event();

  protected:
    Event() = default;
    Event(const Event&) = default;
    Event& operator=(const Event&) = default;
};

// SessionId: which session's subscriptions a local manager reaches.
struct SessionId {
    std::uint32_t value = 0;
    friend bool operator==(SessionId, SessionId) = default;
};

// SessionEmId: the current session, the one that the product's components share.
inline constexpr SessionId SessionEmId{0};

// DeliverMode: how notify delivers. Only the value 0 exists: synchronously, on the notifying
// thread, to the observers in the order they subscribed.
enum class DeliverMode : std::uint8_t { Synchronous = 0 };

class EventMgr;

// Subscription: keeps an observer subscribed while it lives. Movable, not copyable.
class VELMORA_PLATFORM_EXPORT Subscription {
  public:
    Subscription() noexcept = default;
    Subscription(Subscription&&) noexcept = default;
    Subscription& operator=(Subscription&& other) noexcept;
    ~Subscription();

    // reset: unsubscribes now; waits for calls of the observer running on other threads.
    void reset() noexcept;
    explicit operator bool() const noexcept { return m_slot != nullptr; }

    struct Slot;  // the manager's record of the observer; opaque

  private:
    friend class EventMgr;
    explicit Subscription(std::shared_ptr<Slot> slot) noexcept : m_slot(std::move(slot)) {}
    std::shared_ptr<Slot> m_slot;
};

class VELMORA_PLATFORM_EXPORT EventMgr {
  public:
    using Observer = std::function<void(const Event&)>;
    struct Hub;

    explicit EventMgr(std::shared_ptr<Hub> hub) noexcept : m_hub(std::move(hub)) {}

    // subscribe: `observer` is called with every event of exactly the type `type` notified in the
    // session, until the returned Subscription is dropped.
    Subscription subscribe(std::type_index type, Observer observer) const;

    template <class E, class F>
    Subscription subscribe(F&& observer) const {
        return subscribe(std::type_index(typeid(E)),
                         [f = std::forward<F>(observer)](const Event& event) {
                             f(static_cast<const E&>(event));
                         });
    }

    // notify: delivers `event` to the observers of its type on this thread, in the order they
    // subscribed. An observer subscribed meanwhile is not called for this event. An exception of
    // an observer stops the delivery and propagates to the caller.
    void notify(const Event& event, DeliverMode mode) const;

  private:
    std::shared_ptr<Hub> m_hub;
};

// createLocalEventMgr: a local event manager of `session`.
VELMORA_PLATFORM_EXPORT std::shared_ptr<EventMgr> createLocalEventMgr(SessionId session);

}  // namespace foundation::messaging
