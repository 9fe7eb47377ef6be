// The session's event manager: who hears what, in which order, and on which thread.

#include <chrono>
#include <condition_variable>
#include <mutex>
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

// A delivery on another thread works on the observers of its moment: one dropped meanwhile is
// not called, and one dropped while it runs is waited for.
TEST(EventMgr, ADroppedObserverIsNeverCalledAgainWhileOthersNotify) {
    const auto events = createLocalEventMgr(SessionEmId);
    std::mutex mutex;
    std::condition_variable wake;
    bool running = false, release = false, dropped = false;
    int laterCalls = 0;
    auto first = events->subscribe<OtherEvent>([&](const auto&) {
        std::unique_lock lock(mutex);
        running = true;
        wake.notify_all();
        wake.wait(lock, [&] { return release; });
        EXPECT_FALSE(dropped) << "the drop did not wait for the call under way";
    });
    auto later = events->subscribe<OtherEvent>([&](const auto&) { ++laterCalls; });
    std::thread notifier([&] { events->notify(OtherEvent{}, DeliverMode{0}); });
    std::unique_lock lock(mutex);
    wake.wait(lock, [&] { return running; });
    later.reset();
    std::thread dropper([&] {
        first.reset();
        std::lock_guard done(mutex);
        dropped = true;
        wake.notify_all();
    });
    // A drop that does not wait ends within this second; one that waits cannot end before release.
    wake.wait_for(lock, std::chrono::seconds(1), [&] { return dropped; });
    release = true;
    wake.notify_all();
    lock.unlock();
    notifier.join();
    dropper.join();
    EXPECT_EQ(laterCalls, 0);
}

}  // namespace
