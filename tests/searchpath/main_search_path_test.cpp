// The host's main search path: lookups in path order, scopes, entries and their relations, walks,
// partial matches from its index of folder names, what a change of the path did, and the
// manager's refresh of the folders that change events name.

#include <algorithm>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/text/ustring.hpp>

#include "searchpath/path_fixture.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace Velmora::SearchPath;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using ::testing::ElementsAre;
using vpath_test::kEverything;
using vpath_test::kFull;
using vpath_test::kPrimary;
using vpath_test::TwoFolderPath;
using MainSearchPathTest = TwoFolderPath;

constexpr auto kExact = FilenameMatchingPolicy::Exact;

std::vector<ustring> Locations(const PathEntryVector& entries, const vpath_test::TempTree& tree) {
    std::vector<ustring> out;
    const auto root = tree.IRI().toString();
    for (const auto& e : entries)
        out.push_back(e->GetAbsoluteIRI().toString().substr(root.size() + 1));
    return out;
}

// Where `name` resolves in `scope`, relative to the tree; "" when nowhere.
std::string Resolve(const MainSearchPath& path, const vpath_test::TempTree& tree, SearchScope scope,
                    const ustring& name, const std::vector<ustring>& exts,
                    FilenameMatchingPolicy policy = FilenameMatchingPolicy::PlatformDefault) {
    const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
    const auto hit = path.FindFirstInScope(scope, target, policy);
    if (!hit)
        return "";
    // The item lives in the folder of the entry that the answer names.
    EXPECT_EQ(hit->GetPathItem()->GetLocation(), hit->GetPathEntry()->GetAbsoluteIRI());
    const auto native = Velmora::text::ToNative(hit->GetPathItem()->GetAbsoluteIRI().getPath());
    return native.substr(tree.Root().native().size() + 1);
}

TEST_F(MainSearchPathTest, ResolvesInPathOrderWithinTheScope) {
    const std::uint32_t privateOnly[] = {3};
    const std::uint32_t resourcesOnly[] = {5};
    const std::vector<ustring> none;
    const auto ignoreCase = FilenameMatchingPolicy::IgnoreCase;
    struct Case {
        SearchScope scope;
        ustring name;
        const std::vector<ustring>& exts;
        std::string expected;
        FilenameMatchingPolicy policy = FilenameMatchingPolicy::PlatformDefault;
    };
    const Case cases[] = {
        // Path order beats extension preference: the earlier folder's .vl wins over a later .vlx.
        {kPrimary, u"area", languageExtensions, "one/area.vl"},
        // Within one folder the preferred extension wins, whatever the policy.
        {kPrimary, u"only", languageExtensions, "two/only.vlp"},
        {kPrimary, u"ONLY", languageExtensions, "two/only.vlp", ignoreCase},
        // Ignoring case, the exact spelling is preferred; without one, the first by name.
        {kPrimary, u"only.vl", languageExtensions, "two/only.vl", ignoreCase},
        {kPrimary, u"ONLY.VL", languageExtensions, "two/Only.vl", ignoreCase},
        {kPrimary, u"ONLY.VL", languageExtensions, ""},
        {kPrimary, u"ONLY.VL", languageExtensions, "", kExact},
        // A name's own extension narrows the search to it; no list looks for the exact name.
        {kPrimary, u"area.vlx", languageExtensions, "two/area.vlx"},
        {kPrimary, u"Readme", none, "two/Readme"},
        {kPrimary, u"area.m", languageExtensions, ""},
        {kPrimary, u"", languageExtensions, ""},
        // Private folders only when the scope names them; resources folders never by name.
        {kPrimary, u"secret", languageExtensions, ""},
        {privateOnly, u"area", languageExtensions, "one/private/area.vl"},
        {resourcesOnly, u"area", languageExtensions, ""},
        {SearchScope(), u"area", languageExtensions, ""},
        // A package may be named with or without its "+", and every enclosing package must be.
        {kFull, u"+pkg/f", languageExtensions, "one/+pkg/f.vl"},
        {kFull, u"pkg/Cls/Cls", languageExtensions, "one/+pkg/@Cls/Cls.vl"},
        {kFull, u"pkg/inner/g", languageExtensions, "one/+pkg/+inner/g.vl"},
        {kFull, u"inner/g", languageExtensions, ""},
        {kFull, u"@Cls/Cls", languageExtensions, ""},
        // An ordinary folder name selects that main entry.
        {kFull, u"two/area", languageExtensions, "two/area.vlx"},
        {kFull, u"one/only", languageExtensions, ""},
        {kPrimary, u"pkg/f", languageExtensions, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.name));
        EXPECT_EQ(Resolve(*path, tree, c.scope, c.name, c.exts, c.policy), c.expected);
    }
}

