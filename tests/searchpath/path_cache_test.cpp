// The path cache: a start from the cache answers as a scan would, whatever happened on disk since
// the cache was written and whatever became of the cache file.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

#include "../../platform/searchpath/path_cache/path_cache_format.hpp"
#include "searchpath/path_fixture.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;
using vpath_test::Answers;
using vpath_test::FaultSystem;
namespace fs = std::filesystem;

const AbsoluteIRI kRoot(u"file:///home/ada/.config/vpath/pathdef");

constexpr std::int64_t kSecond = 1'000'000'000;

std::int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Sets the times of a folder (access and modification) to `ns`.
void SetTimes(const fs::path& folder, std::int64_t ns) {
    const timespec t{static_cast<time_t>(ns / 1'000'000'000),
                     static_cast<long>(ns % 1'000'000'000)};
    const timespec times[2] = {t, t};
    ASSERT_EQ(::utimensat(AT_FDCWD, folder.c_str(), times, 0), 0);
}

std::int64_t ModifiedNs(const fs::path& folder) {
    struct stat st {};
    EXPECT_EQ(::stat(folder.c_str(), &st), 0);
    return static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
}

class PathCache : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f :
             {"one/area.vl", "one/+pkg/f.vl", "one/+pkg/@Cls/Cls.vl", "one/@Point/Point.vl",
              "one/private/secret.vl", "one/resources/data.txt", "two/only.vl", "two/caf\xE9.vl",
              "two/area.vl", "two/+pkg/f.vl"})
            tree.File(f);
        tree.Folder("target/+linked");
        tree.File("target/+linked/l.vl");
        tree.Link("two/+linked", tree.Path("target/+linked").string());
        folders = {tree.IRI("one"), tree.IRI("two")};
    }

    std::shared_ptr<const MainSearchPath> Scan() const {
        ScanReport report;
        return MainSearchPath::Scan(folders, report);
    }
    // A start from the cache file: its entries revalidated against the disk.
    std::shared_ptr<const MainSearchPath> Start() const {
        EntryCache known;
        const auto loaded = LoadPathCache(tree.IRI("path.cache"), kRoot, folders);
        known.Retain(loaded);
        ScanReport report;
        return MainSearchPath::Revalidate(folders, loaded, report, &known);
    }
    // Writes the cache as if it were written a few seconds from now, so that it trusts the stamps
    // of folders made just now (a folder's change time cannot be set back).
    void Save(const MainSearchPath& path) const {
        const std::int64_t later = NowNs() + 3 * kSecond;
        std::ofstream(tree.Path("path.cache"), std::ios::binary | std::ios::trunc)
            << PathCacheFactory(path.GetFolderEntries(), later).Encode(kRoot);
    }

    std::vector<AbsoluteIRI> folders;
};

TEST_F(PathCache, UnchangedFoldersAreTakenFromTheCacheWithOneStatEach) {
    const auto scanned = Scan();
    Save(*scanned);
    const std::string loaded =
        Answers(*MainSearchPath::Create(LoadPathCache(tree.IRI("path.cache"), kRoot)));
    EXPECT_EQ(loaded, Answers(*scanned));

    // In the saved order, reordered, a part of the saved path, and with a folder it lacks.
    tree.File("three/area.vl");
    const std::vector<AbsoluteIRI> paths[] = {folders,
                                              {folders[1], folders[0]},
                                              {folders[1]},
                                              {tree.IRI("three"), folders[0], folders[1]}};
    for (const auto& path : paths) {
        SCOPED_TRACE(path.size() * 10 + (path[0] == folders[0]));
        const int uncached = path[0] == tree.IRI("three") ? 1 : 0;
        ScanReport scanReport;
        const std::string expected = Answers(*MainSearchPath::Scan(path, scanReport));
        FaultSystem counts;
        EntryCache known;
        const auto entries = LoadPathCache(tree.IRI("path.cache"), kRoot, path);
        known.Retain(entries);
        ScanReport report;
        const auto started = MainSearchPath::Revalidate(path, entries, report, &known);
        EXPECT_EQ(Answers(*started), expected);
        EXPECT_EQ(counts.Calls(FaultSystem::Op::ListFolder), uncached);
        // One realpath remains: the special subfolder reached through a symbolic link.
        EXPECT_EQ(counts.Calls(FaultSystem::Op::RealPath), 1 + uncached);
        if (path == folders) {
            EXPECT_EQ(started->GetFolderEntries(), entries);  // the very objects: nothing changed
            // Each entry shares its folder's location: matching them compared no text.
            EXPECT_EQ(&entries[1]->GetLocation().toString(), &folders[1].toString());
        }
    }
}

