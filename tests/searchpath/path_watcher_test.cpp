// The watcher keeps the manager's path equal to what a fresh scan of the disk would give.

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_watcher.hpp>

#include "searchpath/path_fixture.hpp"
#include "support/fault_system.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;
using namespace std::chrono_literals;

// Every entry under `entry` with its files, one per line.
void Describe(const FolderEntry& entry, std::string& out) {
    out += Velmora::text::ToNative(entry.GetAbsoluteIRI().toString()) + ":";
    for (const auto& name : entry.GetFileNames())
        out += " " + Velmora::text::ToNative(name);
    out += "\n";
    for (const auto& sub : entry.SubEntries())
        Describe(*sub, out);
}

std::string Describe(const MainSearchPath& path) {
    std::string out;
    for (const auto& entry : path.GetFolderEntries())
        Describe(*entry, out);
    return out;
}

class PathWatcherTest : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f : {"one/area.vl", "one/+pkg/f.vl", "one/@Point/Point.vl",
                              "one/private/p.vl", "two/only.vl", "outside/x.vl"})
            tree.File(f);
    }

    // Starts the manager of `folders` (one and two if none), and its watcher.
    void Start(PathWatcher::Options options = {}, std::vector<std::string> folders = {}) {
        OpenManager(folders);
        StartWatcher(std::move(options));
    }
    void OpenManager(std::vector<std::string> folders = {},
                     MainSearchPathManager::Options managerOptions = {}) {
        std::vector<AbsoluteIRI> locations;
        for (const auto& folder :
             folders.empty() ? std::vector<std::string>{"one", "two"} : folders)
            locations.push_back(tree.IRI(folder));
        manager = std::make_unique<MainSearchPathManager>(locations, std::move(managerOptions));
        manager->AddPathChangeObserver([this](const auto&) {
            std::lock_guard lock(mutex);
            ++changes;
            changed.notify_all();
        });
    }
    void StartWatcher(PathWatcher::Options options = {},
                      std::optional<EarlyWatches> early = std::nullopt) {
        options.pollInterval = 20ms;
        watcher =
            early ? std::make_unique<PathWatcher>(*manager, std::move(options), std::move(*early))
                  : std::make_unique<PathWatcher>(*manager, std::move(options));
    }

    // Waits, up to `limit`, for a published path for which `done` holds.
    bool WaitFor(const std::function<bool(const MainSearchPath&)>& done,
                 std::chrono::seconds limit = 60s) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] { return done(*manager->GetSnapshot()); });
    }
    bool WaitForFreshScan() {
        return WaitFor([&](const MainSearchPath& path) { return Describe(path) == FreshScan(); });
    }
    std::string FreshScan() const {
        ScanReport report;
        return Describe(*MainSearchPath::Scan({tree.IRI("one"), tree.IRI("two")}, report));
    }
    bool Holds(const MainSearchPath& p, const std::string& relative) const {
        return vpath_test::Holds(p, tree, relative);
    }

    // The watcher's thread calls the OS until the watcher is gone: the seam outlives it.
    vpath_test::FaultSystem faults;
    std::mutex mutex;
    std::condition_variable changed;
    int changes = 0;
    std::unique_ptr<MainSearchPathManager> manager;
    std::unique_ptr<PathWatcher> watcher;
};

TEST_F(PathWatcherTest, ABurstOfNestedNewFoldersIsReportedWhole) {
    Start();
    // mkdir -p chains of special folders, filled while the watcher is adding their watches.
    int files = 0;
    for (int chain = 0; chain < 20; ++chain) {
        const std::string base = "one/+c" + std::to_string(chain) + "/+d/@E/private";
        std::filesystem::create_directories(tree.Path(base));
        for (std::string folder = base; folder != "one";
             folder = std::filesystem::path(folder).parent_path()) {
            for (int i = 0; i < 25; ++i, ++files)
                tree.File(folder + "/f" + std::to_string(i) + ".vl");
        }
    }
    ASSERT_EQ(files, 2000);
    EXPECT_TRUE(WaitForFreshScan()) << Describe(*manager->GetSnapshot());
    EXPECT_EQ(manager->GetSnapshot()->GetFileCount(), 2000u + 5u);
}

