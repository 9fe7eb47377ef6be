#pragma once
// IWatchedPath: what PathWatcher needs of the path it keeps fresh.
//
// The watcher sits below the owner of the path, not beside it: it asks through this interface
// for the current snapshot and the saved folder list, and has the owner read folders or the path
// definition file again. MainSearchPathManager implements it, so a manager is what a watcher is
// usually given:
//
//   MainSearchPathManager manager(folders, options);
//   PathWatcher watcher(manager, {});  // the manager is the watcher's IWatchedPath
//
// Every call comes from the watcher's own thread, one at a time.

#include <memory>
#include <string>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/main_search_path.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT IWatchedPath {
  public:
    virtual ~IWatchedPath();

    // The current snapshot of the path.
    virtual std::shared_ptr<const MainSearchPath> GetSnapshot() const = 0;
    // The folder list of the path, folders that are not on the snapshot (missing ones) included.
    virtual std::shared_ptr<const std::vector<foundation::storage::vfs::AbsoluteIRI>>
    GetPathFolderIRIs() const = 0;
    // Reads every folder again, by its stamp; after the kernel lost events.
    virtual void Refresh() = 0;
    // Reads again the folders at `locations` (or the folders holding them), whatever their stamps
    // say. Returns whether the path changed.
    virtual bool RefreshFolders(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& locations) = 0;
    // Takes up the folder list saved in the path definition file; problems reading it go to
    // `problems`. Returns whether the path changed.
    virtual bool ReloadPathDefinition(foundation::core::except::Notification& problems) = 0;
    // The native path of the path definition file to watch; empty for none.
    virtual std::string GetPathDefinitionPath() const = 0;
};

}  // namespace Velmora::SearchPath
