// The watcher follows what the user names (a folder of the path, the path definition file), not
// the inode that had the name when the watch began; and it keeps following when inotify runs out.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_poller.hpp>
#include <velmora/searchpath/path_watcher.hpp>

#include "searchpath/path_fixture.hpp"
#include "support/fault_system.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;
using vpath_test::FaultSystem;
using namespace std::chrono_literals;

// A manager's path with a path definition file of the test's choosing, whose reloads are counted
// rather than read: what is watched is the question, not what the file says. Its refreshes can be
// made slow, to hold the watcher up.
class CountedPath final : public IWatchedPath {
  public:
    CountedPath(const std::vector<AbsoluteIRI>& folders, std::string pathDefinition)
        : m_manager(folders, {}), m_pathDefinition(std::move(pathDefinition)) {
        m_manager.AddPathChangeObserver([this](const auto&) { Tell(); });
    }
    std::shared_ptr<const PathState> GetState() const override { return m_manager.GetState(); }
    std::shared_ptr<const MainSearchPath> GetSnapshot() const { return m_manager.GetSnapshot(); }
    std::shared_ptr<const PathState> Refresh() override { return m_manager.Refresh(); }
    std::shared_ptr<const PathState> RefreshFolders(
        const std::vector<AbsoluteIRI>& locations) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(refreshDelayMs.load()));
        return m_manager.RefreshFolders(locations);
    }
    std::shared_ptr<const PathState> ReloadPathDefinition(
        foundation::core::except::Notification&) override {
        {
            std::lock_guard lock(m_mutex);
            ++m_reloads;
        }
        Tell();
        return nullptr;
    }
    std::string GetPathDefinitionPath() const override { return m_pathDefinition; }
    std::atomic<int> refreshDelayMs{0};
    int Reloads() {
        std::lock_guard lock(m_mutex);
        return m_reloads;
    }

    // Waits, up to `limit`, until `done` holds of the path and the reloads so far.
    bool WaitFor(const std::function<bool(const MainSearchPath&, int reloads)>& done,
                 std::chrono::seconds limit = 10s) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit,
                                  [&] { return done(*m_manager.GetSnapshot(), m_reloads); });
    }

  private:
    void Tell() {
        std::lock_guard lock(m_mutex);
        m_changed.notify_all();
    }
    MainSearchPathManager m_manager;
    std::string m_pathDefinition;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_reloads = 0;
};

class PathWatcherNamesTest : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        tree.File("one/a.vl");
        tree.File("two/b.vl");
    }
    void Start(const std::string& pathDefinition = {}) {
        path = std::make_unique<CountedPath>(std::vector{tree.IRI("one"), tree.IRI("two")},
                                             pathDefinition);
        watcher = std::make_unique<PathWatcher>(
            *path, PathWatcher::Options{.pollInterval = 20ms, .warn = [this](const std::string& w) {
                                            std::lock_guard lock(warningsMutex);
                                            warnings.push_back(w);
                                        }});
    }
    bool Holds(const MainSearchPath& p, const std::string& relative) const {
        return vpath_test::Holds(p, tree, relative);
    }
    bool WaitForFile(const std::string& relative) {
        return path->WaitFor([&](const MainSearchPath& p, int) { return Holds(p, relative); });
    }
    bool WaitForReload() {
        return path->WaitFor([](const MainSearchPath&, int reloads) { return reloads > 0; });
    }
    // Saves a path definition file as `vpath add` does: a new file renamed over the old.
    void Save(const std::string& relative, const std::string& content) {
        tree.File(relative + ".new", content);
        std::filesystem::rename(tree.Path(relative + ".new"), tree.Path(relative));
    }

    std::mutex warningsMutex;
    std::vector<std::string> warnings;
    std::unique_ptr<CountedPath> path;
    std::unique_ptr<PathWatcher> watcher;
};

// A thread that made a file and waits for the watcher gets a state that shows the file, even when
// the file came while the watcher was busy with an earlier one and is slow to read folders.
TEST_F(PathWatcherNamesTest, WaitUntilSettledReturnsOnceTheRefreshIsPublished) {
    Start();
    path->refreshDelayMs = 50;
    for (int round = 0; round < 4; ++round) {
        const std::string wanted = "two/wanted" + std::to_string(round) + ".vl";
        SCOPED_TRACE(wanted);
        tree.File("one/busy" + std::to_string(round) + ".vl");
        std::this_thread::sleep_for(10ms);
        tree.File(wanted);
        const auto state = watcher->WaitUntilSettled(10s);
        ASSERT_TRUE(state);
        EXPECT_TRUE(Holds(*state->path, wanted));
    }
}