TEST_F(PathWatcherTest, ChangesAreSeenWhateverTheirNameAndWayIn) {
    Start();
    struct Case {
        const char* what;
        std::function<void()> change;
        std::string file;  // on the path afterwards
        bool present;
    };
    const Case cases[] = {
        {"a file renamed in",
         [&] { std::filesystem::rename(tree.Path("outside/x.vl"), tree.Path("two/x.vl")); },
         "two/x.vl", true},
        {"a file renamed out",
         [&] { std::filesystem::rename(tree.Path("one/area.vl"), tree.Path("outside/area.vl")); },
         "one/area.vl", false},
        {"a special folder renamed in",
         [&] {
             tree.File("outside/+moved/m.vl");
             std::filesystem::rename(tree.Path("outside/+moved"), tree.Path("two/+moved"));
         },
         "two/+moved/m.vl", true},
        {"a file made in the folder renamed in, so it is watched",
         [&] { tree.File("two/+moved/later.vl"); }, "two/+moved/later.vl", true},
        {"a special folder renamed out",
         [&] { std::filesystem::rename(tree.Path("one/+pkg"), tree.Path("outside/+pkg")); },
         "one/+pkg/f.vl", false},
        {"a file without an extension", [&] { tree.File("one/Makefile"); }, "one/Makefile", true},
        {"a name that is not UTF-8", [&] { tree.File("one/caf\xe9.vl"); }, "one/caf\xe9.vl", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        c.change();
        EXPECT_TRUE(
            WaitFor([&](const MainSearchPath& p) { return Holds(p, c.file) == c.present; }));
    }
    EXPECT_TRUE(WaitForFreshScan());
}

TEST_F(PathWatcherTest, AChangeWithinOneStampTickIsStillSeen) {
    faults.FreezeStamp("/two");
    Velmora::os::FileStatus frozen;
    ASSERT_EQ(Velmora::os::System().Stat(tree.Path("two").string(), frozen), 0);
    Start();
    tree.File("two/same_tick.vl");
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "two/same_tick.vl"); }));
    // Read again by the stamps, which tell nothing: what the event brought in stays.
    manager->Refresh();
    EXPECT_TRUE(Holds(*manager->GetSnapshot(), "two/same_tick.vl"));
}

TEST_F(PathWatcherTest, AfterLostEventsThePathIsAFreshScan) {
    Start();
    // The start's own look at the stamps, which would see the changes below, is over.
    ASSERT_TRUE(watcher->WaitUntilSettled(10s));
    faults.LoseEvents();
    // Lost; a special folder made meanwhile is watched afterwards.
    std::filesystem::create_directories(tree.Path("two/+new"));
    tree.File("two/lost.vl");
    faults.ForceOverflow();
    ASSERT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "two/lost.vl"); }, 10s));
    tree.File("two/+new/after.vl");
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "two/+new/after.vl"); }));
    EXPECT_TRUE(WaitForFreshScan());
}

// A file written without a pause is still reported once the longest settle time has passed.
TEST_F(PathWatcherTest, AChangeAmidAStreamOfEventsIsReportedWithinTheLongestSettle) {
    Start();
    faults.StreamEvents(true);
    tree.File("two/streamed.vl");
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "two/streamed.vl"); }, 10s));
    faults.StreamEvents(false);
}

// A sync waits for no settle time: the changes made before it are in, whatever may follow.
TEST_F(PathWatcherTest, ASyncAmidAChangeIsAnsweredWithoutWaitingForTheBurstToSettle) {
    Start({.settle = 5s, .maxSettle = 20s, .syncFolder = tree.Folder("sync").string()});
    tree.File("two/before.vl");
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(watcher->Sync(3s), PathWatcher::SyncResult::Synced);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_TRUE(Holds(*manager->GetSnapshot(), "two/before.vl"));
}

TEST_F(PathWatcherTest, OutOfWatchesTheRestIsPolledWithAWarning) {
    for (const char* folder : {"/two", "/+pkg", "/@Point"})
        faults.Fail(vpath_test::FaultSystem::Op::WatchAdd, folder, ENOSPC);
    std::vector<std::string> warnings;
    Start({.warn = [&](const std::string& w) { warnings.push_back(w); }});
    EXPECT_EQ(watcher->PolledFolderCount(), 3u);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("out of inotify watches"), std::string::npos);
    tree.File("two/polled.vl");
    tree.File("one/watched.vl");
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) {
        return Holds(p, "two/polled.vl") && Holds(p, "one/watched.vl");
    }));
}