TEST_F(PathCache, ChangesAfterWritingAreSeenAtTheNextStart) {
    struct Case {
        const char* name;
        void (*change)(const vpath_test::TempTree&);
        const char* folder;  // whose times are forced back to what the cache holds
    };
    const Case cases[] = {
        {"file added", [](const vpath_test::TempTree& t) { t.File("two/new.vl"); }, "two"},
        {"file removed", [](const vpath_test::TempTree& t) { fs::remove(t.Path("one/area.vl")); },
         "one"},
        {"file renamed",
         [](const vpath_test::TempTree& t) {
             fs::rename(t.Path("one/+pkg/f.vl"), t.Path("one/+pkg/g.vl"));
         },
         "one/+pkg"},
        {"special folder added", [](const vpath_test::TempTree& t) { t.File("two/@New/New.vl"); },
         "two"},
        {"linked folder changed",
         [](const vpath_test::TempTree& t) { t.File("target/+linked/m.vl"); }, "target/+linked"},
    };
    for (const bool forceTimesBack : {false, true}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (forceTimesBack ? ", times forced back" : ""));
            fs::remove_all(tree.Root());
            fs::create_directories(tree.Root());
            SetUp();
            Save(*Scan());
            const std::int64_t cachedTime = ModifiedNs(tree.Path(c.folder));
            c.change(tree);
            if (forceTimesBack)
                SetTimes(tree.Path(c.folder), cachedTime);
            EXPECT_EQ(Answers(*Start()), Answers(*Scan()));
        }
    }
}

// "area.vl.2945" has the index tag of "area.vl" and sorts before it in their bucket (a path of
// few names has one bucket): only the whole name may answer.
TEST_F(PathCache, ANameSharingTheIndexTagOfALongerOneIsToldApart) {
    tree.File("tag/area.vl.2945");
    folders = {tree.IRI("tag"), tree.IRI("two")};
    const auto scanned = Scan();
    Save(*scanned);
    EXPECT_EQ(Answers(*MainSearchPath::Create(LoadPathCache(tree.IRI("path.cache"), kRoot))),
              Answers(*scanned));
}