// Deploy scripts swap a folder by rename, or remove it and make it again, or re-point a link: the
// folder that has the name now is read and watched, so a file made in it later is seen too.
TEST_F(PathWatcherNamesTest, AFolderOfThePathIsFollowedByItsName) {
    Start();
    struct Case {
        const char* what;
        std::function<void()> change;
        std::string file;  // in two afterwards
    };
    const Case cases[] = {
        {"swapped by rename",
         [&] {
             tree.File("staged/swapped.vl");
             std::filesystem::rename(tree.Path("two"), tree.Path("two.old"));
             std::filesystem::rename(tree.Path("staged"), tree.Path("two"));
         },
         "two/swapped.vl"},
        {"removed and made again",
         [&] {
             std::filesystem::remove_all(tree.Path("two"));
             tree.File("two/again.vl");
         },
         "two/again.vl"},
        {"made again as a symbolic link",
         [&] {
             tree.File("elsewhere/linked.vl");
             std::filesystem::remove_all(tree.Path("two"));
             // Gone from the path first: then only the name tells that it is back.
             EXPECT_TRUE(path->WaitFor([&](const MainSearchPath& p, int) {
                 return !p.GetPathEntryFromAbsoluteIRI(
                     tree.IRI("two"), Velmora::PathManagement::FilenameMatchingPolicy::Exact);
             }));
             tree.Link("two", tree.Path("elsewhere").string());
         },
         "two/linked.vl"},
        {"a symbolic link re-pointed, as ln -sfn does",
         [&] {
             tree.File("other/repointed.vl");
             tree.Link("two.new", tree.Path("other").string());
             std::filesystem::rename(tree.Path("two.new"), tree.Path("two"));
         },
         "two/repointed.vl"},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        c.change();
        EXPECT_TRUE(WaitForFile(c.file));
        const std::string later = "two/later" + std::to_string(n++) + ".vl";
        tree.File(later);
        EXPECT_TRUE(WaitForFile(later));
    }
}

// Dotfile managers make the path definition file a symbolic link; and a watch may start before
// the file's folder is made. Either way, a save is taken up.
TEST_F(PathWatcherNamesTest, ThePathDefinitionFileIsFollowedWhereverItLies) {
    struct Case {
        const char* what;
        std::string watched;  // the path definition file, as the watcher is given it
        std::function<void()> before;
        std::string saved;  // the file that a save replaces
    };
    const Case cases[] = {
        {"a symbolic link to a file elsewhere", "config/pathdef",
         [&] {
             tree.File("dotfiles/pathdef", "/a\n");
             tree.Folder("config");
             tree.Link("config/pathdef", tree.Path("dotfiles/pathdef").string());
         },
         "dotfiles/pathdef"},
        {"in folders not made yet", "not/yet/pathdef", [] {}, "not/yet/pathdef"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        c.before();
        Start(tree.Path(c.watched).string());
        std::filesystem::create_directories(tree.Path(c.saved).parent_path());
        Save(c.saved, "/a\n/b\n");
        EXPECT_TRUE(WaitForReload());
        // Each later save is followed too, not only the first that brought the file about.
        ASSERT_TRUE(watcher->WaitUntilSettled(5s));
        const int before = path->Reloads();
        Save(c.saved, "/a\n/b\n/c\n");
        EXPECT_TRUE(
            path->WaitFor([&](const MainSearchPath&, int reloads) { return reloads > before; }));
        watcher.reset();
    }
}

// Other programs may hold every inotify watch or instance the user may have: what cannot be
// watched is polled, the path definition file as well, with one warning, and the watcher runs on.
TEST_F(PathWatcherNamesTest, OutOfInotifyWhatCannotBeWatchedIsPolled) {
    tree.File("pathdef", "/a\n");
    struct Case {
        const char* what;
        FaultSystem::Op op;
        int error;
        const char* warning;
    };
    const Case cases[] = {
        {"watches", FaultSystem::Op::WatchAdd, ENOSPC, "out of inotify watches"},
        {"instances", FaultSystem::Op::WatchOpen, EMFILE, "out of inotify instances"},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FaultSystem faulty;
        faulty.Fail(c.op, "", c.error);
        ASSERT_NO_THROW(Start(tree.Path("pathdef").string()));
        const std::string file = "two/polled" + std::to_string(n) + ".vl";
        tree.File(file);
        EXPECT_TRUE(WaitForFile(file));
        Save("pathdef", "/a\n/b" + std::string(++n, 'x') + "\n");
        EXPECT_TRUE(WaitForReload());
        watcher.reset();
        std::lock_guard lock(warningsMutex);
        ASSERT_EQ(warnings.size(), 1u);
        EXPECT_NE(warnings[0].find(c.warning), std::string::npos) << warnings[0];
        warnings.clear();
    }
}

// On a file system with coarse stamps, a folder changed twice within one tick keeps the stamp of
// the first change: a poll reads again a folder whose stamp was too recent to trust.
TEST_F(PathWatcherNamesTest, APollReadsAgainAFolderWhoseStampWasTooRecentToTrust) {
    FaultSystem faulty;
    faulty.FreezeStamp("/two");  // every later change of two falls within its present tick
    CountedPath counted({tree.IRI("one"), tree.IRI("two")}, "");
    PathPoller poller(counted, {.granularity = std::chrono::hours(1)});
    foundation::core::except::Notification problems;
    poller.Poll(problems);
    tree.File("two/same_tick.vl");
    poller.Poll(problems);
    EXPECT_TRUE(Holds(*counted.GetSnapshot(), "two/same_tick.vl"));
}

}  // namespace
