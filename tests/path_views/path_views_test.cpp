// The path views over fake paths: what each answers, what it asks of the paths it wraps, and what
// threads that share it see.

#include <atomic>
#include <functional>
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

// ConcatenatedPath: several paths answered in order as one.

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

// DeduplicatedPath: chained paths with every folder and every found file shown once.

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

// MultiMaskedPath: a path with some main entries, and everything beneath them, hidden.

// a(@ma) b c(@mc(private)) d e; the file f is in a, b, d and the class folders; g only in @mc.
struct Masking {
    std::shared_ptr<FakeEntry> a = Entry("a", {u"f.vl"});
    std::shared_ptr<FakeEntry> ma = Entry("@ma", {u"f.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> b = Entry("b", {u"f.vl"});
    std::shared_ptr<FakeEntry> c = Entry("c");
    std::shared_ptr<FakeEntry> mc = Entry("@mc", {u"g.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> deep = Entry("@mc/private", {}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> d = Entry("d", {u"f.vl"});
    std::shared_ptr<FakeEntry> e = Entry("e");
    std::shared_ptr<FakePath> path;
    Masking() {
        a->AddChild(ma);
        mc->AddChild(deep);
        c->AddChild(mc);
        path = FakePath::Make({a, b, c, d, e});
        path->SetCanonical(u"file:///canonical-mc", mc);
        path->SetCanonical(u"file:///canonical-d", d);
    }
    MultiMaskedPath Mask(std::vector<std::shared_ptr<const IPathEntry>> masked) const {
        return MultiMaskedPath(path, std::move(masked));
    }
};

TEST(MultiMaskedPath, AMaskedEntryHidesEverythingBeneathIt) {
    const Masking m;
    const auto view = m.Mask({m.c, m.a});
    // Main entries, lists and walks leave the masked runs out.
    EXPECT_THAT(Names(*view.GetMainEntries()), ElementsAre("b", "d", "e"));
    EXPECT_THAT(Walk(view), ElementsAre("b", "d", "e"));
    EXPECT_THAT(Walk(view, true), ElementsAre("b", "d", "e"));
    EXPECT_TRUE(view.GetMethodEntries().empty());
    EXPECT_TRUE(
        view.GetMethodEntriesByName(SearchScope(kAllKinds), u"mc", FilenameMatchingPolicy::Exact)
            .empty());
    EXPECT_THAT(AllHolders(view, u"f"), ElementsAre("b", "d"));
    EXPECT_EQ(FirstHolder(view, u"g"), "");
    // Everything beneath a masked main entry is masked: off the path and not found by
    // location, in either form.
    EXPECT_TRUE(view.IsMasked(*m.deep));
    EXPECT_FALSE(view.IsEntryOnPath(*m.deep));
    EXPECT_TRUE(view.IsEntryOnPath(*m.b));
    EXPECT_EQ(
        view.GetPathEntryFromAbsoluteIRI(m.mc->GetAbsoluteIRI(), FilenameMatchingPolicy::Exact),
        nullptr);
    EXPECT_EQ(
        view.GetPathEntryFromAbsoluteIRI(m.d->GetAbsoluteIRI(), FilenameMatchingPolicy::Exact),
        m.d);
    using foundation::storage::vfs::CanonicalAbsoluteIRI;
    EXPECT_EQ(view.GetPathEntryFromAbsoluteIRI(CanonicalAbsoluteIRI(
                  foundation::storage::vfs::AbsoluteIRI(u"file:///canonical-mc"), u"")),
              nullptr);
    EXPECT_EQ(view.GetPathEntryFromAbsoluteIRI(CanonicalAbsoluteIRI(
                  foundation::storage::vfs::AbsoluteIRI(u"file:///canonical-d"), u"")),
              m.d);
    // Masking is by object: an entry off the path (never asked for its main entry), or another
    // object for a masked folder, is not masked.
    const auto stranger = Entry("a");
    EXPECT_FALSE(view.IsMasked(*stranger));
    const auto offPath = MultiMaskedPath(m.path, {stranger});
    EXPECT_FALSE(offPath.IsMasked(*stranger));
    EXPECT_TRUE(offPath.IsEntryOnPath(*m.a));
    // The relations of masked entries are the path's own.
    EXPECT_EQ(view.GetMainEntryForEntry(*m.deep), m.c);
    EXPECT_EQ(view.GetParentEntryForEntry(*m.deep), m.mc);
    EXPECT_TRUE(view.FirstEntryIsBeforeSecondOnPath(*m.ma, *m.b));
    // Removal by binary search over path order keeps the rest in order.
    EXPECT_THAT(view.RemoveMaskedEntries({m.a, m.ma, m.b, m.c, m.mc, m.deep, m.d, m.e}),
                ElementsAre(m.b, m.d, m.e));
}

TEST(MultiMaskedPath, FirstMatchLooksOnlyDirectlyAfterEachMaskedRun) {
    const Masking m;
    // The first match is masked: the match right after its run is taken.
    EXPECT_EQ(FirstHolder(m.Mask({m.a}), u"f"), "b");
    EXPECT_EQ(FirstHolder(m.Mask({m.b}), u"f"), "a");
    // Masked entries given out of path order are tried in the order given: after c's run
    // comes d, although b, earlier and unmasked, also holds the file.
    EXPECT_EQ(FirstHolder(m.Mask({m.c, m.a}), u"f"), "d");
    // One match per masked entry, in turn: after a's run comes b, masked too; after b's
    // run comes d. With d masked as well nothing is left.
    EXPECT_EQ(FirstHolder(m.Mask({m.a, m.b}), u"f"), "d");
    EXPECT_EQ(FirstHolder(m.Mask({m.a, m.b, m.d}), u"f"), "");
    // A masked folder holding the only match leaves nothing.
    EXPECT_EQ(FirstHolder(m.Mask({m.c}), u"g"), "");
}

// What each view asks of the paths it wraps: the caller's scope and policy unchanged, and the walk
// that was asked for (the deduplicated view alone turns a concurrent walk into a sequential one).

TEST(ViewForwarding, TheCallersScopeAndPolicyAndWalkReachTheWrappedPath) {
    const auto a = Entry("a", {u"f.vl"});
    const auto b = Entry("b", {u"f.vl"});
    const std::uint32_t scope[] = {0, 3};
    const auto policy = FilenameMatchingPolicy::IgnoreCase;
    const ustring name = u"f";
    const detail::SearchTarget target(name, kVl);
    const EntryCallback go = [](const auto&) { return false; };
    struct Case {
        std::function<void(const IPath&)> call;
        // What the wrapped path is asked by the concatenated, deduplicated and masked views.
        std::string asked[3];
    };
    const std::string first = "FindFirstInScope(03)/1", lookup = "GetPathEntryFromAbsoluteIRI/1",
                      methods = "GetMethodEntriesByName(03)/1",
                      partial = "GetPartiallyMatchingEntries(03)/1", all = "FindAllInScope(03)/1",
                      walk = "ForEachEntry(03)", concurrent = "ConcurrentForEachEntry(03)";
    const Case cases[] = {
        {[&](const IPath& v) { v.GetMethodEntriesByName(SearchScope(scope), name, policy); },
         {methods, methods, methods}},
        {[&](const IPath& v) { v.GetPartiallyMatchingEntries(SearchScope(scope), name, policy); },
         {partial, partial, partial}},
        {[&](const IPath& v) { v.FindAllInScope(SearchScope(scope), target, policy); },
         {all, all, all}},
        // The masked view's first match lies in the masked `a`: it looks at all matches.
        {[&](const IPath& v) { v.FindFirstInScope(SearchScope(scope), target, policy); },
         {first, first, first + " " + all}},
        {[&](const IPath& v) { v.GetPathEntryFromAbsoluteIRI(b->GetAbsoluteIRI(), policy); },
         {lookup, lookup, lookup}},
        {[&](const IPath& v) { v.ForEachEntry(SearchScope(scope), go); }, {walk, walk, walk}},
        {[&](const IPath& v) { v.ConcurrentForEachEntry(SearchScope(scope), go); },
         {concurrent, walk, concurrent}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.asked[0]);
        const auto sub = FakePath::Make({a, b});
        const std::shared_ptr<const IPath> views[] = {
            std::make_shared<ConcatenatedPath>(std::vector<std::shared_ptr<const IPath>>{sub}),
            std::make_shared<DeduplicatedPath>(std::vector<std::shared_ptr<const IPath>>{sub}),
            std::make_shared<MultiMaskedPath>(sub,
                                              std::vector<std::shared_ptr<const IPathEntry>>{a}),
        };
        for (int v = 0; v < 3; ++v) {
            SCOPED_TRACE(v);
            sub->Log().Clear();
            c.call(*views[v]);
            std::string asked;
            for (const std::string& call : sub->Log().Calls())
                asked += (asked.empty() ? "" : " ") + call;
            EXPECT_EQ(asked, c.asked[v]);
        }
    }
}

// Views shared by many threads: racing first fills of the main-entry cache.

// Runs `body(thread index)` on `count` threads released at the same moment.
void RunTogether(int count, const std::function<void(int)>& body) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            while (!go.load())
                std::this_thread::yield();
            body(i);
        });
    }
    go.store(true);
    for (auto& t : threads)
        t.join();
}

