// Path change analysis: the subsequence engine beneath it and PathEntryVectorDifferentiator, on
// worked cases, long lists, failures, and random lists with repeats checked against the textbook
// dynamic-programming table.

#include <algorithm>
#include <cctype>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <boost/thread/thread.hpp>

#include <velmora/pathmanagement/path_diff.hpp>

#include "path_diff/longest_common_subsequence.hpp"
#include "support/fake_path.hpp"

namespace {

using namespace Velmora::PathManagement;
using detail::LongestCommonSubsequence;
using Filter = PathEntryVectorDifferentiator::ComparisonFilter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vpath_test::FakeEntry;

std::shared_ptr<FakeEntry> Entry(const std::string& folder) {
    return FakeEntry::Make(u"file:///tb/" + ustring(folder.begin(), folder.end()));
}

// Entries named by a letter and any digits: "Q" and "Q2" are two objects for folder q. Each name
// is one object: "PQ2P" => {P, Q2, P}.
struct Entries {
    PathEntryVector operator()(const std::string& names) {
        PathEntryVector list;
        for (std::size_t at = 0, end; at < names.size(); at = end) {
            for (end = at + 1;
                 end < names.size() && std::isdigit(static_cast<unsigned char>(names[end]));)
                ++end;
            auto& entry = byName[names.substr(at, end - at)];
            if (!entry)
                entry = Entry(std::string(1, static_cast<char>(std::tolower(names[at]))));
            list.push_back(entry);
        }
        return list;
    }
    std::map<std::string, std::shared_ptr<FakeEntry>> byName;
};

PathEntryVector Lcs(const PathEntryVector& first, const PathEntryVector& second) {
    return LongestCommonSubsequence<PathEntryPtr, PathEntryVector>(first, second)
        .GetLongestCommonSubsequence();
}

// The length of a longest common subsequence, from the textbook table.
std::size_t ReferenceLcsLength(const PathEntryVector& a, const PathEntryVector& b) {
    std::vector<std::vector<std::size_t>> t(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j)
            t[i][j] =
                a[i - 1] == b[j - 1] ? t[i - 1][j - 1] + 1 : std::max(t[i - 1][j], t[i][j - 1]);
    }
    return t[a.size()][b.size()];
}

// Random lists over a few folders, each with up to three objects.
rc::Gen<PathEntryVector> RandomList(const PathEntryVector& pool) {
    return rc::gen::resize(12, rc::gen::container<PathEntryVector>(rc::gen::elementOf(pool)));
}
PathEntryVector RandomPool() {
    PathEntryVector pool;
    for (int f = *rc::gen::inRange(1, 5); f > 0; --f) {
        for (int copies = *rc::gen::inRange(1, 4); copies > 0; --copies)
            pool.push_back(Entry(std::to_string(f)));
    }
    return pool;
}

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

TEST(LongestCommonSubsequence, WorkedCases) {
    const char* const cases[][3] = {
        // Among answers of the greatest length: the chain that last set the top threshold; a
        // position met again (the second A of XAYA) leaves the chain that set it in place.
        {"PQ", "QP", "Q"},  {"PQR", "RPQ", "PQ"},          {"PQR", "QRP", "QR"},  {"PP", "P", "P"},
        {"P", "PP", "P"},   {"ABCBDAB", "BDCABA", "BDAB"}, {"", "PQ", ""},        {"PQ", "", ""},
        {"PQR", "STU", ""}, {"XPYQZR", "PQR", "PQR"},      {"XAYA", "YXA", "XA"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c[0]) + " / " + c[1]);
        Entries e;
        EXPECT_EQ(Lcs(e(c[0]), e(c[1])), e(c[2]));
    }
}

TEST(LongestCommonSubsequence, LongChainsAreReleasedWithoutDeepRecursion) {
    // Halves swapped: the chain through the first half is superseded match by match and then
    // released in one go, which node within node would overflow a thread's small stack.
    const int half = 50000;
    std::vector<int> first, second, result;
    for (int i = 0; i < 2 * half; ++i) {
        first.push_back(i);
        second.push_back((i + half) % (2 * half));
    }
    boost::thread::attributes smallStack;
    smallStack.set_stack_size(256 * 1024);
    boost::thread worker(smallStack, [&] {
        result = LongestCommonSubsequence<int, std::vector<int>>(first, second)
                     .GetLongestCommonSubsequence();
    });
    worker.join();
    ASSERT_EQ(result.size(), static_cast<std::size_t>(half));
    EXPECT_EQ(result.front(), half);
}

