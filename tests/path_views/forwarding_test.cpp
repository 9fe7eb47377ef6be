// What each view asks of the paths it wraps: the caller's scope and policy unchanged, and the walk
// that was asked for (the deduplicated view alone turns a concurrent walk into a sequential one).

#include <functional>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;

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

}  // namespace
