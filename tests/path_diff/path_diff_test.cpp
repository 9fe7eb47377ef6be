// PathEntryVectorDifferentiator: added, removed, reordered and refreshed entries, special
// subfolders, accumulation, failures, and an accounting property on random lists with repeats.

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <velmora/pathmanagement/path_diff.hpp>

#include "support/fake_path.hpp"

namespace {

using Velmora::PathManagement::PathEntryVector;
using Velmora::PathManagement::PathEntryVectorDifferentiator;
using Filter = PathEntryVectorDifferentiator::ComparisonFilter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;
using vpath_test::FakeEntry;

std::shared_ptr<FakeEntry> Entry(const std::string& folder) {
    return FakeEntry::Make(u"file:///tb/" + ustring(folder.begin(), folder.end()));
}

// Entries named by words: "Q" and "Q2" are two objects for folder q. Each name is one object.
struct Entries {
    PathEntryVector operator()(const std::string& names) {
        PathEntryVector list;
        std::istringstream words(names);
        for (std::string name; words >> name;) {
            auto& entry = byName[name];
            if (!entry)
                entry = Entry(std::string(1, static_cast<char>(std::tolower(name[0]))));
            list.push_back(entry);
        }
        return list;
    }
    std::map<std::string, std::shared_ptr<FakeEntry>> byName;
};

struct Results {
    PathEntryVector added, removed, reordered, refreshedBefore, refreshedAfter;
};

Results Diff(const PathEntryVector& before, const PathEntryVector& after,
             Filter filter = PathEntryVectorDifferentiator::EntriesOnly) {
    PathEntryVectorDifferentiator d;
    d.Compare(before, after, filter);
    return {*d.GetAdded(), *d.GetRemoved(), *d.GetReordered(), *d.GetRefreshedBefore(),
            *d.GetRefreshedAfter()};
}

TEST(PathEntryVectorDifferentiator, WorkedCases) {
    struct Case {
        const char *before, *after, *added, *removed, *reordered, *refreshedBefore, *refreshedAfter;
    };
    const Case cases[] = {
        {"", "", "", "", "", "", ""},
        {"P Q R", "P Q R", "", "", "", "", ""},
        {"", "C A B", "A B C", "", "", "", ""},  // results in IRI order
        {"B C A", "", "", "A B C", "", "", ""},
        {"K S U", "T K U", "T", "S", "", "", ""},
        // Reordered: the entries off the longest common subsequence, repeats counted.
        {"P Q", "Q P", "", "", "P", "", ""},
        {"P Q R", "R P Q", "", "", "R", "", ""},
        {"P Q R", "Q R P", "", "", "P", "", ""},
        {"P Q P", "Q P P", "", "", "P", "", ""},
        // Refreshed: a new object for the same folder, in place or moved (then not reordered).
        {"P Q R", "P Q2 R", "", "", "", "Q", "Q2"},
        {"P Q R", "Q2 P R", "", "", "", "Q", "Q2"},
        {"R Q P", "R2 Q2", "", "P", "", "Q R", "Q2 R2"},
        // A repeated pointer pairs off once; its extra copy is removed unless it can pair.
        {"P Q P", "P Q", "", "P", "", "", ""},
        {"P Q P", "P Q P2", "", "", "", "P", "P2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.before) + " => " + c.after);
        Entries e;
        const PathEntryVector before = e(c.before), after = e(c.after);
        const Results r = Diff(before, after);
        EXPECT_EQ(r.added, e(c.added));
        EXPECT_EQ(r.removed, e(c.removed));
        EXPECT_THAT(r.reordered, UnorderedElementsAreArray(e(c.reordered)));
        EXPECT_EQ(r.refreshedBefore, e(c.refreshedBefore));
        EXPECT_EQ(r.refreshedAfter, e(c.refreshedAfter));
        // Identity settles an entry that both lists hold as often: it is never asked its IRI.
        for (const auto& [name, entry] : e.byName) {
            if (std::count(before.begin(), before.end(), entry) ==
                std::count(after.begin(), after.end(), entry)) {
                EXPECT_EQ(entry->IRICalls(), 0) << name;
            }
        }
    }
}

// An entry of folder `folder` whose special-subfolder accessors return `specials` by slot.
std::shared_ptr<FakeEntry> WithSpecials(const std::string& folder,
                                        const std::map<int, std::shared_ptr<FakeEntry>>& specials) {
    auto entry = Entry(folder);
    for (const auto& [slot, special] : specials)
        entry->SetSpecial(slot, special);
    return entry;
}

TEST(PathEntryVectorDifferentiator, SpecialSubfolders) {
    const auto deep = Entry("m/private/resources");
    const auto priv = WithSpecials("m/private", {{2, deep}});
    const auto s3 = Entry("m/s3"), s5 = Entry("m/s5"), n = Entry("n");
    const auto m = WithSpecials("m", {{1, priv}, {3, s3}, {5, s5}});
    {
        // Level after level, each behind the one above; only the value 1 goes down.
        EXPECT_THAT(Diff({}, {n, m}, Filter{1}).added, ElementsAre(m, n, priv, s3, s5, deep));
        EXPECT_THAT(Diff({m}, {}, Filter{1}).removed, ElementsAre(m, priv, s3, s5, deep));
        for (const std::uint32_t value : {0u, 2u, 3u, 0x101u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(value);
            EXPECT_THAT(Diff({}, {n, m}, Filter{value}).added, ElementsAre(m, n));
        }
        EXPECT_THAT(Diff({m}, {m}, Filter{1}).added, IsEmpty());
    }
    {
        // A refreshed entry's subfolders: a kept object is unchanged, a new object for the same
        // subfolder is refreshed, a lost one removed.
        const auto kept = Entry("m/resources"), newPriv = Entry("m/private");
        const auto m2 = WithSpecials("m", {{1, newPriv}, {2, kept}});
        const Results r =
            Diff({WithSpecials("m", {{1, priv}, {2, kept}, {3, s3}})}, {m2}, Filter{1});
        EXPECT_THAT(r.refreshedAfter, ElementsAre(m2, newPriv));
        EXPECT_THAT(r.refreshedBefore, ElementsAre(::testing::_, priv));
        EXPECT_THAT(r.removed, ElementsAre(s3, deep));
        EXPECT_THAT(r.added, IsEmpty());
    }
    {
        // Deeper levels never report reordering, even of subfolder objects that swapped owners.
        const auto x = Entry("x/private"), y = Entry("y/private");
        const Results r =
            Diff({WithSpecials("a", {{1, x}}), WithSpecials("b", {{1, y}})},
                 {WithSpecials("a", {{1, y}}), WithSpecials("b", {{1, x}})}, Filter{1});
        EXPECT_EQ(r.refreshedBefore.size(), 2u);
        EXPECT_THAT(r.reordered, IsEmpty());
    }
}

TEST(PathEntryVectorDifferentiator, AccumulatesAndKeepsResultsOnFailure) {
    Entries e;
    PathEntryVectorDifferentiator d;
    const auto added = d.GetAdded();
    d.Compare(e("A"), e("A D"), Filter{0});
    d.Compare(e("A B"), e("B A C"), Filter{0});
    {
        // Later results follow earlier ones, not merged into IRI order; a getter's list is the
        // one that grows.
        EXPECT_EQ(*added, e("D C"));
        EXPECT_EQ(*d.GetReordered(), e("A"));
    }
    {
        // An IRI that cannot be had while pairing by folder: the exception passes out and the
        // reordered result, complete by then, stays.
        const PathEntryVector before = e("P Q R");
        e.byName["Q"]->ThrowOnIRI(true);
        EXPECT_THROW(d.Compare(before, e("R P S"), Filter{0}), std::runtime_error);
        EXPECT_EQ(*d.GetReordered(), e("A P"));
        EXPECT_EQ(*added, e("D C"));
    }
}

TEST(PathEntryVectorDifferentiator, LongListsSortOnSeveralThreads) {
    // Long enough for every sort to be split across oneTBB's threads; every other entry refreshed.
    PathEntryVector before, after;
    std::shared_ptr<FakeEntry> last;
    for (int i = 0; i < 3000; ++i) {
        before.push_back(Entry(std::to_string(i)));
        after.push_back(i % 2 ? before.back() : (last = Entry(std::to_string(i))));
    }
    std::reverse(after.begin(), after.end());
    {
        // Pairs aligned and in IRI order; the reversal leaves one unchanged entry.
        const Results r = Diff(before, after);
        ASSERT_EQ(r.refreshedAfter.size(), 1500u);
        for (std::size_t k = 0; k < 1500; ++k)
            EXPECT_EQ(r.refreshedBefore[k]->GetAbsoluteIRI(),
                      r.refreshedAfter[k]->GetAbsoluteIRI());
        EXPECT_TRUE(std::is_sorted(r.refreshedAfter.begin(), r.refreshedAfter.end(),
                                   [](const auto& a, const auto& b) {
                                       return a->GetAbsoluteIRI() < b->GetAbsoluteIRI();
                                   }));
        EXPECT_EQ(r.reordered.size(), 1499u);
    }
    {
        // A failure inside a parallel sort is raised again on the calling thread.
        last->ThrowOnIRI(true);
        EXPECT_THROW(Diff(before, after), std::runtime_error);
    }
}

// Accounted for exactly once. For each pointer, min(copies before, copies after) of its copies
// are common: unchanged or reordered. Its other copies before are removed or the old half of a
// refreshed pair; its other copies after are added or the new half of one. The unchanged copies
// are one longest common subsequence, so common - reordered is the reference length. A refreshed
// pair is two objects of one folder, and no removed entry shares a folder with an added one.
RC_GTEST_PROP(PathEntryVectorDifferentiator, AccountsForEveryEntryOnce, ()) {
    PathEntryVector pool;
    for (int f = *rc::gen::inRange(1, 5); f > 0; --f) {
        for (int copies = *rc::gen::inRange(1, 4); copies > 0; --copies)
            pool.push_back(Entry(std::to_string(f)));
    }
    const auto list =
        rc::gen::resize(12, rc::gen::container<PathEntryVector>(rc::gen::elementOf(pool)));
    const PathEntryVector before = *list, after = *list;
    const Results r = Diff(before, after);

    const auto count = [](const PathEntryVector& l, const auto& e) {
        return static_cast<std::size_t>(std::count(l.begin(), l.end(), e));
    };
    std::size_t common = 0;
    for (const auto& e : pool) {
        const std::size_t both = std::min(count(before, e), count(after, e));
        common += both;
        RC_ASSERT(count(r.reordered, e) <= both);
        RC_ASSERT(count(r.removed, e) + count(r.refreshedBefore, e) == count(before, e) - both);
        RC_ASSERT(count(r.added, e) + count(r.refreshedAfter, e) == count(after, e) - both);
    }
    std::vector<std::vector<std::size_t>> t(before.size() + 1,
                                            std::vector<std::size_t>(after.size() + 1));
    for (std::size_t i = 1; i <= before.size(); ++i) {
        for (std::size_t j = 1; j <= after.size(); ++j)
            t[i][j] = before[i - 1] == after[j - 1] ? t[i - 1][j - 1] + 1
                                                    : std::max(t[i - 1][j], t[i][j - 1]);
    }
    RC_ASSERT(common - r.reordered.size() == t[before.size()][after.size()]);

    RC_ASSERT(r.refreshedBefore.size() == r.refreshedAfter.size());
    for (std::size_t k = 0; k < r.refreshedBefore.size(); ++k) {
        RC_ASSERT(r.refreshedBefore[k] != r.refreshedAfter[k]);
        RC_ASSERT(r.refreshedBefore[k]->GetAbsoluteIRI() == r.refreshedAfter[k]->GetAbsoluteIRI());
    }
    for (const auto& gone : r.removed) {
        for (const auto& come : r.added)
            RC_ASSERT(gone->GetAbsoluteIRI() != come->GetAbsoluteIRI());
    }
}

}  // namespace
