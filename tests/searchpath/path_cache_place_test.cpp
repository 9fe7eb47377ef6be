// The path cache's place: only a folder and a file of the user's own are used, whatever another
// user or program put there, and the folder holds no leftovers and stays bounded.

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/searchpath/cached_start.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>
#include <velmora/searchpath/path_cache_place.hpp>

#include "support/fault_system.hpp"
#include "support/scoped_env.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;
using vpath_test::FaultSystem;
namespace fs = std::filesystem;

using vpath_test::ScopedEnv;

class PathCachePlace : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        tree.File("a/fa.vl");
        folders = {tree.IRI("a")};
        ScanReport report;
        entries = MainSearchPath::Scan(folders, report)->GetFolderEntries();
        fs::permissions(tree.Root(), fs::perms(0700));
    }
    std::string Native(const std::string& relative) const { return tree.Path(relative).native(); }
    PathCacheSlot Slot(const std::string& relative) const {
        return {tree.IRI(relative), tree.IRI(relative)};
    }
    std::size_t Loaded(const std::string& relative) const {
        return LoadPathCache(tree.IRI(relative), tree.IRI(relative), folders).size();
    }

    std::vector<AbsoluteIRI> folders;
    FolderEntryList entries;
};

TEST_F(PathCachePlace, OnlyARegularFileOfTheUsersIsReadAndAWriteReplacesWhatIsOurs) {
    struct Case {
        const char* what;
        void (*plant)(const std::string& place, const std::string& aCache);
        bool writable;  // a write puts a cache there
    };
    const Case cases[] = {
        {"a FIFO", [](const std::string& p, const std::string&) { ::mkfifo(p.c_str(), 0600); },
         true},
        {"an empty folder",
         [](const std::string& p, const std::string&) { fs::create_directory(p); }, true},
        {"a folder with files",
         [](const std::string& p, const std::string&) { fs::create_directories(p + "/x"); }, false},
        {"a link to a cache",
         [](const std::string& p, const std::string& c) { fs::create_symlink(c, p); }, true},
    };
    SavePathCache(tree.IRI("good.cache"), tree.IRI("c/p.cache"), entries);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        fs::remove_all(tree.Path("c"));
        fs::create_directory(tree.Path("c"));
        c.plant(Native("c/p.cache"), Native("good.cache"));
        // Never waits on a FIFO, never follows a link.
        EXPECT_EQ(Loaded("c/p.cache"), 0u);
        bool written = true;
        try {
            SavePathCache(tree.IRI("c/p.cache"), tree.IRI("c/p.cache"), entries);
        } catch (const foundation::storage::vfs::Exception& e) {
            written = false;
            EXPECT_NE(std::string(e.what()).find("not a path cache"), std::string::npos)
                << e.what();
        }
        EXPECT_EQ(written, c.writable);
        EXPECT_EQ(Loaded("c/p.cache"), c.writable ? 1u : 0u);
        EXPECT_EQ(ClearPathCachePlace(Native("c/p.cache")).empty(), c.writable);
    }
    // A cache file of another user is neither read, nor written over, nor removed.
    SavePathCache(tree.IRI("c/p.cache"), tree.IRI("c/p.cache"), entries);
    FaultSystem faults;
    faults.PretendOwner("/c/p.cache", 4242, 0600);
    EXPECT_EQ(Loaded("c/p.cache"), 0u);
    EXPECT_THROW(SavePathCache(tree.IRI("c/p.cache"), tree.IRI("c/p.cache"), entries),
                 foundation::storage::vfs::Exception);
    EXPECT_NE(ClearPathCachePlace(Native("c/p.cache")).find("uid 4242"), std::string::npos);
    EXPECT_EQ(DescribePathCachePlace(Native("c/p.cache")),
              "a cache file of another user (uid 4242)");
}

TEST_F(PathCachePlace, AFolderOthersCanWriteIsNotUsedAndSaidOnce) {
    const ScopedEnv xdg("XDG_CACHE_HOME", Native("home/.cache"));
    const ScopedEnv home("HOME", Native("home"));
    const PathCacheSlot slot = Slot("home/.cache/vpath/p.cache");
    struct Case {
        const char* suffix;  // the folder at fault
        std::uint32_t owner;
        std::uint32_t mode;
        const char* told;
    };
    const Case cases[] = {
        {"/home/.cache/vpath", 4242, 0700, "belongs to another user (uid 4242)"},
        {"/home/.cache/vpath", ::geteuid(), 0770, "is writable by others (mode 0770)"},
        {"/home/.cache", ::geteuid(), 0777, "is writable by others (mode 0777)"},
        {"/home", ::geteuid(), 0757, "is writable by others (mode 0757)"},
    };
    SavePathCache(slot.file, slot.root, entries);
    ASSERT_EQ(LoadCachedEntries(slot, folders).size(), 1u);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.suffix);
        FaultSystem faults;
        faults.PretendOwner(c.suffix, c.owner, c.mode);
        std::vector<std::string> told;
        const CacheWarning warn = [&](const std::string& w) { told.push_back(w); };
        EXPECT_EQ(LoadCachedEntries(slot, folders, warn).size(), 0u);
        EXPECT_FALSE(SavePathCacheIfWorthIt(slot, {}, entries, warn));
        EXPECT_EQ(LoadCachedEntries(slot, folders, warn).size(), 0u);
        ASSERT_EQ(told.size(), 1u);
        EXPECT_NE(told[0].find(Native(std::string(c.suffix).substr(1)) + " " + c.told),
                  std::string::npos)
            << told[0];
    }
    // Everything of another user: the home and its caches are not the user's.
    FaultSystem faults;
    faults.PretendUser(4242);
    EXPECT_EQ(LoadCachedEntries(slot, folders).size(), 0u);
}