TEST(ViewConcurrency, FirstCallsOfGetMainEntriesRaceToOneFill) {
    for (int round = 0; round < 10; ++round) {
        const auto a = Entry("a");
        const auto b = Entry("b");
        const auto sub = FakePath::Make({a, b, Entry("a")});
        const std::shared_ptr<const IPath> views[] = {
            std::make_shared<ConcatenatedPath>(sub, sub),
            std::make_shared<DeduplicatedPath>(Paths{sub, sub}),
            std::make_shared<MultiMaskedPath>(sub,
                                              std::vector<std::shared_ptr<const IPathEntry>>{b}),
        };
        const std::size_t expected[] = {6, 2, 2};
        for (std::size_t v = 0; v < 3; ++v) {
            SCOPED_TRACE(v);
            std::vector<SharedPathEntryVector> seen(4);
            // Walks of the deduplicated view look at the cache while it is being filled.
            RunTogether(4, [&](int i) {
                seen[i] = views[v]->GetMainEntries();
                Walk(*views[v]);
            });
            for (const auto& s : seen)
                EXPECT_EQ(s, seen[0]);
            EXPECT_EQ(seen[0]->size(), expected[v]);
        }
        // One fill for all threads: the sub-path was asked once per occurrence in each view.
        EXPECT_EQ(sub->MainEntriesCalls(), 2 + 2 + 1);
    }
}

}  // namespace
