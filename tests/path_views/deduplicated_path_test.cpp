// DeduplicatedPath: chained paths with every folder and every found file shown once.

#include <stdexcept>
#include <thread>

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
    {
        // The entry object of the first occurrence is the one kept, within and across sub-paths.
        const auto mains = path.GetMainEntries();
        EXPECT_THAT(Names(*mains), ElementsAre("a", "shared", "b"));
        EXPECT_EQ((*mains)[1], o.shared1);
        EXPECT_EQ((*mains)[2], o.b);
    }
    {
        EXPECT_THAT(path.GetMethodEntries(), ElementsAre(o.m1));
        EXPECT_THAT(path.GetMethodEntriesByName(SearchScope(kAllKinds), u"m",
                                                FilenameMatchingPolicy::Exact),
                    ElementsAre(o.m1));
        EXPECT_THAT(Names(path.GetPartiallyMatchingEntries(SearchScope(kAllKinds), u"b",
                                                           FilenameMatchingPolicy::Exact)),
                    ElementsAre("b"));
    }
    {
        // A file counts once per folder; the same name in different folders counts per folder.
        EXPECT_THAT(AllHolders(path, u"f"), ElementsAre("a", "shared", "b"));
        EXPECT_THAT(AllHolders(path, u"g"), ElementsAre("shared"));
    }
    {
        // The first match is the first occurrence already.
        EXPECT_EQ(FirstHolder(path, u"g"), "shared");
    }
}

TEST(DeduplicatedPath, WalksSkipRepeatsWhicheverWayTheyGo) {
    const Overlap o;
    {
        // Before the main entries are cached the walk goes by the sub-paths.
        const auto path = o.Path();
        EXPECT_THAT(Walk(path), ElementsAre("a", "shared", "@m", "b"));
    }
    {
        // After, it goes by the cached entries, and sees the same.
        const auto path = o.Path();
        path.GetMainEntries();
        EXPECT_THAT(Walk(path), ElementsAre("a", "shared", "@m", "b"));
    }
    {
        // A repeat is skipped without calling back, so it can never stop the walk.
        const auto path = o.Path();
        int calls = 0;
        EXPECT_FALSE(path.ForEachEntry(SearchScope(kAllKinds), [&](const auto& e) {
            ++calls;
            return e == o.shared2 || e == o.b2;
        }));
        EXPECT_EQ(calls, 4);
        EXPECT_TRUE(
            path.ForEachEntry(SearchScope(kAllKinds), [&](const auto& e) { return e == o.b; }));
    }
    {
        // An empty cached list sends the walk to the sub-paths.
        const auto late = FakePath::Make({});
        const DeduplicatedPath path(Paths{late});
        EXPECT_TRUE(path.GetMainEntries()->empty());
        late->AddMain(Entry("late"));
        EXPECT_THAT(Walk(path), ElementsAre("late"));
    }
}

TEST(DeduplicatedPath, TheConcurrentWalkIsSequentialOnTheCallersThread) {
    const Overlap o;
    const auto path = o.Path();
    std::vector<std::thread::id> threads;
    std::vector<std::string> seen;
    path.ConcurrentForEachEntry(SearchScope(kAllKinds), [&](const auto& e) {
        threads.push_back(std::this_thread::get_id());
        seen.push_back(Velmora::text::ToNative(e->GetName()));
        return false;
    });
    EXPECT_THAT(seen, ElementsAre("a", "shared", "@m", "b"));
    for (const auto id : threads)
        EXPECT_EQ(id, std::this_thread::get_id());
}

TEST(DeduplicatedPath, EmptyAndFailingCases) {
    {
        const DeduplicatedPath path(Paths{});
        EXPECT_TRUE(path.GetMainEntries()->empty());
        EXPECT_TRUE(path.GetMethodEntries().empty());
        EXPECT_FALSE(path.ForEachEntry(SearchScope(kAllKinds), [](const auto&) { return true; }));
        EXPECT_FALSE(
            path.ConcurrentForEachEntry(SearchScope(kAllKinds), [](const auto&) { return true; }));
    }
    {
        // A failing fill is retried, and an entry whose location fails fails the call.
        const auto sub = FakePath::Make({Entry("a"), Entry("a")});
        const DeduplicatedPath path(Paths{sub});
        sub->FailNextMainEntries(1);
        EXPECT_THROW(path.GetMainEntries(), std::runtime_error);
        EXPECT_THAT(Names(*path.GetMainEntries()), ElementsAre("a"));
        const auto broken = Entry("broken");
        broken->ThrowOnIRI(true);
        const DeduplicatedPath brokenPath(Paths{FakePath::Make({broken})});
        EXPECT_THROW(brokenPath.GetMainEntries(), std::runtime_error);
        EXPECT_THROW(Walk(brokenPath), std::runtime_error);
    }
    {
        // Walking with no callback is the standard error of calling an empty function.
        const auto path = Overlap().Path();
        EXPECT_THROW(path.ForEachEntry(SearchScope(kAllKinds), EntryCallback()),
                     std::bad_function_call);
    }
}

}  // namespace