TEST_F(MainSearchPathTest, EntriesKnowTheirMainEntryParentAndOrder) {
    const auto one = Entry("one");
    const auto two = Entry("two");
    const auto pkg = Entry("one/+pkg");
    const auto cls = Entry("one/+pkg/@Cls");
    // Main entries in path order.
    EXPECT_THAT(*path->GetMainEntries(), ElementsAre(one, two));
    EXPECT_EQ(path->GetEntryCount(), 9u);
    // Every entry belongs to its main entry; parents go one level up.
    EXPECT_EQ(path->GetMainEntryForEntry(*cls), one);
    EXPECT_EQ(path->GetParentEntryForEntry(*cls), pkg);
    EXPECT_EQ(path->GetParentEntryForEntry(*pkg), one);
    EXPECT_EQ(path->GetParentEntryForEntry(*one), nullptr);
    // A sub-entry sorts equal to its main entry.
    EXPECT_TRUE(path->FirstEntryIsBeforeSecondOnPath(*cls, *two));
    EXPECT_FALSE(path->FirstEntryIsBeforeSecondOnPath(*two, *cls));
    EXPECT_FALSE(path->FirstEntryIsBeforeSecondOnPath(*cls, *one));
    EXPECT_FALSE(path->FirstEntryIsBeforeSecondOnPath(*one, *cls));
    EXPECT_FALSE(path->FirstEntryIsBeforeSecondOnPath(*one, *one));
    // An entry of another path is not on this one, even for the same folder.
    ScanReport report;
    const auto other = MainSearchPath::Scan({tree.IRI("one")}, report);
    const auto foreign = other->GetMainEntries()->front();
    EXPECT_FALSE(path->IsEntryOnPath(*foreign));
    EXPECT_TRUE(path->IsEntryOnPath(*cls));
    EXPECT_EQ(path->GetMainEntryForEntry(*foreign), nullptr);
    EXPECT_TRUE(path->FirstEntryIsBeforeSecondOnPath(*two, *foreign));
    EXPECT_FALSE(path->FirstEntryIsBeforeSecondOnPath(*foreign, *two));
}

TEST_F(MainSearchPathTest, EntriesByLocation) {
    tree.Link("alias", "one");
    ScanReport report;
    const auto aliased = MainSearchPath::Scan({tree.IRI("alias")}, report);
    const auto entry = aliased->GetMainEntries()->front();
    // By the location it was put on the path under, and by its real location.
    EXPECT_EQ(aliased->GetPathEntryFromAbsoluteIRI(tree.IRI("alias"), kExact), entry);
    EXPECT_EQ(aliased->GetPathEntryFromAbsoluteIRI(CanonicalAbsoluteIRI(tree.IRI("one"), u"")),
              entry);
    EXPECT_EQ(aliased->GetPathEntryFromAbsoluteIRI(tree.IRI("one"), kExact), nullptr);
    EXPECT_EQ(entry->GetCanonicalAbsoluteIRI().getIRI(), tree.IRI("one"));
    // Sub-entries resolve through the link too.
    const auto pkg =
        aliased->GetPathEntryFromAbsoluteIRI(CanonicalAbsoluteIRI(tree.IRI("one/+pkg"), u""));
    ASSERT_TRUE(pkg);
    EXPECT_EQ(pkg->GetAbsoluteIRI(), tree.IRI("alias/+pkg"));
    // Case matters unless the policy ignores it.
    const AbsoluteIRI upper(tree.IRI().toString() + u"/ONE");
    EXPECT_EQ(path->GetPathEntryFromAbsoluteIRI(upper, kExact), nullptr);
    EXPECT_EQ(path->GetPathEntryFromAbsoluteIRI(upper, FilenameMatchingPolicy::IgnoreCase),
              Entry("one"));
}

