#pragma once
// Internal to the manager: carrying a change of the folder list over to a list that others have
// changed since.
//
// A process reads the saved path, works out the new path that its user asked for, and saves it. If
// another process saved a change meanwhile, saving the new path as it stands would undo that
// change. Instead the change is made again on what is saved now: the folders that it took off are
// taken off, the folders that it put on or moved are put in the places it gave them, and whatever
// the other processes did is kept.

#include <cstddef>
#include <memory>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "path_definition/anchors.hpp"

namespace Velmora::SearchPath {
class PathDefinitionFile;
}

namespace Velmora::SearchPath::detail {

class MainPositions;

using FolderList = std::vector<foundation::storage::vfs::AbsoluteIRI>;

// RebaseChange: the change from `base` to `wanted`, made on `current` instead.
//
//   base {a, b, c}, wanted {x, a, c} (x added at the front, b removed), current {a, b, c, y}
//     => {x, a, c, y}
//
// Folders of `wanted` that kept their order relative to `base` are anchors (the longest such run
// at the front or the end of `wanted` where that is as long as any, as an addition leaves it);
// each other folder of `wanted` goes right after the anchor that precedes it there, folders before
// the first anchor go to the front and folders after the last anchor to the end. An anchor that
// `current` no longer holds stays off. REQUIRES: no list repeats a folder.
FolderList RebaseChange(const FolderList& base, const FolderList& wanted,
                        const FolderList& current);

// RebaseOnSavedFile: reads the path saved in `file` (meant to be called under its change lock)
// and, where it differs from `base`, carries the change from `base` to `wanted` over to it. On
// return `base` is the saved path and `wanted` the change made on it. False, with the reasons in
// `problems`, when the saved path cannot be read. `base` is replaced, never changed: it is the
// list that the manager's state holds.
bool RebaseOnSavedFile(const PathDefinitionFile& file, std::shared_ptr<const FolderList>& base,
                       FolderList& wanted, foundation::core::except::Notification& problems);

// FoldersNotIn: the folders of `after` that `before` lacks, in the order of `after`. Only those
// between the runs that both lists share at the front and at the back are looked up: a change of a
// long path touches a few.
FolderList FoldersNotIn(const FolderList& after, const FolderList& before);

// DropOtherNamesOf: takes out of `folders` each folder that is not in `added` but is the same
// folder on disk (device and inode) as one that is: adding a folder under a new name moves it
// rather than putting it on the path twice.
// `current` is the path as read at this start, made from the folder list `currentFolders`: the
// device and inode of its folders are taken from their entries rather than asked of the disk
// again, and only when `positions`, its table of places, counts an entry of an added folder that
// is not the folder's own.
void DropOtherNamesOf(FolderList& folders, const FolderList& added, const MainSearchPath& current,
                      const FolderList& currentFolders, const MainPositions& positions);

}  // namespace Velmora::SearchPath::detail
