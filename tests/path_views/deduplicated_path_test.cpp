// DeduplicatedPath: chained paths with every folder and every found file shown once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;
using ::testing::ElementsAre;

using Paths = std::vector<std::shared_ptr<const IPath>>;

// Two paths that share the folder "shared" through two different entry objects, and a path that
// holds one folder twice.
struct Overlap {
    std::shared_ptr<FakeEntry> a = Entry("a", {u"f.vl"});
    std::shared_ptr<FakeEntry> shared1 = Entry("shared", {u"f.vl", u"g.vl"});
    std::shared_ptr<FakeEntry> shared2 = Entry("shared", {u"f.vl", u"g.vl"});
    std::shared_ptr<FakeEntry> b = Entry("b", {u"f.vl"});
    std::shared_ptr<FakeEntry> b2 = Entry("b", {u"f.vl"});
    std::shared_ptr<FakeEntry> m1 = Entry("@m", {}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> m2 = Entry("@m", {}, PathEntryType::AtFolder);
    Overlap() {
        shared1->AddChild(m1);
        shared2->AddChild(m2);
    }
    DeduplicatedPath Path() const {
        return DeduplicatedPath(
            Paths{FakePath::Make({a, shared1}), FakePath::Make({shared2, b, b2})});
    }
};

TEST(DeduplicatedPath, ShowsEachFolderOnceAtItsFirstPosition) {
    const Overlap o;
    const auto path = o.Path();
    // The entry object of the first occurrence is the one kept, within and across sub-paths.
    const auto mains = path.GetMainEntries();
    EXPECT_THAT(*mains, ElementsAre(o.a, o.shared1, o.b));
    EXPECT_THAT(path.GetMethodEntries(), ElementsAre(o.m1));
    EXPECT_THAT(
        path.GetMethodEntriesByName(SearchScope(kAllKinds), u"m", FilenameMatchingPolicy::Exact),
        ElementsAre(o.m1));
    EXPECT_THAT(path.GetPartiallyMatchingEntries(SearchScope(kAllKinds), u"b",
                                                 FilenameMatchingPolicy::Exact),
                ElementsAre(o.b));
    // A file counts once per folder; the same name in different folders counts per folder.
    EXPECT_THAT(AllHolders(path, u"f"), ElementsAre("a", "shared", "b"));
    EXPECT_EQ(FirstHolder(path, u"g"), "shared");
}

TEST(DeduplicatedPath, AFoundFileIsItsFolderLocationAndWholeName) {
    // `y` reaches a's very files from another location; x1 and x2 are one folder holding f.vlp
    // and f.vl.
    const auto a = Entry("a", {u"f.vl"});
    const auto y = Entry("y");
    y->ShareItemsOf(*a);
    const auto x1 = Entry("x", {u"f.vlp"});
    const auto x2 = Entry("x", {u"f.vl"});
    const DeduplicatedPath path(Paths{FakePath::Make({a, x1}), FakePath::Make({y, x2})});
    const ustring name = u"f";
    const std::vector<ustring> exts = {u".vl", u".vlp"};
    PathEntryVector holders;
    for (const auto& found :
         path.FindAllInScope(SearchScope(kAllKinds), detail::SearchTarget(name, exts),
                             FilenameMatchingPolicy::Exact))
        holders.push_back(found.GetPathEntry());
    EXPECT_THAT(holders, ElementsAre(a, x1, x2));
}

TEST(DeduplicatedPath, WalksSkipRepeatsWhicheverWayTheyGo) {
    const Overlap o;
    for (const bool cached : {false, true}) {
        SCOPED_TRACE(cached ? "by the cached main entries" : "by the sub-paths");
        const auto path = o.Path();
        if (cached)
            path.GetMainEntries();
        EXPECT_THAT(Walk(path), ElementsAre("a", "shared", "@m", "b"));
        EXPECT_THAT(Walk(path, true), ElementsAre("a", "shared", "@m", "b"));
        // A repeat is skipped without calling back, so it can never stop the walk; a first visit
        // stops it at once.
        PathEntryVector seen;
        EXPECT_FALSE(path.ForEachEntry(SearchScope(kAllKinds), [&](const auto& e) {
            seen.push_back(e);
            return e == o.shared2 || e == o.b2;
        }));
        EXPECT_EQ(seen.size(), 4u);
        seen.clear();
        EXPECT_TRUE(path.ForEachEntry(SearchScope(kAllKinds), [&](const auto& e) {
            seen.push_back(e);
            return e == o.shared1;
        }));
        EXPECT_THAT(seen, ElementsAre(o.a, o.shared1));
    }
    // A filled cache is walked as it is, frozen; an empty one sends the walk to the sub-paths.
    for (const bool empty : {false, true}) {
        SCOPED_TRACE(empty ? "empty cache" : "filled cache");
        const auto sub = empty ? FakePath::Make({}) : FakePath::Make({Entry("a")});
        const DeduplicatedPath path(Paths{sub});
        path.GetMainEntries();
        sub->AddMain(Entry("late"));
        EXPECT_EQ(Walk(path), std::vector<std::string>{empty ? "late" : "a"});
    }
}

}  // namespace
