// Scanning folders from disk into entries, and the path cache: a start from the cache answers as a
// scan would, whatever happened on disk since the cache was written and whatever became of the
// cache file.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

#include "../../platform/searchpath/path_cache/path_cache_format.hpp"
#include "searchpath/path_fixture.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::SearchPath;
using foundation::storage::vfs::AbsoluteIRI;
using ::testing::ElementsAre;
using Velmora::PathManagement::PathEntryType;
using vpath_test::Answers;
using vpath_test::FaultSystem;
namespace fs = std::filesystem;

// Scanning folders from disk into entries: what an entry holds, what a scan reports, and which
// entries a rescan keeps.

std::vector<ustring> NamesOf(const FolderEntry& entry) {
    std::vector<ustring> names;
    for (const auto& item : *entry.GetItems())
        names.push_back(item->GetFileName());
    return names;
}

std::vector<ustring> SubEntryNames(const FolderEntry& entry) {
    std::vector<ustring> names;
    for (const auto& sub : entry.SubEntries())
        names.push_back(sub->GetName());
    return names;
}

std::vector<ScanProblem::Kind> KindsOf(const ScanReport& report) {
    std::vector<ScanProblem::Kind> kinds;
    for (const auto& p : report.Problems())
        kinds.push_back(p.kind);
    return kinds;
}

using ScanTest = vpath_test::TempTreeTest;

TEST_F(ScanTest, EntryHoldsFilesAndSpecialSubEntries) {
    // tb/docs is an ordinary subfolder: not on the path.
    for (const char* file :
         {"tb/b.vl", "tb/a.vlp", "tb/README", "tb/.hidden", "tb/archive.tar.gz",
          "tb/docs/ignored.vl", "tb/+pkg/f.vl", "tb/+pkg/+inner/g.vl", "tb/+pkg/@Cls/Cls.vl",
          "tb/@Point/Point.vl", "tb/@Point/private/helper.vl", "tb/private/p.vl",
          "tb/resources/data.json"})
        tree.File(file);
    tree.Link("tb/linked.vl", "b.vl");
    tree.Link("tb/dangling.vl", "no-such-file");

    ScanReport report;
    const auto tb = FolderScanner().ScanMainEntry(tree.IRI("tb"), report);
    ASSERT_TRUE(tb);
    EXPECT_TRUE(report.empty());

    // Files are ordered by name; links to files count, dangling links do not.
    EXPECT_THAT(NamesOf(*tb), ElementsAre(u".hidden", u"README", u"a.vlp", u"archive.tar.gz",
                                          u"b.vl", u"linked.vl"));
    // A file's name and extension split at the last dot of the name; a leading dot is no
    // extension.
    const auto& items = *tb->GetItems();
    EXPECT_EQ(items[0]->GetName(), u".hidden");
    EXPECT_EQ(items[0]->GetExtension(), u"");
    EXPECT_EQ(items[3]->GetName(), u"archive.tar");
    EXPECT_EQ(items[3]->GetExtension(), u".gz");
    // Special sub-entries by name; ordinary subfolders are not entries.
    EXPECT_THAT(SubEntryNames(*tb), ElementsAre(u"+pkg", u"@Point", u"private", u"resources"));
    EXPECT_EQ(tb->GetPathEntryType(), PathEntryType::Ordinary);
    EXPECT_EQ(tb->SubEntries()[0]->GetPathEntryType(), PathEntryType::PlusFolder);
    EXPECT_EQ(tb->SubEntries()[1]->GetPathEntryType(), PathEntryType::AtFolder);
    EXPECT_EQ(tb->GetPrivateSubEntry(), tb->SubEntries()[2]);
    EXPECT_EQ(tb->GetSpecialSubEntry2(), tb->SubEntries()[3]);
    EXPECT_EQ(tb->GetSpecialSubEntry3(), nullptr);
    // Packages nest and hold classes; a class folder holds its own private folder.
    const auto& pkg = *tb->SubEntries()[0];
    EXPECT_THAT(SubEntryNames(pkg), ElementsAre(u"+inner", u"@Cls"));
    const auto& point = *tb->SubEntries()[1];
    EXPECT_THAT(SubEntryNames(point), ElementsAre(u"private"));
    EXPECT_EQ(pkg.GetAbsoluteIRI(), tree.IRI("tb/+pkg"));
    EXPECT_EQ(pkg.GetCanonicalAbsoluteIRI().getIRI(), tree.IRI("tb/+pkg"));
}

