#pragma once
// FolderWatcher: the inotify side of PathWatcher. It keeps a watch on each folder it is given and
// on the special folders created under them later, and turns what the kernel reports into the
// locations that changed. Folders it cannot watch (the user's watches are used up) are polled by
// their stamps instead. Used from one thread at a time.

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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
    bool Empty() const {
        return locations.empty() && !overflow && !pathDefinitionChanged && appeared.empty();
    }
};

class FolderWatcher {
  public:
    // `pathDefinition`: the native path of a file to watch too (empty for none). `warn` hears,
    // once, that watches ran out and polling took over.
    FolderWatcher(std::string pathDefinition, std::function<void(const std::string&)> warn);
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    // Open: makes the watch queue; an errno value when inotify cannot be had.
    int Open();
    // SetWarn: who hears the warning from now on; one given while no one listened is told now.
    void SetWarn(std::function<void(const std::string&)> warn);
    // Reserve: room for this many folders, so that a large path is watched without regrowing.
    void Reserve(std::size_t folders);
    // WatchTree: watches `entry`'s folder and every folder beneath it on the path; the folders
    // that were not watched before are added to `fresh` if given.
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
    // Poll: the polled folders whose stamp changed since the last look.
    void Poll(WatchedChanges& out);

    std::size_t WatchCount() const { return m_byWatch.size(); }
    std::size_t PolledCount() const { return m_polled.size(); }

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
    void Handle(const os::WatchEvent& event, WatchedChanges& out);
    void AwaitFrom(const foundation::storage::vfs::AbsoluteIRI& folder, const std::string& native);
    // Looks again for the folders awaited below `watch`, after a change there.
    void Reawait(int watch, bool gone);

    std::string m_pathDefinition;
    std::string m_pathDefinitionName;
    int m_pathDefinitionWatch = -1;
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
};

}  // namespace Velmora::SearchPath::detail