TEST_F(MainSearchPathTest, EntriesByName) {
    const std::uint32_t packages[] = {1};
    const auto byName = [&](SearchScope scope, const ustring& name, FilenameMatchingPolicy policy) {
        return Locations(path->GetMethodEntriesByName(scope, name, policy), tree);
    };
    const std::vector<ustring> points = {u"one/@Point", u"two/@Point"};
    // Class folders in path order; by name, among those whose parent the scope selects.
    EXPECT_THAT(Locations(path->GetMethodEntries(), tree),
                ElementsAre(u"one/+pkg/@Cls", u"one/@Point", u"two/@Point"));
    EXPECT_EQ(byName(kPrimary, u"Point", kExact), points);
    EXPECT_TRUE(byName(kPrimary, u"Cls", kExact).empty());
    EXPECT_THAT(byName(packages, u"Cls", kExact), ElementsAre(u"one/+pkg/@Cls"));
    EXPECT_TRUE(byName(kPrimary, u"point", kExact).empty());
    EXPECT_EQ(byName(kPrimary, u"point", FilenameMatchingPolicy::IgnoreCase), points);
    // By the folders a location ends with, "+" and "@" optional.
    EXPECT_THAT(
        Locations(path->GetPartiallyMatchingEntries(SearchScope(kFull), u"pkg/Cls", kExact), tree),
        ElementsAre(u"one/+pkg/@Cls"));
    EXPECT_TRUE(path->GetPartiallyMatchingEntries(SearchScope(kFull), u"inner", kExact).empty());
}

TEST_F(MainSearchPathTest, WalksVisitInPathOrderAndStopWhenAsked) {
    const std::uint32_t classes[] = {2};
    const auto walk = [&](SearchScope scope) {
        PathEntryVector seen;
        EXPECT_FALSE(path->ForEachEntry(scope, [&](const auto& e) {
            seen.push_back(e);
            return false;
        }));
        return Locations(seen, tree);
    };
    // Each main entry, then its tree, sub-entries by name.
    EXPECT_THAT(walk(kEverything), ElementsAre(u"one", u"one/+pkg", u"one/+pkg/+inner",
                                               u"one/+pkg/@Cls", u"one/@Point", u"one/private",
                                               u"one/resources", u"two", u"two/@Point"));
    // A scope of class folders alone still reaches them beneath the main entries, but not beneath
    // packages it does not visit.
    EXPECT_THAT(walk(classes), ElementsAre(u"one/@Point", u"two/@Point"));
    // The callback's true stops the walk at once.
    int calls = 0;
    EXPECT_TRUE(
        path->ForEachEntry(SearchScope(kEverything), [&](const auto&) { return ++calls == 2; }));
    EXPECT_EQ(calls, 2);
    // The concurrent walk visits the same entries, in any order, and stops too.
    std::mutex mutex;
    std::size_t seen = 0;
    EXPECT_FALSE(path->ConcurrentForEachEntry(SearchScope(kEverything), [&](const auto&) {
        std::lock_guard lock(mutex);
        ++seen;
        return false;
    }));
    EXPECT_EQ(seen, 9u);
    EXPECT_TRUE(path->ConcurrentForEachEntry(SearchScope(kEverything),
                                             [&](const auto& e) { return e == Entry("two"); }));
}

TEST_F(MainSearchPathTest, RepeatedFoldersAreReportedAndKeptOnce) {
    ScanReport report;
    const auto repeated =
        MainSearchPath::Scan({tree.IRI("one"), tree.IRI("two"), tree.IRI("one/")}, report);
    EXPECT_EQ(repeated->GetMainEntries()->size(), 2u);
    ASSERT_EQ(report.Problems().size(), 1u);
    EXPECT_EQ(report.Problems()[0].kind, ScanProblem::Kind::Duplicate);
    EXPECT_EQ(report.Problems()[0].location, tree.IRI("one"));
}

TEST_F(MainSearchPathTest, ASpecialFolderOnThePathIsReachedThroughItsHolderInEitherOrder) {
    ScanReport report;
    const auto one = MainSearchPath::Scan({tree.IRI("one")}, report);
    for (const char* special : {"one/private", "one/resources", "one/+pkg/@Cls", "one/@Point"}) {
        const auto alone = MainSearchPath::Scan({tree.IRI(special)}, report);
        for (const bool first : {true, false}) {
            SCOPED_TRACE(std::string(special) + (first ? " first" : " last"));
            auto folders = std::vector{tree.IRI(special), tree.IRI("one")};
            auto entries = std::vector{alone->GetFolderEntries()[0], one->GetFolderEntries()[0]};
            if (!first) {
                std::swap(folders[0], folders[1]);
                std::swap(entries[0], entries[1]);
            }
            // Scanned at once, or its holder added to a path that held it alone.
            for (const auto& both : {MainSearchPath::Scan(folders, report),
                                     MainSearchPath::Rearrange(*alone, entries)}) {
                EXPECT_THAT(Locations(*both->GetMainEntries(), tree), ElementsAre(u"one"));
                EXPECT_EQ(both->GetEntryCount(), one->GetEntryCount());
                EXPECT_EQ(Resolve(*both, tree, SearchScope(kPrimary), u"area", languageExtensions),
                          "one/area.vl");
                EXPECT_EQ(
                    Resolve(*both, tree, SearchScope(kPrimary), u"secret", languageExtensions), "");
            }
        }
    }
    // Without its holder, the folder is searched as any folder put on the path.
    const auto resources = MainSearchPath::Scan({tree.IRI("one/resources")}, report);
    EXPECT_EQ(Resolve(*resources, tree, SearchScope(kPrimary), u"area", languageExtensions),
              "one/resources/area.vl");
    EXPECT_TRUE(report.empty());
}

