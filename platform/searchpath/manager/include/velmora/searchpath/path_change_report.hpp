#pragma once
// ComparePaths: what a change of the search path did, folder by folder.
//
// The manager keeps an entry object for as long as its folder does not change on disk (its
// EntryCache), so two states of the path it published can be compared by object: a folder whose
// entry is the same object in both is unchanged, a folder with a new object for the same location
// was refreshed (its files or special subfolders changed), and the rest were added, removed or
// moved. Special subfolders of the entries that changed are compared too, level after level.
//
//   manager.AddPathChangeObserver([](const PathChange& change) {
//       const auto report = ComparePaths(*change.before, *change.after);
//       for (const auto& entry : *report.refreshedAfter) ...  // folders read anew
//   });

#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/searchpath/export.hpp>

namespace Velmora::SearchPath {

struct PathChangeReport {
    PathManagement::SharedPathEntryVector added;      // in location order
    PathManagement::SharedPathEntryVector removed;    // in location order
    PathManagement::SharedPathEntryVector reordered;  // main entries that moved; a set, no order
    // The folders read anew: position k of the two lists are the old and the new entry of one
    // folder, in location order.
    PathManagement::SharedPathEntryVector refreshedBefore;
    PathManagement::SharedPathEntryVector refreshedAfter;

    bool empty() const noexcept {
        return added->empty() && removed->empty() && reordered->empty() && refreshedAfter->empty();
    }
};

// ComparePaths: the differences between two states of a path, down into special subfolders.
// Entries are compared as objects: states that did not come from one manager (or scans sharing one
// EntryCache) see every folder as refreshed.
VELMORA_SEARCHPATH_EXPORT PathChangeReport ComparePaths(const PathManagement::IPath& before,
                                                        const PathManagement::IPath& after);

}  // namespace Velmora::SearchPath
