#pragma once
// MainSearchPathManager: the host's owner of the main search path.
//
// It keeps the folder list and the current MainSearchPath snapshot together as one immutable
// state, published atomically: readers on any thread get a whole state, never half of a change,
// and are never kept waiting by one. Changes are made one at a time:
//
//   1. The new folder list is taken in order, each folder once.
//   2. The folders are scanned, reusing the entries of folders that did not change on disk.
//   3. A folder that is new on the path and cannot be used (does not exist, is not a folder, cannot
//      be read, loops) is reported as a message; then the change stops and nothing changes.
//      Problems of folders that were on the path already are kept as warnings (GetWarnings): a
//      folder the user put on the path is never dropped because it is missing for a while.
//   4. With a path definition file, the new list is saved (atomically); a failure is a message
//      and nothing changes.
//   5. The new state is published with the next generation number, and the observers are told,
//      on the calling thread, in the order of the generations. A change asked for by an observer
//      meanwhile throws RecursivePathChangeException.
//
// GetState gives the snapshot, its folder list and its warnings together, with the generation
// that the observers hear of (PathChange::generation); GetSnapshot, GetPathFolderIRIs and
// GetWarnings each read the current state anew, so two of them may come from different states.
//
//   Notification problems;
//   auto manager = MainSearchPathManager::Open(
//       {.pathDefinition = PathDefinitionFile(PathDefinitionFile::DefaultLocation()),
//        .defaultFolders = [] { return ExampleFolders(); }},
//       problems);
//   if (manager) {
//       const auto state = manager->GetState();
//       // state->path, state->folders and state->warnings belong together
//   }

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include <foundation/core/except/message_record.hpp>
#include <foundation/core/except/notification.hpp>
#include <velmora/packages/package_registry.hpp>
#include <velmora/pathinterfaces/main_search_path_manager.hpp>
#include <velmora/searchpath/cached_start.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/watched_path.hpp>