TEST_F(ScanTest, ProblemsAreReportedAndNeverAbortTheScan) {
    for (const char* file : {"good/a.vl", "good/+locked/x.vl", "good/+ok/y.vl", "plain-file"})
        tree.File(file);
    tree.Folder("looping");
    tree.Link("looping/+again", ".");  // a package folder that leads back to its owner
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::ListFolder, "/+locked", EACCES);

    ScanReport report;
    const auto entries = FolderScanner().ScanMainEntries(
        {tree.IRI("good"), tree.IRI("missing"), tree.IRI("plain-file"), tree.IRI("looping")},
        report);
    ASSERT_EQ(entries.size(), 4u);
    // The unreadable package is left out; the rest of its folder is scanned.
    ASSERT_TRUE(entries[0]);
    EXPECT_THAT(SubEntryNames(*entries[0]), ElementsAre(u"+ok"));
    EXPECT_THAT(NamesOf(*entries[0]), ElementsAre(u"a.vl"));
    // Folders that cannot be used contribute nothing.
    EXPECT_EQ(entries[1], nullptr);
    EXPECT_EQ(entries[2], nullptr);
    // A loop is cut where it closes; the folder itself is still an entry.
    ASSERT_TRUE(entries[3]);
    EXPECT_TRUE(entries[3]->SubEntries().empty());
    // Every problem is reported, in path order, with what caused it.
    EXPECT_THAT(KindsOf(report),
                ElementsAre(ScanProblem::Kind::Unreadable, ScanProblem::Kind::Missing,
                            ScanProblem::Kind::NotAFolder, ScanProblem::Kind::SymlinkLoop));
    EXPECT_EQ(report.Problems()[0].location, tree.IRI("good/+locked"));
    EXPECT_EQ(report.Problems()[0].errorNumber, EACCES);
    EXPECT_THAT(report.Problems()[0].Describe(),
                ::testing::HasSubstr("cannot read folder " + tree.Path("good/+locked").native() +
                                     ": Permission denied"));
    EXPECT_THAT(report.Problems()[1].Describe(), ::testing::HasSubstr("does not exist"));
}

TEST_F(ScanTest, LinksThatBranchReadEachFolderOnce) {
    // Each level holds +a and +b, both leading to the next level: 2^20 ways down, 21 folders.
    constexpr int kLevels = 20;
    for (int level = 0; level <= kLevels; ++level) {
        const std::string folder = "levels/" + std::to_string(level);
        tree.File(folder + "/f" + std::to_string(level) + ".vl");
        if (level < kLevels) {
            tree.Link(folder + "/+a", "../" + std::to_string(level + 1));
            tree.Link(folder + "/+b", "../" + std::to_string(level + 1));
        }
    }
    ScanReport report;
    const auto entry = FolderScanner().ScanMainEntry(tree.IRI("levels/0"), report);
    ASSERT_TRUE(entry);
    int depth = 0;
    for (auto at = entry; !at->SubEntries().empty(); at = at->SubEntries().front()) {
        EXPECT_THAT(SubEntryNames(*at), ElementsAre(u"+a"));
        ++depth;
    }
    EXPECT_EQ(depth, kLevels);
    // The second way into each level is reported and passed over.
    EXPECT_EQ(KindsOf(report), std::vector(kLevels, ScanProblem::Kind::Duplicate));
    EXPECT_EQ(report.Problems().back().location, tree.IRI("levels/0/+b"));
}

TEST_F(ScanTest, RescanKeepsUnchangedEntriesAndRenewsChangedOnes) {
    for (const char* file : {"tb/a.vl", "tb/+pkg/f.vl", "tb/private/p.vl", "other/o.vl"})
        tree.File(file);

    EntryCache cache;
    const FolderScanner scanner(&cache);
    ScanReport report;
    const auto first = scanner.ScanMainEntries({tree.IRI("tb"), tree.IRI("other")}, report);
    cache.Retain(first);
    // Nothing changed: the very same objects come back.
    const auto again = scanner.ScanMainEntries({tree.IRI("tb"), tree.IRI("other")}, report);
    EXPECT_EQ(again[0], first[0]);
    EXPECT_EQ(again[1], first[1]);
    // A file added to a package renews the package and its owner, nothing else.
    tree.File("tb/+pkg/g.vl");
    const auto after = scanner.ScanMainEntries({tree.IRI("tb"), tree.IRI("other")}, report);
    EXPECT_NE(after[0], first[0]);
    EXPECT_NE(after[0]->SubEntries()[0], first[0]->SubEntries()[0]);
    EXPECT_EQ(after[0]->SubEntries()[1], first[0]->SubEntries()[1]);  // private
    EXPECT_EQ(after[0]->GetFileTable(), first[0]->GetFileTable());    // tb's own listing
    EXPECT_EQ(after[1], first[1]);
    EXPECT_THAT(NamesOf(*after[0]->SubEntries()[0]), ElementsAre(u"f.vl", u"g.vl"));
    EXPECT_TRUE(report.empty());
}

TEST_F(ScanTest, OrdinarySubfoldersOfAToolbox) {
    for (const char* folder : {"tb/zeta", "tb/alpha", "tb/+pkg", "tb/private"})
        tree.Folder(folder);
    tree.File("tb/file.vl");
    tree.Link("tb/linked", "alpha");
    EXPECT_THAT(ListOrdinarySubfolders(tree.IRI("tb")),
                ElementsAre(tree.IRI("tb/alpha"), tree.IRI("tb/linked"), tree.IRI("tb/zeta")));
    EXPECT_THROW(ListOrdinarySubfolders(tree.IRI("nothing")), foundation::storage::vfs::Exception);
}

// The path cache: a start from the cache answers as a scan would, whatever happened on disk since
// the cache was written and whatever became of the cache file.

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