TEST_F(PathCache, ChangeInTheTickOfWritingIsSeenOnCoarseFileSystems) {
    FaultSystem coarse;
    coarse.CoarsenFolderTimes(1'000'000'000);  // whole seconds, folder sizes unknown
    // Fresh folders: their stamps fall in the second the cache is written.
    tree.File("fresh/a.vl");
    folders = {tree.IRI("fresh")};
    SavePathCache(tree.IRI("path.cache"), kRoot, Scan()->GetFolderEntries());
    tree.File("fresh/b.vl");
    EXPECT_EQ(Answers(*Start()), Answers(*Scan()));
    EXPECT_NE(Answers(*Start()).find("b.vl"), std::string::npos);
}

using path_cache_internal::Reseal;

TEST_F(PathCache, DamagedCachesAreIgnoredAndThePathScanned) {
    const auto scanned = Scan();
    Save(*scanned);
    const std::string good = vpath_test::ReadAll(tree.Path("path.cache"));
    const std::string expected = Answers(*scanned);
    std::string why;
    ASSERT_FALSE(ParsePathCache(good, kRoot, why).empty()) << why;

    std::vector<std::pair<std::string, std::string>> damaged = {
        {"empty", ""},
        {"other version", Reseal([&] {
             auto b = good;
             b[8] = static_cast<char>(path_cache_internal::kVersion + 1);
             return b;
         }())},
        {"other byte order", Reseal([&] {
             auto b = good;
             std::reverse(b.begin() + 12, b.begin() + 16);
             return b;
         }())},
        {"other magic", "X" + good.substr(1)},
        {"trailing bytes dropped from the last section", good.substr(0, good.size() - 1)},
    };
    std::mt19937 random(20261123);
    for (int i = 0; i < 40; ++i) {
        const std::size_t at = random() % good.size();
        damaged.emplace_back("truncated at " + std::to_string(at), good.substr(0, at));
        auto flipped = good;
        flipped[at] = static_cast<char>(flipped[at] ^ (1 << (random() % 8)));
        damaged.emplace_back("bit flipped at " + std::to_string(at), flipped);
    }
    for (const auto& [name, bytes] : damaged) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(ParsePathCache(bytes, kRoot, why).empty());
        std::ofstream(tree.Path("path.cache"), std::ios::binary | std::ios::trunc) << bytes;
        EXPECT_EQ(Answers(*Start()), expected);
    }
    {
        SCOPED_TRACE("written for another root");
        EXPECT_TRUE(ParsePathCache(good, AbsoluteIRI(u"file:///other/pathdef"), why).empty());
    }
    SCOPED_TRACE("a folder where the cache should be");
    fs::remove(tree.Path("path.cache"));
    tree.Folder("path.cache");
    EXPECT_EQ(Answers(*Start()), expected);
}

}  // namespace

// A start writes the cache again only once the folders and files it would list again, or holds
// for folders gone from the path, are more than a 64th of the path's: 64 folders of two files
// are 192 items, and a folder is three.
TEST(PathCacheWorth, WrittenOnceMoreThanA64thOfThePathWouldBeListedAgain) {
    vpath_test::TempTree tree;
    std::vector<AbsoluteIRI> folders;
    for (int i = 0; i < 65; ++i) {
        const std::string folder = "f" + std::to_string(i);
        tree.File(folder + "/a.vl");
        tree.File(folder + "/b.vl");
        folders.push_back(tree.IRI(folder));
    }
    ScanReport report;
    const std::vector<AbsoluteIRI> path(folders.begin(), folders.begin() + 64);
    const auto saved = MainSearchPath::Scan(path, report)->GetFolderEntries();
    fs::rename(tree.Path("f0/a.vl"), tree.Path("f0/c.vl"));
    fs::rename(tree.Path("f1/a.vl"), tree.Path("f1/c.vl"));
    const auto fresh = MainSearchPath::Scan(folders, report)->GetFolderEntries();
    const auto with = [&](std::initializer_list<int> changed) {
        FolderEntryList entries = saved;
        for (const int i : changed)
            entries[static_cast<std::size_t>(i)] = fresh[static_cast<std::size_t>(i)];
        return entries;
    };
    FolderEntryList added = saved;
    added.push_back(fresh[64]);
    const FolderEntryList dropped(saved.begin() + 1, saved.end());
    struct Case {
        const char* name;
        FolderEntryList entries;
        FolderEntryList saved;
        bool worth;
    };
    const Case cases[] = {
        {"nothing changed", saved, saved, false},
        {"one folder changed: 3 of 192", with({0}), saved, false},
        {"two folders changed", with({0, 1}), saved, true},
        {"one folder added: 3 of 195", added, saved, false},
        {"one folder gone: 3 of 189", dropped, saved, true},
        {"no cache yet", saved, {}, true},
        {"an empty path and no cache", {}, {}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(CacheWorthSaving(c.saved, c.entries), c.worth);
    }
}
