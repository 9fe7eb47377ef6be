#pragma once
// FolderWatcher: the inotify side of PathWatcher. It keeps a watch on each folder it is given and
// on the special folders created under them later, and turns what the kernel reports into the
// locations that changed. Folders it cannot watch (the user's watches or inotify instances are
// used up) are polled by their stamps instead. Folders are followed by their names: one that is
// renamed away or removed stops being watched, and whatever takes its name is read. Used from one
// thread at a time.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/container_hash/hash.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/folder_entry.hpp>

namespace Velmora::SearchPath::detail {

struct WatchedChanges {
    std::vector<foundation::storage::vfs::AbsoluteIRI> locations;  // in the order seen
    bool overflow = false;  // the kernel dropped events: anything may have changed
    bool pathDefinitionChanged = false;
    std::vector<foundation::storage::vfs::AbsoluteIRI> appeared;  // awaited folders that exist now
    std::uint64_t synced = 0;  // the last sync file seen (sync_point.hpp); 0 for none
    bool Empty() const {
        return locations.empty() && !overflow && !pathDefinitionChanged && appeared.empty() &&
               synced == 0;
    }
};

class FolderWatcher {
  public:
    // `pathDefinition`: the native path of a file to watch too (empty for none), followed through
    // a symbolic link to its target, and from its nearest existing folder while its own folder is
    // not there. `warn` hears, once, that watches or inotify instances ran out and polling took
    // over.
    FolderWatcher(std::string pathDefinition, std::function<void(const std::string&)> warn);
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    // Open: makes the watch queue; an errno value when inotify cannot be had. When the user's
    // inotify instances are used up, everything is polled instead and Open succeeds.
    int Open();
    // SetWarn: who hears the warning from now on; one given while no one listened is told now.
    void SetWarn(std::function<void(const std::string&)> warn);
    // Reserve: room for this many folders, so that a large path is watched without regrowing.
    void Reserve(std::size_t folders);
    // WatchTree: watches `entry`'s folder, a folder of the path, and every folder beneath it on
    // the path; the folders that were not watched before are added to `fresh` if given.
    void WatchTree(const FolderEntry& entry,
                   std::vector<foundation::storage::vfs::AbsoluteIRI>* fresh = nullptr);
    // Unwatch: stops watching `entry`'s folder and those beneath it on the path, but for the
    // folders for which `stays` holds.
    void Unwatch(const FolderEntry& entry,
                 const std::function<bool(const foundation::storage::vfs::AbsoluteIRI&)>& stays);
    // Await: `folder` is on the path but does not exist. Its nearest existing parent is watched,
    // and then the next folder down once that is made, until `folder` itself is: then Wait reports
    // it as appeared. Reported at once if it exists by the time its parent is watched.
    void Await(const foundation::storage::vfs::AbsoluteIRI& folder);
    // Wait: waits at most `timeout` for changes and adds them to `out`.
    void Wait(std::chrono::milliseconds timeout, WatchedChanges& out);
    // WatchSyncFolder: watches `native`, a folder of no path, for the sync files whose names start
    // with `prefix`; Wait reports the ticket of the last one made. An errno value when it cannot
    // be watched through the queue (EEXIST when it is a folder of the path).
    int WatchSyncFolder(const std::string& native, std::string prefix);
    // Poll: the polled folders whose stamp changed since the last look.
    void Poll(WatchedChanges& out);

    std::size_t WatchCount() const { return m_byWatch.size(); }
    std::size_t PolledCount() const { return m_polled.size(); }
    // Polling: whether anything (a folder, an awaited folder, the path definition file) is
    // polled, so that Poll must be called.
    bool Polling() const {
        return !m_polled.empty() || m_definitionPolled || !m_awaitPolled.empty();
    }

