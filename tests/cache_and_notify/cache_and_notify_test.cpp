// Toolbox path caches written through a factory, the session's event manager, and the change
// events sent up from a changed location.

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/text/ustring.hpp>

#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace foundation::messaging;
using namespace Velmora::PathManagement;
using foundation::storage::filefolderobserver::FileFolderChangedEvent;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::ofstream;
using vpath_test::FaultSystem;
using vpath_test::TempTree;

// A factory that runs a given function; it also checks that it is handed the root unchanged.
class ScriptedFactory final : public IPathEntryFactory {
  public:
    explicit ScriptedFactory(std::function<void(ofstream&)> script) : m_script(std::move(script)) {}
    void WriteCache(ofstream& stream, const AbsoluteIRI& root) const override {
        EXPECT_EQ(root, AbsoluteIRI(u"file:///srv/tb"));
        m_script(stream);
    }

  private:
    std::function<void(ofstream&)> m_script;
};

const AbsoluteIRI kRoot(u"file:///srv/tb");

TEST(WriteToolboxPathCache, WritesWhatTheFactoryWritesAndLeavesNothingOnFailure) {
    const std::string big(1 << 20, 'x');  // larger than the stream's buffer
    struct Case {
        const char* name;
        std::function<void(ofstream&)> script;
        std::function<void(FaultSystem&)> faults;
        bool throws;
        bool fileLeft;
        std::string content;  // when the file is left
    };
    const Case cases[] = {
        {"content", [](ofstream& s) { s << "cache"; }, nullptr, false, true, "cache"},
        {"big content", [&](ofstream& s) { s << big; }, nullptr, false, true, big},
        {"nothing written", [](ofstream&) {}, nullptr, false, true, ""},
        {"throws after a part",
         [](ofstream& s) {
             s << "half" << std::flush;
             throw std::runtime_error("factory failed");
         },
         nullptr, true, false, ""},
        {"throws before writing", [](ofstream&) { throw 42; }, nullptr, true, false, ""},
        {"disk full on a write", [&](ofstream& s) { s << big; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::WriteAll, "tb.cache", ENOSPC); }, true, false,
         ""},
        {"disk full on the final flush", [](ofstream& s) { s << "small" << std::flush; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::WriteAll, "tb.cache", ENOSPC); }, true, false,
         ""},
        {"cannot be opened", [](ofstream& s) { s << "new"; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::OpenFileForWriting, "tb.cache", EACCES); },
         true, true, "old cache"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempTree tree;
        const auto file = tree.File("tb.cache", "old cache");
        FaultSystem faults;
        if (c.faults)
            c.faults(faults);
        const ScriptedFactory factory(c.script);
        if (c.throws) {
            EXPECT_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory),
                         UnableToSaveToolboxCacheException);
        } else {
            EXPECT_NO_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory));
        }
        EXPECT_EQ(std::filesystem::exists(file), c.fileLeft);
        if (c.fileLeft) {
            EXPECT_EQ(vpath_test::ReadAll(file), c.content);
        }
    }
}

