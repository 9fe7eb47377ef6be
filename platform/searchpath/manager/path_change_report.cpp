#include <velmora/searchpath/path_change_report.hpp>

#include <utility>

#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/shared_runs.hpp>

namespace Velmora::SearchPath {
namespace {

using PathManagement::PathEntryVector;

// The entries the differentiator must be given to report what it would report over the whole
// paths, which for two snapshots of one path are a few:
// - with the same folders in the same places (a refresh), the entries that are not the same
//   objects;
// - otherwise, those between the runs of the same objects in the same places at the front and
//   at the back: the runs are common to both, and every longest common subsequence holds them
//   whole, since no entry appears twice in a path.
std::pair<PathEntryVector, PathEntryVector> EntriesToCompare(const PathManagement::IPath& before,
                                                             const PathManagement::IPath& after) {
    const auto* a = dynamic_cast<const MainSearchPath*>(&before);
    const auto* b = dynamic_cast<const MainSearchPath*>(&after);
    if (a == nullptr || b == nullptr)
        return {*before.GetMainEntries(), *after.GetMainEntries()};
    const auto& x = a->GetFolderEntries();
    const auto& y = b->GetFolderEntries();
    if (x.size() == y.size()) {
        std::pair<PathEntryVector, PathEntryVector> replaced;
        std::size_t i = 0;
        for (; i < x.size(); ++i) {
            if (x[i] == y[i])
                continue;
            if (x[i]->GetAbsoluteIRI() != y[i]->GetAbsoluteIRI())
                break;
            replaced.first.push_back(x[i]);
            replaced.second.push_back(y[i]);
        }
        if (i == x.size())
            return replaced;
    }
    const auto [front, back] = SharedRuns(x, y);
    return {PathEntryVector(x.begin() + static_cast<std::ptrdiff_t>(front),
                            x.end() - static_cast<std::ptrdiff_t>(back)),
            PathEntryVector(y.begin() + static_cast<std::ptrdiff_t>(front),
                            y.end() - static_cast<std::ptrdiff_t>(back))};
}

}  // namespace

PathChangeReport ComparePaths(const PathManagement::IPath& before,
                              const PathManagement::IPath& after) {
    using PathManagement::PathEntryVectorDifferentiator;
    auto [beforeOnly, afterOnly] = EntriesToCompare(before, after);
    PathEntryVectorDifferentiator differences;
    differences.Compare(std::move(beforeOnly), std::move(afterOnly),
                        PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
    return {differences.GetAdded(), differences.GetRemoved(), differences.GetReordered(),
            differences.GetRefreshedBefore(), differences.GetRefreshedAfter()};
}

}  // namespace Velmora::SearchPath
