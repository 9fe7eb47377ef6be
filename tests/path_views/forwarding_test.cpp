// What each view asks of the paths it wraps: the caller's scope and policy unchanged, and the walk
// that was asked for (the deduplicated view alone turns a concurrent walk into a sequential one).

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;
using ::testing::ElementsAreArray;

TEST(ViewForwarding, TheCallersScopeAndPolicyAndWalkReachTheWrappedPath) {
    const auto a = Entry("a", {u"f.vl"});
    const auto b = Entry("b", {u"f.vl"});
    const std::uint32_t scope[] = {0, 3};
    const auto policy = FilenameMatchingPolicy::IgnoreCase;
    const ustring name = u"f";
    const detail::SearchTarget target(name, kVl);
    const EntryCallback go = [](const auto&) { return false; };
    struct Case {
        const char* operation;
        std::function<void(const IPath&)> call;
        // What the wrapped path is asked by the concatenated, deduplicated and masked views.
        std::vector<std::string> asked[3];
    };
    const Case cases[] = {
        {"GetMethodEntriesByName",
         [&](const IPath& v) { v.GetMethodEntriesByName(SearchScope(scope), name, policy); },
         {{"GetMethodEntriesByName(03)/1"},
          {"GetMethodEntriesByName(03)/1"},
          {"GetMethodEntriesByName(03)/1"}}},
        {"GetPartiallyMatchingEntries",
         [&](const IPath& v) { v.GetPartiallyMatchingEntries(SearchScope(scope), name, policy); },
         {{"GetPartiallyMatchingEntries(03)/1"},
          {"GetPartiallyMatchingEntries(03)/1"},
          {"GetPartiallyMatchingEntries(03)/1"}}},
        {"FindAllInScope",
         [&](const IPath& v) { v.FindAllInScope(SearchScope(scope), target, policy); },
         {{"FindAllInScope(03)/1"}, {"FindAllInScope(03)/1"}, {"FindAllInScope(03)/1"}}},
        // The masked view's first match lies in the masked `a`: it looks at all matches.
        {"FindFirstInScope",
         [&](const IPath& v) { v.FindFirstInScope(SearchScope(scope), target, policy); },
         {{"FindFirstInScope(03)/1"},
          {"FindFirstInScope(03)/1"},
          {"FindFirstInScope(03)/1", "FindAllInScope(03)/1"}}},
        {"GetPathEntryFromAbsoluteIRI",
         [&](const IPath& v) { v.GetPathEntryFromAbsoluteIRI(b->GetAbsoluteIRI(), policy); },
         {{"GetPathEntryFromAbsoluteIRI/1"},
          {"GetPathEntryFromAbsoluteIRI/1"},
          {"GetPathEntryFromAbsoluteIRI/1"}}},
        {"ForEachEntry",
         [&](const IPath& v) { v.ForEachEntry(SearchScope(scope), go); },
         {{"ForEachEntry(03)"}, {"ForEachEntry(03)"}, {"ForEachEntry(03)"}}},
        {"ConcurrentForEachEntry",
         [&](const IPath& v) { v.ConcurrentForEachEntry(SearchScope(scope), go); },
         {{"ConcurrentForEachEntry(03)"}, {"ForEachEntry(03)"}, {"ConcurrentForEachEntry(03)"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.operation);
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
            EXPECT_THAT(sub->Log().Calls(), ElementsAreArray(c.asked[v]));
        }
    }
}

}  // namespace