// GetPartiallyMatchingEntries of the scanned main search path: answered from its index of folder
// names, and in agreement with the library's lenient rule entry by entry.

class PartialMatchTest : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f : {"tb/geometry/+shapes/@Polygon/x", "tb/geometry/private/x",
                              "tb/geometry/resources/x", "tb/ab/c/x", "tb/b/c/x", "tb/B/c/x",
                              "tb/n\xe9/+p\xff/x", "tb/stats/@Sample/x", "tb/+odd/x"})
            tree.File(f);
        ScanReport report;
        path = MainSearchPath::Scan(
            {tree.IRI("tb/geometry"), tree.IRI("tb/ab/c"), tree.IRI("tb/b/c"), tree.IRI("tb/B/c"),
             tree.IRI("tb/n\xe9"), tree.IRI("tb/stats"), tree.IRI("tb/+odd")},
            report);
        ASSERT_TRUE(report.empty());
    }

    // The locations below tb/ of the entries that the host answers with.
    std::vector<std::string> Matching(const std::string& partial, FilenameMatchingPolicy policy) {
        std::vector<std::string> found;
        const ustring name = Velmora::text::FromNative(partial);
        const auto root = Velmora::text::ToNative(tree.IRI("tb").getPath()) + "/";
        for (const auto& e :
             path->GetPartiallyMatchingEntries(SearchScope(kEverything), name, policy)) {
            found.push_back(
                Velmora::text::ToNative(e->GetAbsoluteIRI().getPath()).substr(root.size()));
        }
        return found;
    }

    std::shared_ptr<const MainSearchPath> path;
};

TEST_F(PartialMatchTest, AgreesWithTheLenientRuleOnEveryEntry) {
    PathEntryVector all;
    path->ForEachEntry(SearchScope(kEverything), [&](const auto& e) {
        all.push_back(e);
        return false;
    });
    // Whole folder names only (b/c is never ab/c), "+" and "@" optional, names as bytes (the
    // UTF-8 spelling of n\xe9 is other bytes).
    for (const std::string partial :
         {"c", "b/c", "B/C", "shapes/@Polygon", "+shapes/Polygon", "geometry/shapes", "resources",
          "geometry/resources", "@Sample", "x/c", "Polygon", "Sample", "private", "odd",
          "n\xe9/p\xff", "n\xc3\xa9/p\xff"}) {
        for (const auto policy : {kExact, FilenameMatchingPolicy::IgnoreCase}) {
            SCOPED_TRACE(partial);
            const ustring name = Velmora::text::FromNative(partial);
            const auto parts = SplitPartialPathname(name);
            PathEntryVector expected;
            for (const auto& e : all) {
                if (DoesPartialPathnameMatchPathEntryIRI(parts, e, policy))
                    expected.push_back(e);
            }
            EXPECT_EQ(path->GetPartiallyMatchingEntries(SearchScope(kEverything), name, policy),
                      expected);
        }
    }
    // Only entries of the scope's kinds; an empty name matches nothing.
    const std::uint32_t primary[] = {0};
    EXPECT_EQ(path->GetPartiallyMatchingEntries(SearchScope(primary), u"shapes", kExact),
              PathEntryVector{});
    EXPECT_EQ(Matching("", kExact), std::vector<std::string>{});
}

TEST_F(PartialMatchTest, ThreadsThatAskFirstShareOneIndex) {
    // The index is built by the first query; readers racing to it must all get whole answers.
    std::vector<std::vector<std::string>> answers(4);
    std::vector<std::thread> readers;
    for (auto& answer : answers)
        readers.emplace_back([&] { answer = Matching("shapes", kExact); });
    for (auto& reader : readers)
        reader.join();
    for (const auto& answer : answers)
        EXPECT_EQ(answer, std::vector<std::string>{"geometry/+shapes"});
}

