// What a change of the path did, from two states that share their unchanged entries.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_change_report.hpp>

#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::SearchPath;

class PathChangeReportTest : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f : {"a/f.vl", "a/private/p.vl", "b/g.vl", "c/h.vl", "d/k.vl"})
            tree.File(f);
    }
    // Scans the folders, sharing entries with earlier scans as the manager does.
    std::shared_ptr<const MainSearchPath> Scan(const std::vector<std::string>& folders) {
        std::vector<foundation::storage::vfs::AbsoluteIRI> locations;
        for (const auto& f : folders)
            locations.push_back(tree.IRI(f));
        ScanReport report;
        auto path = MainSearchPath::Scan(locations, report, &cache);
        cache.Retain(path->GetFolderEntries());
        return path;
    }
    std::vector<std::string> Names(const Velmora::PathManagement::SharedPathEntryVector& entries) {
        std::vector<std::string> out;
        const auto root = tree.IRI().toString();
        for (const auto& e : *entries) {
            out.push_back(
                Velmora::text::ToNative(e->GetAbsoluteIRI().toString().substr(root.size() + 1)));
        }
        return out;
    }
    EntryCache cache;
};

TEST_F(PathChangeReportTest, TellsWhatTheDifferentiatorTellsOverTheWholePath) {
    using Velmora::PathManagement::PathEntryVectorDifferentiator;
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
            EXPECT_EQ(Names(report.added), Names(whole.GetAdded()));
            EXPECT_EQ(Names(report.removed), Names(whole.GetRemoved()));
            EXPECT_EQ(*report.reordered, *whole.GetReordered());
            EXPECT_EQ(*report.refreshedBefore, *whole.GetRefreshedBefore());
            EXPECT_EQ(*report.refreshedAfter, *whole.GetRefreshedAfter());
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

}  // namespace
