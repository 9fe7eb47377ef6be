#pragma once
// IWatchedPath: what PathWatcher needs of the path it keeps fresh, and PathState, what it reads.
//
// The watcher sits below the owner of the path, not beside it: it asks through this interface for
// the current state (the snapshot with its folder list), and has the owner read folders or the
// path definition file again. MainSearchPathManager implements it, so a manager is what a watcher
// is usually given:
//
//   MainSearchPathManager manager(folders, options);
//   PathWatcher watcher(manager, {});  // the manager is the watcher's IWatchedPath
//
// The refreshes come from the watcher's own thread, one at a time; GetState also from threads
// that wait for the watcher to settle, so it must be safe to call from any thread.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/main_search_path.hpp>

namespace Velmora::SearchPath {

// PathState: one state of a path as its owner published it, all parts from the same moment: the
// snapshot, the folder list it was built from (folders missing from the snapshot included), and
// the problems its folders had then. The owner publishes a whole new state at each change or
// refresh, and never alters one once published, so a reader that keeps a state may use it as long
// as it likes and on any thread.
//
//   const auto state = manager.GetState();
//   FindFirstFileVisibleOnPath(*state->path, target, policy);  // on state->folders, as they were
struct PathState {
    // The number of the state: the first state is 0 and each one published after it is the next
    // number, so a reader can tell which state it holds, and compare it with the generation an
    // observer was told of.
    std::uint64_t generation = 0;
    std::shared_ptr<const std::vector<foundation::storage::vfs::AbsoluteIRI>> folders;
    std::shared_ptr<const MainSearchPath> path;
    std::shared_ptr<const ScanReport> warnings;
};

class VELMORA_SEARCHPATH_EXPORT IWatchedPath {
  public:
    virtual ~IWatchedPath();

    // The current state of the path: its snapshot and folder list together.
    virtual std::shared_ptr<const PathState> GetState() const = 0;
    // Reads every folder again, by its stamp; after the kernel lost events. Returns the state it
    // published, or null when nothing changed.
    virtual std::shared_ptr<const PathState> Refresh() = 0;
    // Reads again the folders at `locations` (or the folders holding them), whatever their stamps
    // say. Returns the state it published, or null when nothing changed.
    virtual std::shared_ptr<const PathState> RefreshFolders(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& locations) = 0;
    // Takes up the folder list saved in the path definition file; problems reading it go to
    // `problems`. Returns the state it published, or null when nothing changed.
    virtual std::shared_ptr<const PathState> ReloadPathDefinition(
        foundation::core::except::Notification& problems) = 0;
    // The native path of the path definition file to watch; empty for none.
    virtual std::string GetPathDefinitionPath() const = 0;
};

}  // namespace Velmora::SearchPath
