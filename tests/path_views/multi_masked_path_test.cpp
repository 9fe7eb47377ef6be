// MultiMaskedPath: a path with some main entries, and everything beneath them, hidden.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;
using ::testing::ElementsAre;

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

}  // namespace
