// GetPartiallyMatchingEntries of the scanned main search path: answered from its index of folder
// names, and in agreement with the library's lenient rule entry by entry.

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/text/ustring.hpp>

#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PathManagement;
using vpath_test::TempTreeTest;

class PartialMatchTest : public TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f : {"tb/geometry/+shapes/@Polygon/x", "tb/geometry/private/x",
                              "tb/geometry/resources/x", "tb/ab/c/x", "tb/b/c/x", "tb/B/c/x",
                              "tb/n\xe9/+p\xff/x", "tb/stats/@Sample/x", "tb/+odd/x"})
            tree.File(f);
        Velmora::SearchPath::ScanReport report;
        path = Velmora::SearchPath::MainSearchPath::Scan(
            {tree.IRI("tb/geometry"), tree.IRI("tb/ab/c"), tree.IRI("tb/b/c"), tree.IRI("tb/B/c"),
             tree.IRI("tb/n\xe9"), tree.IRI("tb/stats"), tree.IRI("tb/+odd")},
            report);
        ASSERT_TRUE(report.empty());
    }

    // The locations below tb/ of the entries that the host answers with.
    std::vector<std::string> Matching(const std::string& partial, FilenameMatchingPolicy policy) {
        std::vector<std::string> found;
        const ustring name = Velmora::text::FromNative(partial);
        const auto root = Velmora::text::ToNative(tree.IRI("tb").getPath()) + "/";
        for (const auto& e :
             path->GetPartiallyMatchingEntries(SearchScope(kEverything), name, policy)) {
            found.push_back(
                Velmora::text::ToNative(e->GetAbsoluteIRI().getPath()).substr(root.size()));
        }
        return found;
    }

    static constexpr std::uint32_t kEverything[] = {0, 1, 2, 3, 4, 5};
    std::shared_ptr<const Velmora::SearchPath::MainSearchPath> path;
};

TEST_F(PartialMatchTest, AgreesWithTheLenientRuleOnEveryEntry) {
    const std::uint32_t scope[] = {0, 1, 2, 3, 4, 5};
    PathEntryVector all;
    path->ForEachEntry(SearchScope(scope), [&](const auto& e) {
        all.push_back(e);
        return false;
    });
    // Whole folder names only (b/c is never ab/c), "+" and "@" optional, names as bytes (the
    // UTF-8 spelling of n\xe9 is other bytes).
    for (const std::string partial :
         {"c", "b/c", "B/C", "shapes/@Polygon", "+shapes/Polygon", "geometry/shapes", "resources",
          "geometry/resources", "@Sample", "x/c", "Polygon", "Sample", "private", "odd",
          "n\xe9/p\xff", "n\xc3\xa9/p\xff"}) {
        for (const auto policy :
             {FilenameMatchingPolicy::Exact, FilenameMatchingPolicy::IgnoreCase}) {
            SCOPED_TRACE(partial);
            const ustring name = Velmora::text::FromNative(partial);
            const auto parts = SplitPartialPathname(name);
            PathEntryVector expected;
            for (const auto& e : all) {
                if (DoesPartialPathnameMatchPathEntryIRI(parts, e, policy))
                    expected.push_back(e);
            }
            EXPECT_EQ(path->GetPartiallyMatchingEntries(SearchScope(scope), name, policy),
                      expected);
        }
    }
    // Only entries of the scope's kinds; an empty name matches nothing.
    const std::uint32_t primary[] = {0};
    EXPECT_EQ(path->GetPartiallyMatchingEntries(SearchScope(primary), u"shapes",
                                                FilenameMatchingPolicy::Exact),
              PathEntryVector{});
    EXPECT_EQ(Matching("", FilenameMatchingPolicy::Exact), std::vector<std::string>{});
}

TEST_F(PartialMatchTest, ThreadsThatAskFirstShareOneIndex) {
    // The index is built by the first query; readers racing to it must all get whole answers.
    std::vector<std::vector<std::string>> answers(4);
    std::vector<std::thread> readers;
    for (auto& answer : answers)
        readers.emplace_back([&] { answer = Matching("shapes", FilenameMatchingPolicy::Exact); });
    for (auto& reader : readers)
        reader.join();
    for (const auto& answer : answers)
        EXPECT_EQ(answer, std::vector<std::string>{"geometry/+shapes"});
}

}  // namespace
