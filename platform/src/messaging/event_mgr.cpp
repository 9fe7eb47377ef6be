#include <foundation/messaging/event_mgr.hpp>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

namespace foundation::messaging {

Event::~Event() = default;

// One observer. `running` counts its calls in progress, so that unsubscribing can wait for those
// on other threads; the calls on the unsubscribing thread itself are found in t_delivering.
struct Subscription::Slot {
    Slot(EventMgr::Observer o, std::type_index t, std::weak_ptr<EventMgr::Hub> h)
        : observer(std::move(o)), type(t), hub(std::move(h)) {}

    EventMgr::Observer observer;
    std::type_index type;
    std::weak_ptr<EventMgr::Hub> hub;
    std::mutex mutex;
    std::condition_variable idle;
    int running = 0;
    bool alive = true;
};

namespace {

using Slot = Subscription::Slot;
using SlotList = std::vector<std::shared_ptr<Slot>>;

thread_local std::vector<const Slot*> t_delivering;

void Deliver(Slot& slot, const Event& event) {
    {
        std::lock_guard lock(slot.mutex);
        if (!slot.alive)
            return;
        ++slot.running;
    }
    t_delivering.push_back(&slot);
    struct Done {
        Slot& slot;
        ~Done() {
            t_delivering.pop_back();
            std::lock_guard lock(slot.mutex);
            --slot.running;
            slot.idle.notify_all();
        }
    } done{slot};
    slot.observer(event);
}

}  // namespace

// The subscriptions of one session. The lists are copied on write, so a delivery works on the list
// of its moment without holding the lock while observers run.
struct EventMgr::Hub {
    std::mutex mutex;
    std::map<std::type_index, std::shared_ptr<const SlotList>> slots;

    void Add(const std::shared_ptr<Slot>& slot) {
        std::lock_guard lock(mutex);
        auto& list = slots[slot->type];
        auto copy = list ? std::make_shared<SlotList>(*list) : std::make_shared<SlotList>();
        copy->push_back(slot);
        list = std::move(copy);
    }
    void Remove(const Slot& slot) {
        std::lock_guard lock(mutex);
        const auto found = slots.find(slot.type);
        if (found == slots.end())
            return;
        auto copy = std::make_shared<SlotList>(*found->second);
        std::erase_if(*copy, [&](const auto& s) { return s.get() == &slot; });
        if (copy->empty())
            slots.erase(found);
        else
            found->second = std::move(copy);
    }
    std::shared_ptr<const SlotList> For(std::type_index type) {
        std::lock_guard lock(mutex);
        const auto found = slots.find(type);
        return found == slots.end() ? nullptr : found->second;
    }
};

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    if (this != &other) {
        reset();
        m_slot = std::move(other.m_slot);
    }
    return *this;
}

Subscription::~Subscription() {
    reset();
}

void Subscription::reset() noexcept {
    if (!m_slot)
        return;
    const auto slot = std::exchange(m_slot, nullptr);
    if (const auto hub = slot->hub.lock())
        hub->Remove(*slot);
    const auto own = std::count(t_delivering.begin(), t_delivering.end(), slot.get());
    std::unique_lock lock(slot->mutex);
    slot->alive = false;
    slot->idle.wait(lock, [&] { return slot->running == own; });
}

Subscription EventMgr::subscribe(std::type_index type, Observer observer) const {
    auto slot = std::make_shared<Slot>(std::move(observer), type, m_hub);
    m_hub->Add(slot);
    return Subscription(std::move(slot));
}

void EventMgr::notify(const Event& event, DeliverMode /*mode: synchronous is the only one*/) const {
    const auto slots = m_hub->For(std::type_index(typeid(event)));
    if (!slots)
        return;
    for (const auto& slot : *slots)
        Deliver(*slot, event);
}

std::shared_ptr<EventMgr> createLocalEventMgr(SessionId session) {
    static std::mutex mutex;
    static std::map<std::uint32_t, std::shared_ptr<EventMgr::Hub>> hubs;
    std::lock_guard lock(mutex);
    auto& hub = hubs[session.value];
    if (!hub)
        hub = std::make_shared<EventMgr::Hub>();
    return std::make_shared<EventMgr>(hub);
}

}  // namespace foundation::messaging
