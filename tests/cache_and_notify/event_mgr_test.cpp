// The session's event manager: who hears what, in which order, and on which thread.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>

namespace {

using namespace foundation::messaging;
using foundation::storage::filefolderobserver::FileFolderChangedEvent;

struct OtherEvent final : Event {};

FileFolderChangedEvent Changed(const char16_t* location) {
    return FileFolderChangedEvent(location, FileFolderChangedEvent::FrozenInclusion{0});
}

TEST(EventMgr, DeliversToTheSessionsObserversOfTheTypeInOrder) {
    std::vector<std::string> heard;
    const auto a = createLocalEventMgr(SessionEmId);
    const auto b = createLocalEventMgr(SessionEmId);
    const auto elsewhere = createLocalEventMgr(SessionId{7});
    auto first = a->subscribe<FileFolderChangedEvent>([&](const auto&) { heard.push_back("1"); });
    auto second = b->subscribe<FileFolderChangedEvent>(
        [&](const auto& e) { heard.push_back(e.getLocation() == u"file:///x" ? "2" : "?"); });
    auto other = a->subscribe<OtherEvent>([&](const auto&) { heard.push_back("other"); });
    auto foreign =
        elsewhere->subscribe<FileFolderChangedEvent>([&](const auto&) { heard.push_back("7"); });

    // Through either local manager of the session, to both observers, in subscription order.
    b->notify(Changed(u"file:///x"), DeliverMode{0});
    EXPECT_EQ(heard, (std::vector<std::string>{"1", "2"}));
    heard.clear();
    a->notify(OtherEvent{}, DeliverMode{0});
    EXPECT_EQ(heard, (std::vector<std::string>{"other"}));
    heard.clear();
    first.reset();
    a->notify(Changed(u"file:///x"), DeliverMode{0});
    EXPECT_EQ(heard, (std::vector<std::string>{"2"}));
}

TEST(EventMgr, AnObserverMayDropItsOwnSubscription) {
    const auto events = createLocalEventMgr(SessionEmId);
    int calls = 0;
    Subscription self;
    self = events->subscribe<OtherEvent>([&](const auto&) {
        ++calls;
        self.reset();
    });
    events->notify(OtherEvent{}, DeliverMode{0});
    events->notify(OtherEvent{}, DeliverMode{0});
    EXPECT_EQ(calls, 1);
}

TEST(EventMgr, ADroppedObserverIsNeverCalledAgainWhileOthersNotify) {
    const auto events = createLocalEventMgr(SessionEmId);
    std::atomic<bool> stop{false};
    std::vector<std::thread> notifiers;
    for (int i = 0; i < 3; ++i) {
        notifiers.emplace_back([&] {
            while (!stop.load())
                events->notify(OtherEvent{}, DeliverMode{0});
        });
    }
    for (int round = 0; round < 200; ++round) {
        // Not atomic on purpose: ThreadSanitizer sees a call that outlives the subscription.
        bool dropped = false;
        auto subscription =
            events->subscribe<OtherEvent>([&](const auto&) { EXPECT_FALSE(dropped); });
        std::this_thread::yield();
        subscription.reset();
        dropped = true;
    }
    stop.store(true);
    for (auto& t : notifiers)
        t.join();
}

}  // namespace
