// The subsequence engine over entry lists: its answers, long chains, and agreement with a
// dynamic-programming reference.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <boost/thread/thread.hpp>

#include "path_diff/longest_common_subsequence.hpp"
#include "support/fake_path.hpp"

namespace {

using Velmora::PathManagement::PathEntryPtr;
using Velmora::PathManagement::PathEntryVector;
using Velmora::PathManagement::detail::LongestCommonSubsequence;

PathEntryVector Lcs(const PathEntryVector& first, const PathEntryVector& second) {
    return LongestCommonSubsequence<PathEntryPtr, PathEntryVector>(first, second)
        .GetLongestCommonSubsequence();
}

// One entry object per letter: Letters("PQP") => {P, Q, P}.
PathEntryVector Letters(const std::string& names) {
    static std::map<char, PathEntryPtr> pool;
    PathEntryVector list;
    for (const char c : names) {
        auto& entry = pool[c];
        if (!entry)
            entry = vpath_test::FakeEntry::Make(u"file:///tb/" + ustring(1, char16_t(c)));
        list.push_back(entry);
    }
    return list;
}

TEST(LongestCommonSubsequence, WorkedCases) {
    const char* const cases[][3] = {
        // Among answers of the greatest length: the chain that last set the top threshold.
        {"PQ", "QP", "Q"},        {"PQR", "RPQ", "PQ"},     {"PQR", "QRP", "QR"},
        {"PP", "P", "P"},         {"P", "PP", "P"},         {"ABCBDAB", "BDCABA", "BDAB"},
        {"", "PQ", ""},           {"PQ", "", ""},           {"PQR", "STU", ""},
        {"PQRS", "PQRS", "PQRS"}, {"XPYQZR", "PQR", "PQR"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c[0]) + " / " + c[1]);
        EXPECT_EQ(Lcs(Letters(c[0]), Letters(c[1])), Letters(c[2]));
    }
}

TEST(LongestCommonSubsequence, LongChainsAreReleasedWithoutDeepRecursion) {
    // Halves swapped: the chain through the first half is superseded match by match and then
    // released in one go. On a thread with a small stack, releasing it node within node would
    // overflow. Plain numbers keep the lists cheap.
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

// The answer is common to both, in order, and as long as the longest that the table finds.
RC_GTEST_PROP(LongestCommonSubsequence, CommonInOrderAndLongest, ()) {
    const auto letters = rc::gen::container<std::string>(rc::gen::elementOf(std::string("PQRSTU")));
    const PathEntryVector a = Letters(*rc::gen::resize(14, letters));
    const PathEntryVector b = Letters(*rc::gen::resize(14, letters));
    const PathEntryVector result = Lcs(a, b);
    const auto isSubsequenceOf = [&result](const PathEntryVector& list) {
        auto it = list.begin();
        for (const auto& element : result) {
            it = std::find(it, list.end(), element);
            if (it == list.end())
                return false;
            ++it;
        }
        return true;
    };
    RC_ASSERT(isSubsequenceOf(a) && isSubsequenceOf(b));
    std::vector<std::vector<std::size_t>> t(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j)
            t[i][j] =
                a[i - 1] == b[j - 1] ? t[i - 1][j - 1] + 1 : std::max(t[i - 1][j], t[i][j - 1]);
    }
    RC_ASSERT(result.size() == t[a.size()][b.size()]);
}

}  // namespace