TEST(PathEntryVectorDifferentiator, WorkedCases) {
    struct Case {
        const char *before, *after, *added, *removed, *reordered, *refreshedBefore, *refreshedAfter;
    };
    const Case cases[] = {
        {"", "", "", "", "", "", ""},
        {"PQR", "PQR", "", "", "", "", ""},
        {"", "CAB", "ABC", "", "", "", ""},  // results in IRI order
        {"BCA", "", "", "ABC", "", "", ""},
        {"KSU", "TKU", "T", "S", "", "", ""},
        // Reordered: the entries off the longest common subsequence, repeats counted.
        {"PQ", "QP", "", "", "P", "", ""},
        {"PQR", "RPQ", "", "", "R", "", ""},
        {"PQP", "QPP", "", "", "P", "", ""},
        // Refreshed: a new object for the same folder, in place or moved (then not reordered).
        {"PQR", "PQ2R", "", "", "", "Q", "Q2"},
        {"PQR", "Q2PR", "", "", "", "Q", "Q2"},
        {"RQP", "R2Q2", "", "P", "", "QR", "Q2R2"},
        // A repeated pointer pairs off once; its extra copy is removed unless it can pair.
        {"PQP", "PQ", "", "P", "", "", ""},
        {"PQP", "PQP2", "", "", "", "P", "P2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.before) + " => " + c.after);
        Entries e;
        const PathEntryVector before = e(c.before), after = e(c.after);
        const Results r = Diff(before, after);
        EXPECT_EQ(r.added, e(c.added));
        EXPECT_EQ(r.removed, e(c.removed));
        EXPECT_THAT(r.reordered, ::testing::UnorderedElementsAreArray(e(c.reordered)));
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
    // Level after level, each behind the one above; only the value 1 goes down.
    EXPECT_THAT(Diff({}, {n, m}, Filter{1}).added, ElementsAre(m, n, priv, s3, s5, deep));
    EXPECT_THAT(Diff({m}, {}, Filter{1}).removed, ElementsAre(m, priv, s3, s5, deep));
    for (const std::uint32_t value : {0u, 2u, 3u, 0x101u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(value);
        EXPECT_THAT(Diff({}, {n, m}, Filter{value}).added, ElementsAre(m, n));
    }
    EXPECT_THAT(Diff({m}, {m}, Filter{1}).added, IsEmpty());
    // A refreshed entry's subfolders: a kept object is unchanged, a new object for the same
    // subfolder is refreshed, a lost one removed.
    const auto kept = Entry("m/resources"), newPriv = Entry("m/private");
    const auto m2 = WithSpecials("m", {{1, newPriv}, {2, kept}});
    const Results refreshed =
        Diff({WithSpecials("m", {{1, priv}, {2, kept}, {3, s3}})}, {m2}, Filter{1});
    EXPECT_THAT(refreshed.refreshedAfter, ElementsAre(m2, newPriv));
    EXPECT_THAT(refreshed.refreshedBefore, ElementsAre(::testing::_, priv));
    EXPECT_THAT(refreshed.removed, ElementsAre(s3, deep));
    EXPECT_THAT(refreshed.added, IsEmpty());
    // Deeper levels never report reordering, even of subfolder objects that swapped owners.
    const auto x = Entry("x/private"), y = Entry("y/private");
    const Results swapped =
        Diff({WithSpecials("a", {{1, x}}), WithSpecials("b", {{1, y}})},
             {WithSpecials("a", {{1, y}}), WithSpecials("b", {{1, x}})}, Filter{1});
    EXPECT_EQ(swapped.refreshedBefore.size(), 2u);
    EXPECT_THAT(swapped.reordered, IsEmpty());
}

TEST(PathEntryVectorDifferentiator, AccumulatesAndKeepsResultsOnFailure) {
    Entries e;
    PathEntryVectorDifferentiator d;
    const auto added = d.GetAdded();
    d.Compare(e("A"), e("AD"), Filter{0});
    d.Compare(e("AB"), e("BAC"), Filter{0});
    // Later results follow earlier ones, not merged into IRI order, in the list a getter gave.
    EXPECT_EQ(*added, e("DC"));
    EXPECT_EQ(*d.GetReordered(), e("A"));
    // An IRI that cannot be had while pairing by folder: the exception passes out and the
    // reordered result, complete by then, stays.
    const PathEntryVector before = e("PQR");
    e.byName["Q"]->ThrowOnIRI(true);
    EXPECT_THROW(d.Compare(before, e("RPS"), Filter{0}), std::runtime_error);
    EXPECT_EQ(*d.GetReordered(), e("AP"));
    EXPECT_EQ(*added, e("DC"));
}

// Accounted for exactly once. For each pointer, min(copies before, copies after) of its copies
// are common: unchanged or reordered. Its other copies before are removed or the old half of a
// refreshed pair; its other copies after are added or the new half of one. The unchanged copies
// are one longest common subsequence, so common - reordered is the reference length. A refreshed
// pair is two objects of one folder, and no removed entry shares a folder with an added one.
RC_GTEST_PROP(PathEntryVectorDifferentiator, AccountsForEveryEntryOnce, ()) {
    const PathEntryVector pool = RandomPool();
    const PathEntryVector before = *RandomList(pool), after = *RandomList(pool);
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
    RC_ASSERT(common - r.reordered.size() == ReferenceLcsLength(before, after));
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