TEST(WriteToolboxPathCache, UnusableLocationsAreReportedAndCreateNothing) {
    TempTree tree;
    const ScriptedFactory factory([](ofstream& s) { s << "cache"; });
    // A missing folder, a folder in the way, and a location the storage system does not serve.
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("missing/tb.cache"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    tree.Folder("taken");
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("taken"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    EXPECT_TRUE(std::filesystem::is_directory(tree.Path("taken")));
    EXPECT_THROW(WriteToolboxPathCache(AbsoluteIRI(u"http://example.com/tb.cache"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    EXPECT_FALSE(std::filesystem::exists(tree.Path("missing")));
}

TEST(WriteToolboxPathCache, ErrorRemovingAFailedFileTakesPrecedence) {
    TempTree tree;
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::RemoveFile, "tb.cache", EPERM);
    const ScriptedFactory factory([](ofstream&) { throw std::runtime_error("factory failed"); });
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory),
                 foundation::storage::vfs::Exception);
}

TEST(UnableToSaveToolboxCacheException, ClonesAndRethrowsItsOwnType) {
    const UnableToSaveToolboxCacheException original;
    const auto copy = original.clone();
    EXPECT_THROW(copy->rethrow(), UnableToSaveToolboxCacheException);
}

// The session's event manager: who hears what, in which order, and on which thread.

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

// The walk up from a changed location, through the session's real event manager.

// Records the locations of the change events of the session while it lives; `throwAt` makes the
// observer throw a storage exception at that event (counting from 0).
class Recorder {
  public:
    explicit Recorder(int throwAt = -1)
        : m_throwAt(throwAt),
          m_subscription(createLocalEventMgr(SessionEmId)
                             ->subscribe<FileFolderChangedEvent>([this](const auto& event) {
                                 EXPECT_EQ(event.getFrozenInclusion(),
                                           FileFolderChangedEvent::FrozenInclusion{0});
                                 if (static_cast<int>(m_seen.size()) == m_throwAt) {
                                     m_seen.push_back("(threw)");
                                     throw foundation::storage::vfs::Exception("observer failed");
                                 }
                                 m_seen.push_back(Velmora::text::ToNative(event.getLocation()));
                             })) {}
    const std::vector<std::string>& Seen() const { return m_seen; }

  private:
    int m_throwAt;
    std::vector<std::string> m_seen;
    Subscription m_subscription;
};

TEST(UpstreamNotification, SendsOneEventPerLevelUpToTheFirstOrdinaryFolder) {
    struct Case {
        const char* changed;
        std::vector<std::string> events;
    };
    const Case cases[] = {
        {"file:///tb/@Poly/+impl/area.vl",
         {"file:///tb/@Poly/+impl/area.vl", "file:///tb/@Poly/+impl", "file:///tb/@Poly",
          "file:///tb"}},
        {"file:///tb/private", {"file:///tb/private", "file:///tb"}},
        {"file:///tb/resources", {"file:///tb/resources", "file:///tb"}},
        // A "." makes a file of a folder; a file without one is its own ordinary level.
        {"file:///tb/v1.2", {"file:///tb/v1.2", "file:///tb"}},
        {"file:///tb/+p/Makefile", {"file:///tb/+p/Makefile"}},
        {"file:///tb", {"file:///tb"}},
        // Dot segments are resolved before the walk.
        {"file:///tb/+p/../@C/./x.vl", {"file:///tb/@C/x.vl", "file:///tb/@C", "file:///tb"}},
        // Special folders up to the root: the root is the ordinary folder that ends the walk.
        {"file:///+a/+b", {"file:///+a/+b", "file:///+a", "file:///"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.changed);
        Recorder plain;
        NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
            AbsoluteIRI(Velmora::text::FromNative(c.changed)));
        EXPECT_EQ(plain.Seen(), c.events);
        // Where nothing is on disk the canonicalising variant walks the same levels.
        Recorder canonicalising;
        NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
            AbsoluteIRI(Velmora::text::FromNative(c.changed)));
        EXPECT_EQ(canonicalising.Seen(), c.events);
    }
}

TEST(UpstreamNotification, FailuresAreSwallowedOrFallBackAsTheFunctionSays) {
    // An invalid location: nothing sent, nothing thrown.
    Recorder nothingSent;
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(AbsoluteIRI());
    EXPECT_TRUE(nothingSent.Seen().empty());
    // Other errors of the observers pass through the plain variant...
    Recorder recorder(/*throwAt=*/1);
    EXPECT_THROW(NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
                     AbsoluteIRI(u"file:///tb/+p/x.vl")),
                 foundation::storage::vfs::Exception);
    EXPECT_EQ(recorder.Seen(), (std::vector<std::string>{"file:///tb/+p/x.vl", "(threw)"}));
}

TEST(UpstreamNotification, CanonicalisingWalksFromTheRealFolder) {
    vpath_test::TempTree tree;
    tree.File("real/+p/x.vl");
    tree.Link("link", "real");
    Recorder recorder;
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
        tree.IRI("link/+p/x.vl"));
    const auto real = [&](const std::string& relative) {
        return Velmora::text::ToNative(tree.IRI(relative).toString());
    };
    EXPECT_EQ(recorder.Seen(),
              (std::vector<std::string>{real("real/+p/x.vl"), real("real/+p"), real("real")}));

    // A storage error in the canonical walk falls back to the plain walk from the location as
    // given; what was sent stays sent.
    Recorder failing(/*throwAt=*/1);
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
        tree.IRI("link/+p/x.vl"));
    EXPECT_EQ(failing.Seen(),
              (std::vector<std::string>{real("real/+p/x.vl"), "(threw)", real("link/+p/x.vl"),
                                        real("link/+p"), real("link")}));
}

}  // namespace
