#pragma once
// PathWatcher: keeps a MainSearchPathManager's path fresh as its folders change on disk.
//
// The watcher knows the manager only as an IWatchedPath (watched_path.hpp): it sits below the
// manager, which implements that interface.
//
// It watches, through inotify, every folder of the path and its special folders, and the path
// definition file. Each change it sees is sent as FileFolderChangedEvents of the current session,
// up from the changed item to the path entry that holds it
// (NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges); it listens to those events itself,
// gathers a burst for a short settle time, and has the manager read again just the entries they
// name. The manager then publishes a new snapshot and tells its observers, on the watcher's
// thread. Events of the session sent by others are taken up the same way.
//
// - A special folder made under a watched one is watched before it is listed, so that nothing
//   made inside it meanwhile is missed.
// - When the kernel's queue overflows and events are lost, every folder is revalidated by its
//   stamp (MainSearchPathManager::Refresh).
// - Folders are followed by their names: a folder of the path renamed away, removed, replaced by
//   another or by a symbolic link, or a link re-pointed, is let go, and what has the name now is
//   read and watched.
// - When the user's inotify watches run out, what is left unwatched (the path definition file
//   included) is polled every `pollInterval`, with one warning; the rest stays watched. When the
//   user's inotify instances run out, everything is polled, with one warning.
// - When another process saves a new path in the path definition file, the manager takes it up.
//   The file is followed through a symbolic link (a change of the link or of its target), and
//   from its nearest existing folder while its folder is not made yet.
//
//   MainSearchPathManager manager(folders, options);
//   manager.AddPathChangeObserver([](const PathChange& c) { Show(c); });
//   PathWatcher watcher(manager, {});
//   // ... Show runs on the watcher's thread while folders change ...
//
// The manager (the IWatchedPath) must outlive the watcher. Construction returns once the watches
// are in place.
//
// A large path's watches take a while to set up. EarlyWatches sets them up on a thread of its own
// while the manager is still being opened, from the entries a path cache knows; the watcher made
// with it takes them over and adds only what the cache did not know:
//
//   auto known = LoadPathCache(cacheFile, root);
//   EarlyWatches early(pathDefinitionFile, known);
//   auto manager = MainSearchPathManager::Open({..., .knownEntries = known}, problems);
//   PathWatcher watcher(*manager, {}, std::move(early));
//
// Either way, once its watches are in place, the watcher compares the folders' stamps with the
// disk once more, on a thread of its own, and reads again those that changed: a change made
// between the start's scan and a folder's watch is told by no event.
//
// Each refresh the watcher makes is published by the manager, whose observers hear of it, with its
// generation, on the watcher's thread. A thread that changed files itself and wants the path to
// show them waits for the watcher to take them up:
//
//   std::ofstream(folder / "area.vl") << "...";
//   const auto state = watcher.WaitUntilSettled(std::chrono::seconds(1));
//   if (state) { /* state->path holds area.vl */ }

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/watched_path.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT EarlyWatches {
  public:
    // Starts watching `pathDefinition` (a native path; empty for none) and the folders of `known`
    // and of their sub-entries.
    EarlyWatches(std::string pathDefinition, std::vector<std::shared_ptr<const FolderEntry>> known);
    ~EarlyWatches();
    EarlyWatches(EarlyWatches&&) noexcept;
    EarlyWatches& operator=(EarlyWatches&&) noexcept;

  private:
    friend class PathWatcher;
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

class VELMORA_SEARCHPATH_EXPORT PathWatcher {
  public:
    struct Options {
        // How long the watcher waits for a burst of changes to end before refreshing: short
        // enough that a refresh is done, as a rule, before a command started just after the
        // change asks for the path.
        std::chrono::milliseconds settle{1};
        // The longest a burst is gathered before a refresh happens anyway.
        std::chrono::milliseconds maxSettle{50};
        // How often folders that could not be watched are polled.
        std::chrono::milliseconds pollInterval{1000};
        // Hears warnings (watches used up, a path definition file that cannot be read).
        std::function<void(const std::string&)> warn{};
        // Hears an exception that a refresh or an observer threw; the watcher goes on.
        std::function<void(std::exception_ptr)> failed{};
        // A folder of no path, writable by the process, in which Sync makes its marks; none
        // leaves Sync unusable.
        std::string syncFolder{};
    };

    // What Sync found.
    enum class SyncResult {
        Synced,     // every change made before the call is taken in and published
        Revalidate  // events were lost, folders are polled, or no mark could be made: the
                    // caller must read the path again itself to be sure
    };

    // Throws std::runtime_error when inotify cannot be used at all (but not when the user's
    // instances are used up: everything is polled then).
    PathWatcher(IWatchedPath& manager, Options options);
    // Takes over `early`'s watches, which must be of the manager's path definition file. Waits for
    // them to be in place.
    PathWatcher(IWatchedPath& manager, Options options, EarlyWatches early);
    ~PathWatcher();
    PathWatcher(const PathWatcher&) = delete;
    PathWatcher& operator=(const PathWatcher&) = delete;

    // Sync: waits, at most `timeout`, until the watcher has taken in every change on disk (and
    // of the path definition file) completed before the call, has read again the folders
    // concerned and published the result. It makes a file in the options' syncFolder, watched by
    // the same queue as the path, and waits for its event. Any thread.
    SyncResult Sync(std::chrono::milliseconds timeout);
    // WaitUntilSettled: waits until the watcher has taken up every change made on disk before the
    // call (in the folders of the path and their special folders, watched or polled, and to the
    // path definition file), every change event sent before it, and the stamps compared at the
    // start; and until the refreshes these call for are published. Returns the manager's state
    // then, or null when `timeout` ran out first.
    //
    // Blocks for the rest of the watcher's round under way (it notices the call within 0.1 s),
    // then for one round: the burst's settle time (at most Options::maxSettle) and the refreshes
    // it makes, which read again only the folders that changed. Not from an observer of the
    // manager: the watcher's refreshes wait for the change being told, so it would time out; on
    // the watcher's own thread it throws std::logic_error at once.
    std::shared_ptr<const PathState> WaitUntilSettled(std::chrono::milliseconds timeout);

    // The folders watched through inotify and those polled instead.
    std::size_t WatchedFolderCount() const noexcept { return m_watched.load(); }
    std::size_t PolledFolderCount() const noexcept { return m_polled.load(); }

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    std::atomic<std::size_t> m_watched{0};
    std::atomic<std::size_t> m_polled{0};
};

}  // namespace Velmora::SearchPath