// What a change of the path did, from two states that share their unchanged entries.

class PathChangeReportTest : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f : {"a/f.vl", "a/private/p.vl", "b/g.vl", "c/h.vl", "d/k.vl"})
            tree.File(f);
    }
    // Scans the folders, sharing entries with earlier scans as the manager does.
    std::shared_ptr<const MainSearchPath> Scan(const std::vector<std::string>& folders) {
        std::vector<AbsoluteIRI> locations;
        for (const auto& f : folders)
            locations.push_back(tree.IRI(f));
        ScanReport report;
        auto path = MainSearchPath::Scan(locations, report, &cache);
        cache.Retain(path->GetFolderEntries());
        return path;
    }
    EntryCache cache;
};

TEST_F(PathChangeReportTest, TellsWhatTheDifferentiatorTellsOverTheWholePath) {
    tree.File("e/m.vl");
    const auto before = Scan({"a", "b", "c", "d"});
    tree.File("b/new.vl");
    tree.File("d/private/new.vl");
    // Every order of five folders, two of them read anew and one new, and every path that is the
    // first two to five of them: folders added, taken off and moved, at either end or between.
    std::vector<std::string> order = {"a", "b", "c", "d", "e"};
    do {
        for (std::size_t length = 2; length <= order.size(); ++length) {
            const std::vector<std::string> folders(order.begin(),
                                                   order.begin() + static_cast<long>(length));
            SCOPED_TRACE(::testing::PrintToString(folders));
            const auto after = Scan(folders);
            PathEntryVectorDifferentiator whole;
            whole.Compare(*before->GetMainEntries(), *after->GetMainEntries(),
                          PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
            const auto report = ComparePaths(*before, *after);
            EXPECT_EQ(Locations(*report.added, tree), Locations(*whole.GetAdded(), tree));
            EXPECT_EQ(Locations(*report.removed, tree), Locations(*whole.GetRemoved(), tree));
            EXPECT_EQ(*report.reordered, *whole.GetReordered());
            EXPECT_EQ(*report.refreshedBefore, *whole.GetRefreshedBefore());
            EXPECT_EQ(*report.refreshedAfter, *whole.GetRefreshedAfter());
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

// The manager's refresh finds the folders that change events name, and what it leaves is what a
// fresh start reads. (That a path made from the one before it answers as one made whole is the
// path change property test's.)

class MainSearchPathUpdateTest : public vpath_test::TwoFolderPath {
  protected:
    // Makes a new file in each of `folders` and has `manager` read it again; returns the files.
    std::vector<std::string> MakeAndRefresh(MainSearchPathManager& manager,
                                            std::initializer_list<const char*> folders) {
        std::vector<std::string> files;
        for (const char* folder : folders) {
            files.push_back(std::string(folder) + "/m" + std::to_string(++m_made) + ".vl");
            tree.File(files.back());
            EXPECT_TRUE(manager.RefreshFolders({tree.IRI(files.back())})) << files.back();
        }
        return files;
    }

  private:
    int m_made = 0;
};

TEST_F(MainSearchPathUpdateTest, ARefreshReadsTheFoldersThatEventsNameAndNoOthers) {
    tree.File("one/plain/sub.vl");
    MainSearchPathManager manager({tree.IRI("one"), tree.IRI("two")}, {});
    struct Case {
        const char* what;
        std::string file;   // made before the refresh
        std::string named;  // the location that the event names
        bool refreshed;
    };
    const Case cases[] = {
        {"a file in a folder", "one/a1.vl", "one/a1.vl", true},
        {"the folder itself", "one/a2.vl", "one", true},
        {"a file two special folders down", "one/+pkg/@Cls/c.vl", "one/+pkg/@Cls/c.vl", true},
        {"a special folder", "two/@Point/p.vl", "two/@Point", true},
        // Unchanged folders are no refresh, so each case changes what the one it names holds.
        {"a folder that is no entry", "one/a5.vl", "one/plain", true},
        {"a file in a folder that is no entry", "one/a6.vl", "one/plain/sub.vl", false},
        {"a file off the path", "elsewhere/x.vl", "elsewhere/x.vl", false},
        {"the root", "one/a3.vl", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        tree.File(c.file);
        EXPECT_EQ(manager.RefreshFolders({tree.IRI(c.named)}) != nullptr, c.refreshed);
    }
    // What those refreshes left is what a fresh start reads.
    tree.File("one/a4.vl");
    EXPECT_TRUE(manager.RefreshFolders({tree.IRI("one/a4.vl")}));
    const auto refreshed = manager.GetSnapshot();
    const MainSearchPathManager fresh({tree.IRI("one"), tree.IRI("two")}, {});
    EXPECT_EQ(vpath_test::Answers(*refreshed), vpath_test::Answers(*fresh.GetSnapshot()));
}

// A refresh after a change finds each folder in its new place, whether the table of places is
// carried over from the path before the change or made anew.
TEST_F(MainSearchPathUpdateTest, ARefreshAfterAChangeFindsTheFoldersInTheirNewPlaces) {
    std::vector<AbsoluteIRI> folders;
    for (const char* name : {"p0", "p1", "p2", "p3", "p4"}) {
        tree.File(std::string(name) + "/x.vl");
        folders.push_back(tree.IRI(name));
    }
    tree.File("new/n.vl");
    MainSearchPathManager manager(folders, {});
    tree.File("p4/first.vl");
    ASSERT_TRUE(manager.RefreshFolders({tree.IRI("p4/first.vl")}));
    const auto expect = [&](std::vector<AbsoluteIRI> now) {
        const MainSearchPathManager fresh(now, {});
        EXPECT_EQ(vpath_test::Answers(*manager.GetSnapshot()),
                  vpath_test::Answers(*fresh.GetSnapshot()));
    };
    foundation::core::except::Notification problems;
    for (const bool keepOld : {true, false}) {
        SCOPED_TRACE(keepOld ? "carried over" : "made anew");
        // The path before each change lives on (as a watcher keeps it) or is let go.
        auto before = keepOld ? manager.GetSnapshot() : nullptr;
        auto now = *manager.GetPathFolderIRIs();
        now.insert(now.begin(), tree.IRI("new"));
        manager.ApplyPathAfterAdding(now, problems);
        MakeAndRefresh(manager, {"p4", "p0", "new"});
        expect(now);
        before = keepOld ? manager.GetSnapshot() : nullptr;
        now.erase(now.begin() + 2);  // p1
        now.erase(now.begin());      // new
        manager.ApplyPathAfterRemoving(now, problems);
        MakeAndRefresh(manager, {"p4", "p0", "p2"});
        expect(now);
        now.insert(now.begin() + 1, tree.IRI("p1"));
        manager.ApplyPathAfterAdding(now, problems);
    }
    EXPECT_TRUE(problems.empty());
}

// On a long path, a change in the middle moves the places of more folders than are looked up one
// by one: a refresh after it still finds each folder where it stands now.
TEST_F(MainSearchPathUpdateTest, ARefreshAfterAChangeInTheMiddleOfALongPathFindsEveryFolder) {
    constexpr int kFolders = 600;
    std::vector<AbsoluteIRI> folders;
    for (int i = 0; i < kFolders; ++i) {
        const std::string name = "long/f" + std::to_string(i);
        tree.File(name + "/x.vl");
        folders.push_back(tree.IRI(name));
    }
    tree.File("new/n.vl");
    MainSearchPathManager manager(folders, {});
    tree.File("long/f0/first.vl");
    ASSERT_TRUE(manager.RefreshFolders({tree.IRI("long/f0/first.vl")}));
    foundation::core::except::Notification problems;
    // Each file made is in its folder's entry, and each entry in its folder's place.
    const auto refreshes = [&](std::initializer_list<const char*> changed) {
        for (const auto& file : MakeAndRefresh(manager, changed))
            EXPECT_TRUE(vpath_test::Holds(*manager.GetSnapshot(), tree, file)) << file;
        const auto& entries = manager.GetSnapshot()->GetFolderEntries();
        const auto& now = *manager.GetPathFolderIRIs();
        ASSERT_EQ(entries.size(), now.size());
        for (std::size_t i = 0; i < now.size(); ++i)
            ASSERT_EQ(entries[i]->GetLocation(), now[i]) << i;
    };
    auto now = folders;
    now.insert(now.begin() + kFolders / 2, tree.IRI("new"));
    manager.ApplyPathAfterAdding(now, problems);
    refreshes({"long/f10", "long/f550", "new"});
    now.erase(now.begin() + kFolders / 2 + 1);
    now.erase(now.begin() + 3);
    manager.ApplyPathAfterRemoving(now, problems);
    refreshes({"long/f2", "long/f450", "long/f4"});
    EXPECT_TRUE(problems.empty());
}

}  // namespace