namespace Velmora::SearchPath {

namespace detail {
class MainPositions;
}

class VELMORA_SEARCHPATH_EXPORT MainSearchPathManager final
    : public PathManagement::IMainSearchPathManager,
      public IWatchedPath {
  public:
    struct Options {
        // Where the path is kept; none keeps it in memory only.
        std::optional<PathDefinitionFile> pathDefinition;
        // The path to start from when no path was saved yet (Open only); none starts empty.
        std::function<FolderList()> defaultFolders;
        // The installed packages, for GetPackagesOnPath; none means no packages.
        std::shared_ptr<const PackageRegistry::IPackageRegistry> packages;
        // Entries known from an earlier start (a path cache): the first scan keeps those whose
        // folders did not change instead of listing them again.
        std::vector<std::shared_ptr<const FolderEntry>> knownEntries;
        // Or the function that reads them once the path's folders are known, so that entries and
        // folders can share their locations.
        std::function<std::vector<std::shared_ptr<const FolderEntry>>(const FolderList&)>
            loadKnownEntries;
        // A path cache to start from and keep written (cached_start.hpp): the manager reads it
        // once the folders are known (in place of the known entries above) and offers it each
        // new state, which it writes when that is worth it. `.emplace()` takes the default cache
        // of the path definition file.
        std::optional<PathCacheUse> pathCache;
    };

    // Open: the manager of the path saved in the options' path definition file, or of the default
    // folders when none was saved yet (they are saved with the first change). Null, with the
    // reasons in `problems`, when the saved path cannot be read.
    static std::unique_ptr<MainSearchPathManager> Open(
        Options options, foundation::core::except::Notification& problems);

    // A manager of `folders` (not saved until the first change).
    MainSearchPathManager(const FolderList& folders, Options options);
    ~MainSearchPathManager() override;

    // IMainSearchPathManager
    void ApplyPathAfterAdding(const FolderRange& newPath,
                              foundation::core::except::Notification& notification) override;
    void ApplyPathAfterRemoving(const FolderRange& newPath,
                                foundation::core::except::Notification& notification) override;
    std::shared_ptr<const PathManagement::IPath> GetPath() const override;
    std::shared_ptr<const std::vector<VorlanComponents::ComponentIdentifier>> GetPackagesOnPath()
        const override;
    std::uint64_t AddPathChangeObserver(PathManagement::PathChangeObserver observer) override;
    void RemovePathChangeObserver(std::uint64_t id) override;
    std::shared_ptr<const FolderList> GetPathFolderIRIs() const override;

    // GetState: the current state, whole: the snapshot, its folder list, its warnings and its
    // generation. Never null; any thread; waits for nothing but a pointer copy.
    std::shared_ptr<const PathState> GetState() const override;
    // The current snapshot, with its host type.
    std::shared_ptr<const MainSearchPath> GetSnapshot() const;
    // The problems of the folders on the path when the current snapshot was built.
    std::shared_ptr<const ScanReport> GetWarnings() const;
    // Refresh: reads the folders again from disk and, if any changed, publishes a new state and
    // tells the observers. Returns the state published, or null when nothing changed. Throws
    // RecursivePathChangeException when called by an observer.
    std::shared_ptr<const PathState> Refresh() override;
    // RefreshFolders: reads again the folders at `locations` (or, for a file, the folder holding
    // it), even where their stamps look unchanged, and rebuilds only the main entries that hold
    // them; then publishes and tells the observers as Refresh does. A folder of the list that was
    // missing and exists now is read and takes its place. Other locations that are not on the
    // path are ignored. Returns the state published, or null when the path did not change.
    std::shared_ptr<const PathState> RefreshFolders(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& locations) override;
    // ReloadPathDefinition: takes up the folder list saved in the path definition file, as
    // another process may have changed it, without saving it back. Problems reading the file are
    // added to `problems` and change nothing; folders that cannot be used become warnings.
    // Returns the state published, or null when the path did not change.
    std::shared_ptr<const PathState> ReloadPathDefinition(
        foundation::core::except::Notification& problems) override;
    // The native path of the path definition file; empty when the path is kept in memory only.
    std::string GetPathDefinitionPath() const override {
        return m_options.pathDefinition ? m_options.pathDefinition->GetNativePath() : std::string();
    }

  protected:
    // A new path given up by the caller becomes the state's own list, uncopied.
    void ApplyGivenPath(PathManagement::PathChangeKind kind, FolderList&& newPath,
                        foundation::core::except::Notification& notification) override;

  private:
    struct State;
    // The manager of `unique`, a folder list that holds each folder once.
    struct Unique {};
    MainSearchPathManager(std::shared_ptr<const FolderList> unique, Options options, Unique);
    void Change(PathManagement::PathChangeKind kind, FolderList folders,
                foundation::core::except::Notification& notification);
    // The folders of `range`, each the first time it comes.
    FolderList UniqueFolders(const FolderRange& range);
    FolderList UniqueFolders(FolderList&& list);
    // Whether `folders` is known to hold each folder once, from the few that the current path
    // does not hold in the same places.
    bool KnownOnceEach(std::span<const foundation::storage::vfs::AbsoluteIRI> folders);
    // The table of the main folders' places on `path`, made or brought up to it. Called with the
    // change mutex held.
    const detail::MainPositions& PositionsOf(const std::shared_ptr<const MainSearchPath>& path);
    std::shared_ptr<State> MakeState(std::shared_ptr<const FolderList> folders,
                                     std::shared_ptr<const MainSearchPath> path,
                                     ScanReport warnings) const;
    std::shared_ptr<const PathState> Publish(PathManagement::PathChangeKind kind,
                                             std::shared_ptr<State> state);
    void RefuseRecursiveChange() const;
    std::shared_ptr<const State> CurrentState() const;

    Options m_options;
    EntryCache m_cache;
    // The current state. Its mutex is held only to copy or replace the pointer, never while a
    // change is being made, so readers wait for nothing but another pointer copy.
    std::shared_ptr<const State> m_state;
    mutable std::mutex m_stateMutex;
    std::mutex m_changeMutex;  // held by the change being made, observers' calls included
    std::atomic<std::thread::id> m_notifyingThread{};
    mutable std::mutex m_observersMutex;
    std::map<std::uint64_t, PathManagement::PathChangeObserver> m_observers;
    std::uint64_t m_nextObserver = 1;
    std::shared_ptr<detail::MainPositions> m_mainPositions;  // under the change mutex
    std::unique_ptr<PathCacheKeeper> m_pathCache;            // offered each state published
};

}  // namespace Velmora::SearchPath

// The messages of a new path's folders.
namespace VELMORA::searchpath {

// folderMissing: "Folder "{0}" does not exist."
class VELMORA_SEARCHPATH_EXPORT folderMissing : public resource_core::MessageRecord {
  public:
    explicit folderMissing(const ustring& folder);
};

// notAFolder: ""{0}" is not a folder."
class VELMORA_SEARCHPATH_EXPORT notAFolder : public resource_core::MessageRecord {
  public:
    explicit notAFolder(const ustring& folder);
};

// folderUnreadable: "Cannot read folder "{0}": {1}."
class VELMORA_SEARCHPATH_EXPORT folderUnreadable : public resource_core::MessageRecord {
  public:
    folderUnreadable(const ustring& folder, const std::string& reason);
};

// folderLoops: "Folder "{0}" leads back to itself through symbolic links."
class VELMORA_SEARCHPATH_EXPORT folderLoops : public resource_core::MessageRecord {
  public:
    explicit folderLoops(const ustring& folder);
};

}  // namespace VELMORA::searchpath
