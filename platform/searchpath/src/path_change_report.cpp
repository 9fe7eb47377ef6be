#include <velmora/searchpath/path_change_report.hpp>

#include <velmora/pathmanagement/path_diff.hpp>

namespace Velmora::SearchPath {

PathChangeReport ComparePaths(const PathManagement::IPath& before,
                              const PathManagement::IPath& after) {
    using PathManagement::PathEntryVectorDifferentiator;
    PathEntryVectorDifferentiator differences;
    differences.Compare(*before.GetMainEntries(), *after.GetMainEntries(),
                        PathEntryVectorDifferentiator::IncludeSpecialSubfolders);
    return {differences.GetAdded(), differences.GetRemoved(), differences.GetReordered(),
            differences.GetRefreshedBefore(), differences.GetRefreshedAfter()};
}

}  // namespace Velmora::SearchPath