  private:
    struct Watched {
        foundation::storage::vfs::AbsoluteIRI location;
        std::string native;
    };
    struct Polled {
        foundation::storage::vfs::AbsoluteIRI location;
        os::FileStatus status;
    };
    // Watch: true when the folder is newly watched (or polled), false when it was already or is
    // no folder.
    bool Watch(const foundation::storage::vfs::AbsoluteIRI& location, const std::string& native);
    void WatchNewFolder(const foundation::storage::vfs::AbsoluteIRI& location,
                        const std::string& native, int depth);
    void Forget(const std::string& native);
    // WatchEntry: `native` is the entry's folder as the OS names it.
    void WatchEntry(const FolderEntry& entry, const std::string& native,
                    std::vector<foundation::storage::vfs::AbsoluteIRI>* fresh);
    void UnwatchEntry(
        const FolderEntry& entry,
        const std::function<bool(const foundation::storage::vfs::AbsoluteIRI&)>& stays);
    // FollowName: watches the folder that holds a folder of the path for that folder's name, so
    // that another folder or link taking the name (a rename, `ln -sfn`) is seen.
    void FollowName(const foundation::storage::vfs::AbsoluteIRI& location,
                    const std::string& native);
    void UnfollowName(const std::string& native);
    // Refollow: the names followed through `watch`, whose folder went away, are followed again
    // from their folders' present names; their locations go to `out` if given.
    void Refollow(int watch, WatchedChanges* out);
    // Release: removes `watch` from the kernel unless a folder, an awaited folder or the path
    // definition file still needs it (the kernel gives one watch per folder, whoever asks).
    void Release(int watch);
    void WarnOnce(std::string warning);
    // FollowPathDefinition: watches the folders that lead to the path definition file (and to
    // its target, if it is a symbolic link) as they are now; true when they differ from before.
    bool FollowPathDefinition();
    void Handle(const os::WatchEvent& event, WatchedChanges& out);
    void AwaitFrom(const foundation::storage::vfs::AbsoluteIRI& folder, const std::string& native);
    // Looks again for the folders awaited below `watch`, after a change there.
    void Reawait(int watch, bool gone);

    std::string m_pathDefinition;
    // The watched folders that lead to the path definition file, and the name looked for in each;
    // `direct` when that name is the file's own (or its link's, or its target's).
    struct DefinitionWatch {
        int watch;
        std::string name;
        bool direct;
    };
    std::vector<DefinitionWatch> m_definitionWatches;
    bool m_refollow = false;
    // Polled instead when it cannot be watched.
    bool m_definitionPolled = false;
    os::FileStatus m_definitionStatus;
    std::function<void(const std::string&)> m_warn;
    std::string m_unheard;  // the warning given while no one listened
    int m_queue = -1;
    boost::unordered_flat_map<int, Watched> m_byWatch;
    boost::unordered_flat_map<std::string, int> m_byNative;
    boost::unordered_flat_map<std::string, Polled> m_polled;
    bool m_warned = false;
    std::vector<os::WatchEvent> m_events;
    // The folders awaited, by the watch on their nearest existing parent; and those found.
    struct Awaited {
        foundation::storage::vfs::AbsoluteIRI location;
        std::string native;
    };
    boost::unordered_flat_map<int, std::vector<Awaited>> m_awaiting;
    boost::unordered_flat_map<std::string, int> m_awaitedAt;
    std::vector<foundation::storage::vfs::AbsoluteIRI> m_appeared;
    // The names of the path's folders, by the watch on the folder holding them; the watch of
    // each such folder (by its native path), and the folder that each name is followed in. The
    // holding folder's native path is shared by its names: a path's folders mostly share a few.
    struct Named {
        foundation::storage::vfs::AbsoluteIRI location;
        std::shared_ptr<const std::string> folder;
        std::string name;
        std::string Native() const;
    };
    struct Parent {
        int watch;
        std::shared_ptr<const std::string> folder;
    };
    // Looked up by a view of a folder's path, so that finding a known parent copies nothing.
    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const noexcept {
            return boost::hash<std::string_view>()(path);
        }
    };
    boost::unordered_flat_map<int, std::vector<Named>> m_named;
    boost::unordered_flat_map<std::string, Parent, PathHash, std::equal_to<>> m_parents;
    boost::unordered_flat_map<std::string, int> m_namedAt;
    int m_syncWatch = -1;
    std::string m_syncPrefix;
    // Awaited folders whose parents could not be watched: looked for at each poll.
    std::vector<Awaited> m_awaitPolled;
};

}  // namespace Velmora::SearchPath::detail