TEST_F(PathCachePlace, FoldersAndFilesAreTheUsersAloneWhateverTheUmask) {
    const mode_t old = ::umask(0);
    SavePathCache(tree.IRI("x/y/p.cache"), tree.IRI("x/y/p.cache"), entries);
    ::umask(old);
    EXPECT_EQ(fs::status(tree.Path("x")).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(tree.Path("x/y")).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(tree.Path("x/y/p.cache")).permissions(), fs::perms(0600));
}

// A write removes what killed writers left and keeps the folder to its bounds: the least recently
// used caches go first, the one just written stays.
TEST_F(PathCachePlace, AWriteLeavesNoLeftoversAndKeepsTheFolderBounded) {
    const std::string hex(32, '0');
    const auto cacheName = [&](int i) {
        const std::string n = std::to_string(i);
        return hex.substr(n.size()) + n + ".cache";
    };
    const auto now = fs::file_time_type::clock::now();
    for (int i = 0; i < 70; ++i) {
        tree.File("c/" + cacheName(i), "old");
        // Used longer ago the smaller i.
        fs::last_write_time(tree.Path("c/" + cacheName(i)), now + std::chrono::hours(1 + i));
    }
    const std::string dead = "c/" + cacheName(1) + ".2147483000.0.tmp";  // no such process
    const std::string old = "c/" + cacheName(2) + ".1877a3e0c5f.tmp";    // an older writer's
    const std::string live = "c/" + cacheName(3) + "." + std::to_string(::getpid()) + ".7.tmp";
    for (const auto& name : {dead, old, live})
        tree.File(name, "part");
    // Caches of throwaway folders go as soon as their folders are gone, however recently used.
    tree.File("gone/g.vl");
    ScanReport report;
    const auto goneEntries = MainSearchPath::Scan({tree.IRI("gone")}, report)->GetFolderEntries();
    for (const int i : {80, 81}) {
        SavePathCache(tree.IRI("c/" + cacheName(i)), tree.IRI("c/x"),
                      i == 80 ? goneEntries : entries);
        fs::last_write_time(tree.Path("c/" + cacheName(i)), now + std::chrono::hours(200));
    }
    fs::remove_all(tree.Path("gone"));
    SavePathCache(tree.IRI("c/" + cacheName(99)), tree.IRI("c/x"), entries);
    EXPECT_FALSE(fs::exists(tree.Path("c/" + cacheName(80))));
    EXPECT_TRUE(fs::exists(tree.Path("c/" + cacheName(81))));
    EXPECT_FALSE(fs::exists(tree.Path(dead)));
    EXPECT_FALSE(fs::exists(tree.Path(old)));
    EXPECT_TRUE(fs::exists(tree.Path(live)));
    EXPECT_TRUE(fs::exists(tree.Path("c/" + cacheName(99))));
    std::size_t caches = 0;
    for (const auto& item : fs::directory_iterator(tree.Path("c")))
        caches += item.path().extension() == ".cache";
    EXPECT_EQ(caches, kMostPathCaches);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(fs::exists(tree.Path("c/" + cacheName(i))), i >= 8) << i;
    // --all: every cache and temporary file of the user's, nothing else.
    tree.File("c/notes.txt");
    EXPECT_EQ(ClearAllPathCaches(Native("c")), "");
    EXPECT_EQ(std::distance(fs::directory_iterator(tree.Path("c")), fs::directory_iterator()), 1);
}

// A file made just after its folder was listed, in the same timestamp tick, leaves the folder's
// stamp as it was: however long after the listing the cache is written, the next start lists the
// folder again.
TEST_F(PathCachePlace, AStampAsNewAsItsListingIsNotTrusted) {
    FaultSystem faults;
    faults.FreezeStamp("/a");
    ScanReport report;
    const auto listed = MainSearchPath::Scan(folders, report);
    tree.File("a/late.vl");
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    SavePathCache(tree.IRI("p.cache"), tree.IRI("p.cache"), listed->GetFolderEntries());
    const auto loaded = LoadPathCache(tree.IRI("p.cache"), tree.IRI("p.cache"), folders);
    EntryCache known;
    known.Retain(loaded);
    const auto started = MainSearchPath::Revalidate(folders, loaded, report, &known);
    EXPECT_EQ(started->GetFileCount(), 2u);
}

}  // namespace
