// Scanning folders from disk into entries: what an entry holds, what a scan reports, and which
// entries a rescan keeps.

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/searchpath/folder_scanner.hpp>

#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::SearchPath;
using ::testing::ElementsAre;
using Velmora::PathManagement::PathEntryType;
using vpath_test::FaultSystem;
using vpath_test::TempTreeTest;

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

using ScanTest = TempTreeTest;

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

}  // namespace
