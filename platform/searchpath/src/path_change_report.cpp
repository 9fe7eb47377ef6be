#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/searchpath/main_search_path.hpp>

namespace Velmora::SearchPath {
namespace {

using PathManagement::PathEntryVector;

// The main entries of two snapshots that may differ: those between the longest run of the same
// objects in the same places at the front and at the back. A change of a long path (a folder added
// at the front, one taken off) touches a few folders, and the differentiator then reports over
// them what it would report over the whole path: the runs are common to both, and every longest
// common subsequence holds them whole, since no entry appears twice in a path.
// False when either is not a MainSearchPath.
bool DifferingMiddles(const PathManagement::IPath& before, const PathManagement::IPath& after,
                      PathEntryVector& beforeMiddle, PathEntryVector& afterMiddle) {
    const auto* a = dynamic_cast<const MainSearchPath*>(&before);
    const auto* b = dynamic_cast<const MainSearchPath*>(&after);
    if (a == nullptr || b == nullptr)
        return false;
    const auto& x = a->GetFolderEntries();
    const auto& y = b->GetFolderEntries();
    const auto [front, back] = SharedRuns(x, y);
    beforeMiddle.assign(x.begin() + static_cast<std::ptrdiff_t>(front),
                        x.end() - static_cast<std::ptrdiff_t>(back));
    afterMiddle.assign(y.begin() + static_cast<std::ptrdiff_t>(front),
                       y.end() - static_cast<std::ptrdiff_t>(back));
    return true;
}

// The entries that differ between two snapshots with the same folders in the same places, the
// common case of a refresh: false when the folders differ. Entries that are the same objects
// compare equal in place, so only these few need the differentiator, which then reports what it
// would report over the whole path.
bool ReplacedInPlace(const PathManagement::IPath& before, const PathManagement::IPath& after,
                     PathEntryVector& beforeOnly, PathEntryVector& afterOnly) {
    const auto* a = dynamic_cast<const MainSearchPath*>(&before);
    const auto* b = dynamic_cast<const MainSearchPath*>(&after);
    if (a == nullptr || b == nullptr ||
        a->GetFolderEntries().size() != b->GetFolderEntries().size())
        return false;
    const auto& x = a->GetFolderEntries();
    const auto& y = b->GetFolderEntries();
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (x[i] == y[i])
            continue;
        if (x[i]->GetAbsoluteIRI() != y[i]->GetAbsoluteIRI())
            return false;
        beforeOnly.push_back(x[i]);
        afterOnly.push_back(y[i]);
    }
    return true;
}

}  // namespace

PathChangeReport ComparePaths(const PathManagement::IPath& before,
                              const PathManagement::IPath& after) {
    using PathManagement::PathEntryVectorDifferentiator;
    PathEntryVectorDifferentiator differences;
    PathEntryVector beforeOnly;
    PathEntryVector afterOnly;
    if (ReplacedInPlace(before, after, beforeOnly, afterOnly)) {
        differences.Compare(std::move(beforeOnly), std::move(afterOnly),
                            PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
    } else {
        PathEntryVector beforeMiddle;
        PathEntryVector afterMiddle;
        if (DifferingMiddles(before, after, beforeMiddle, afterMiddle)) {
            differences.Compare(std::move(beforeMiddle), std::move(afterMiddle),
                                PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
        } else {
            differences.Compare(*before.GetMainEntries(), *after.GetMainEntries(),
                                PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
        }
    }
    return {differences.GetAdded(), differences.GetRemoved(), differences.GetReordered(),
            differences.GetRefreshedBefore(), differences.GetRefreshedAfter()};
}

}  // namespace Velmora::SearchPath
