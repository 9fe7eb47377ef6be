// ConcatenatedPath: several paths answered in order as one.

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;
using ::testing::ElementsAre;

TEST(ConcatenatedPath, AnswersInSubPathOrderKeepingRepeats) {
    const auto a = Entry("a", {u"f.vl"});
    const auto m = Entry("@m", {u"g.vl"}, PathEntryType::AtFolder);
    a->AddChild(m);
    const auto shared = Entry("shared", {u"f.vl"});
    const auto b = Entry("b", {u"f.vl", u"h.vl"});
    const auto first = FakePath::Make({a, shared});
    const auto second = FakePath::Make({shared, b});
    const ConcatenatedPath path(first, second);
    // The first sub-path's entries, then the second's; an entry on both is listed twice.
    EXPECT_THAT(Names(*path.GetMainEntries()), ElementsAre("a", "shared", "shared", "b"));
    EXPECT_THAT(Walk(path), ElementsAre("a", "@m", "shared", "shared", "b"));
    EXPECT_THAT(AllHolders(path, u"f"), ElementsAre("a", "shared", "shared", "b"));
    EXPECT_THAT(Names(path.GetMethodEntries()), ElementsAre("@m"));
    // The first sub-path that finds something answers.
    EXPECT_EQ(FirstHolder(path, u"f"), "a");
    EXPECT_EQ(FirstHolder(path, u"h"), "b");
    EXPECT_EQ(FirstHolder(path, u"g"), "@m");
    // The owning sub-path answers for an entry's main entry and parent.
    EXPECT_EQ(path.GetMainEntryForEntry(*m), a);
    EXPECT_EQ(path.GetParentEntryForEntry(*m), a);
    EXPECT_EQ(path.GetParentEntryForEntry(*b), nullptr);
    EXPECT_TRUE(path.IsEntryOnPath(*b));
}

TEST(ConcatenatedPath, WalksStopInTheSubPathThatAsks) {
    const auto a = Entry("a");
    const auto b = Entry("b");
    const ConcatenatedPath path(FakePath::Make({a}), FakePath::Make({b}));
    for (const bool concurrent : {false, true}) {
        SCOPED_TRACE(concurrent ? "concurrent" : "sequential");
        std::vector<std::string> seen;
        const EntryCallback stopAtA = [&](const auto& e) {
            seen.push_back(Velmora::text::ToNative(e->GetName()));
            return e == a;
        };
        EXPECT_TRUE(concurrent ? path.ConcurrentForEachEntry(SearchScope(kAllKinds), stopAtA)
                               : path.ForEachEntry(SearchScope(kAllKinds), stopAtA));
        EXPECT_THAT(seen, ElementsAre("a"));
    }
}

TEST(ConcatenatedPath, OrderIsDecidedByTheFirstSubPathHoldingEither) {
    const auto a = Entry("a");
    const auto b = Entry("b");
    const auto c = Entry("c");
    const auto stranger = Entry("stranger");
    const ConcatenatedPath path(FakePath::Make({a, b}), FakePath::Make({c, a}));
    struct Case {
        std::shared_ptr<FakeEntry> first, second;
        bool before;
    };
    const Case cases[] = {
        {a, b, true},  // both on the first sub-path: it decides
        {b, a, false},
        {b, c, true},   // only the first is on the first sub-path
        {c, b, false},  // only the second is
        {a, a, false},  // the same entry: its sub-path decides
        {c, stranger, true},
        {stranger, c, false},  // an entry on no sub-path is never before anything
        {stranger, stranger, false},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(
            Velmora::text::ToNative(k.first->GetName() + u" before " + k.second->GetName()));
        EXPECT_EQ(path.FirstEntryIsBeforeSecondOnPath(*k.first, *k.second), k.before);
    }
}

TEST(ConcatenatedPath, LocationLookupTriesCanonicalFormsEverywhereFirst) {
    const auto byPolicy = Entry("dir");
    const auto byCanonical = Entry("real");
    const auto first = FakePath::Make({byPolicy});
    const auto second = FakePath::Make({byCanonical});
    second->SetCanonical(u"file:///dir", byCanonical);
    const ConcatenatedPath path(first, second);
    // The canonical match in the second sub-path wins over the policy match in the first.
    EXPECT_EQ(
        path.GetPathEntryFromAbsoluteIRI(byPolicy->GetAbsoluteIRI(), FilenameMatchingPolicy::Exact),
        byCanonical);
    // Without a canonical match, the first sub-path that matches by policy.
    EXPECT_EQ(
        path.GetPathEntryFromAbsoluteIRI(foundation::storage::vfs::AbsoluteIRI(u"file:///DIR"),
                                         FilenameMatchingPolicy::IgnoreCase),
        byPolicy);
}

TEST(ConcatenatedPath, MainEntriesAreCachedOnceAndFrozen) {
    const auto sub = FakePath::Make({Entry("a")});
    const ConcatenatedPath path(sub, FakePath::Make({Entry("b")}));
    // A failing first fill leaves nothing cached; the next call fills the cache.
    sub->FailNextMainEntries(1);
    EXPECT_THROW(path.GetMainEntries(), std::runtime_error);
    const auto filled = path.GetMainEntries();
    EXPECT_THAT(Names(*filled), ElementsAre("a", "b"));
    EXPECT_EQ(path.GetMainEntries(), filled);  // the same list, not a copy
    EXPECT_EQ(sub->MainEntriesCalls(), 2);
    // Entries added later are missing from the cached list but present everywhere else.
    const auto late = Entry("late", {u"f.vl"});
    sub->AddMain(late);
    EXPECT_THAT(Names(*path.GetMainEntries()), ElementsAre("a", "b"));
    EXPECT_THAT(Walk(path), ElementsAre("a", "late", "b"));
    EXPECT_EQ(FirstHolder(path, u"f"), "late");
}

}  // namespace