TEST_F(PathWatcherTest, FoldersThatLeaveThePathAreNoLongerWatched) {
    Start();
    // one, one/+pkg, one/@Point, one/private and two.
    ASSERT_EQ(watcher->WatchedFolderCount(), 5u);
    const auto watching = [&](std::size_t count) {
        for (int i = 0; i < 600 && watcher->WatchedFolderCount() != count; ++i)
            std::this_thread::sleep_for(100ms);
        return watcher->WatchedFolderCount() == count;
    };
    foundation::core::except::Notification messages;
    const std::vector<AbsoluteIRI> onlyTwo = {tree.IRI("two")};
    manager->ApplyPathAfterRemoving(onlyTwo, messages);
    EXPECT_TRUE(watching(1));
    const std::vector<AbsoluteIRI> both = {tree.IRI("two"), tree.IRI("one")};
    manager->ApplyPathAfterAdding(both, messages);
    EXPECT_TRUE(watching(5));
    // Still watched as it ought to be: a change in the folder that came back is seen.
    tree.File("one/+pkg/back.vl");
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "one/+pkg/back.vl"); }));
}

TEST_F(PathWatcherTest, AFolderOfThePathThatDoesNotExistIsTakenUpWhenItAppears) {
    Start({}, {"one", "two", "later", "not/yet/there", "moved"});
    ASSERT_EQ(manager->GetSnapshot()->GetFolderEntries().size(), 2u);
    struct Case {
        const char* what;
        std::function<void()> change;
        std::string file;  // on the path afterwards
    };
    const Case cases[] = {
        {"made where its parent exists", [&] { tree.File("later/l.vl"); }, "later/l.vl"},
        {"made with the folders above it",
         [&] { std::filesystem::create_directories(tree.Path("not/yet/there/+p")); },
         "not/yet/there/+p"},
        {"renamed into place, full",
         [&] {
             tree.File("outside/m/m.vl");
             std::filesystem::rename(tree.Path("outside/m"), tree.Path("moved"));
         },
         "moved/m.vl"},
        {"vanished and back",
         [&] {
             std::filesystem::remove_all(tree.Path("two"));
             EXPECT_TRUE(
                 WaitFor([&](const MainSearchPath& p) { return !Holds(p, "two/only.vl"); }));
             tree.File("two/back.vl");
         },
         "two/back.vl"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        c.change();
        EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) {
            return Holds(p, c.file) ||
                   p.GetPathEntryFromAbsoluteIRI(
                       tree.IRI(c.file), Velmora::PathManagement::FilenameMatchingPolicy::Exact);
        }));
    }
    EXPECT_TRUE(manager->GetWarnings()->empty());
    // In the order of the list, as a fresh start would have them.
    ScanReport report;
    EXPECT_EQ(Describe(*manager->GetSnapshot()),
              Describe(*MainSearchPath::Scan({tree.IRI("one"), tree.IRI("two"), tree.IRI("later"),
                                              tree.IRI("not/yet/there"), tree.IRI("moved")},
                                             report)));
}

TEST_F(PathWatcherTest, AChangeBetweenTheStartsScanAndTheWatchIsTakenUp) {
    OpenManager();
    tree.File("two/between.vl");
    StartWatcher();
    EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, "two/between.vl"); }));
}

// The early watches come from an older reading of the path: what it no longer holds stops being
// watched, and what it did not know yet is watched too.
TEST_F(PathWatcherTest, EarlyWatchesFromAnOlderReadingEndAsThePathsOwn) {
    ScanReport report;
    const auto older = MainSearchPath::Scan({tree.IRI("one"), tree.IRI("outside")}, report);
    EarlyWatches early("", older->GetFolderEntries());
    std::filesystem::create_directories(tree.Path("one/+later"));
    MainSearchPathManager::Options options;
    options.knownEntries = older->GetFolderEntries();
    OpenManager({}, std::move(options));
    StartWatcher({}, std::move(early));
    // one with +pkg, @Point, private and +later, and two; not outside.
    EXPECT_EQ(watcher->WatchedFolderCount(), 6u);
    for (const char* file : {"two/new.vl", "one/+later/new.vl", "one/+pkg/new.vl"}) {
        SCOPED_TRACE(file);
        tree.File(file);
        EXPECT_TRUE(WaitFor([&](const MainSearchPath& p) { return Holds(p, file); }));
    }
    EXPECT_TRUE(WaitForFreshScan());
}

}  // namespace
