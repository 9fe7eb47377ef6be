#include <velmora/searchpath/path_watcher.hpp>

#include <mutex>
#include <stdexcept>
#include <thread>

#include <fmt/format.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>

#include "folder_watcher.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::storage::filefolderobserver::FileFolderChangedEvent;
using foundation::storage::vfs::AbsoluteIRI;
using Clock = std::chrono::steady_clock;

// How long the thread sleeps when nothing happens; it bounds how late a stop is noticed and how
// late an event sent by another thread is taken up.
constexpr std::chrono::milliseconds kIdle{100};

void Merge(detail::WatchedChanges& into, detail::WatchedChanges& from) {
    into.locations.insert(into.locations.end(), from.locations.begin(), from.locations.end());
    into.overflow = into.overflow || from.overflow;
    into.pathDefinitionChanged = into.pathDefinitionChanged || from.pathDefinitionChanged;
    into.appeared.insert(into.appeared.end(), from.appeared.begin(), from.appeared.end());
}

}  // namespace

struct PathWatcher::Impl {
    Impl(MainSearchPathManager& m, Options o)
        : manager(m), options(std::move(o)), folders(m.GetPathDefinitionPath(), options.warn) {}

    // Watches what the current snapshot has and the last one watched had not, and stops watching
    // what left the path. A folder that entered the path through a refresh was listed before its
    // watch existed: it is listed again now, so that a file made in between is not missed
    // (watched first, listed after).
    void Rewatch() {
        const auto current = manager.GetSnapshot();
        if (current == watchedSnapshot)
            return;
        const auto& now = current->GetFolderEntries();
        std::vector<AbsoluteIRI> fresh;
        if (!watchedSnapshot) {
            for (const auto& entry : now)
                folders.WatchTree(*entry);
        } else if (RefreshedInPlace(watchedSnapshot->GetFolderEntries(), now)) {
            const auto& before = watchedSnapshot->GetFolderEntries();
            for (std::size_t i = 0; i < now.size(); ++i) {
                if (before[i] != now[i])
                    folders.WatchTree(*now[i], &fresh);
            }
        } else {
            Rewatch(watchedSnapshot->GetFolderEntries(), *current, fresh);
        }
        // Freeing a large path's lists takes a while: done when nothing is waiting to be reported.
        retired.push_back(std::move(watchedSnapshot));
        watchedSnapshot = current;
        AwaitMissing(*current);
        if (fresh.empty())
            return;
        try {
            manager.RefreshFolders(fresh);
        } catch (...) {
            if (options.failed)
                options.failed(std::current_exception());
        }
    }

    // Whether the folders stayed in their places, only some of them read anew.
    static bool RefreshedInPlace(const std::vector<std::shared_ptr<const FolderEntry>>& before,
                                 const std::vector<std::shared_ptr<const FolderEntry>>& now) {
        if (before.size() != now.size())
            return false;
        for (std::size_t i = 0; i < now.size(); ++i) {
            if (before[i] != now[i] && before[i]->GetAbsoluteIRI() != now[i]->GetAbsoluteIRI())
                return false;
        }
        return true;
    }

    void Rewatch(const std::vector<std::shared_ptr<const FolderEntry>>& before,
                 const MainSearchPath& current, std::vector<AbsoluteIRI>& fresh) {
        const auto& now = current.GetFolderEntries();
        boost::unordered_flat_set<const FolderEntry*> known;
        for (const auto& entry : before)
            known.insert(entry.get());
        boost::unordered_flat_set<const FolderEntry*> kept;
        for (const auto& entry : now) {
            kept.insert(entry.get());
            if (!known.contains(entry.get()))
                folders.WatchTree(*entry, &fresh);
        }
        const auto onPath = [&](const AbsoluteIRI& location) {
            return current.GetPathEntryFromAbsoluteIRI(
                       location, PathManagement::FilenameMatchingPolicy::Exact) != nullptr;
        };
        for (const auto& entry : before) {
            if (!kept.contains(entry.get()))
                folders.Unwatch(*entry, onPath);
        }
    }

    // Folders of the list that are not on the path do not exist (or cannot be used): each is
    // awaited, to be read when it appears. Looked at only when the folders on the path change.
    void AwaitMissing(const MainSearchPath& current) {
        const auto list = manager.GetPathFolderIRIs();
        const auto& now = current.GetFolderEntries();
        if (list == awaitedList && now.size() == awaitedCount)
            return;
        awaitedList = list;
        awaitedCount = now.size();
        if (now.size() >= list->size())
            return;
        boost::unordered_flat_set<AbsoluteIRI> present;
        for (const auto& entry : now)
            present.insert(entry->GetAbsoluteIRI());
        for (const auto& folder : *list) {
            if (!present.contains(folder))
                folders.Await(folder);
        }
    }

    // The changes of one burst: what arrives within `settle` of the last, for at most maxSettle.
    detail::WatchedChanges Gather(std::chrono::milliseconds wait) {
        detail::WatchedChanges changes;
        folders.Wait(wait, changes);
        const auto deadline = Clock::now() + options.maxSettle;
        while (!changes.Empty() && Clock::now() < deadline) {
            detail::WatchedChanges more;
            folders.Wait(options.settle, more);
            if (more.Empty())
                break;
            Merge(changes, more);
        }
        return changes;
    }

    void Apply(const detail::WatchedChanges& changes) {
        for (const auto& location : changes.locations)
            PathManagement::NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(location);
        if (changes.pathDefinitionChanged) {
            foundation::core::except::Notification problems;
            manager.ReloadPathDefinition(problems);
            if (!problems.empty() && options.warn)
                options.warn(problems.ToNativeText());
        }
        if (changes.overflow)
            manager.Refresh();
        std::vector<AbsoluteIRI> named = changes.appeared;
        {
            std::lock_guard lock(pendingMutex);
            named.insert(named.end(), pending.begin(), pending.end());
            pending.clear();
        }
        if (!named.empty())
            manager.RefreshFolders(named);
    }

    void Run() {
        auto nextPoll = Clock::now() + options.pollInterval;
        while (!stop.load()) {
            auto wait = kIdle;
            if (folders.PolledCount() > 0) {
                wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::max(nextPoll - Clock::now(), Clock::duration{})));
            }
            auto changes = Gather(retired.empty() ? wait : std::chrono::milliseconds(0));
            if (changes.Empty())
                retired.clear();
            if (folders.PolledCount() > 0 && Clock::now() >= nextPoll) {
                folders.Poll(changes);
                nextPoll = Clock::now() + options.pollInterval;
            }
            try {
                Apply(changes);
            } catch (...) {
                if (options.failed)
                    options.failed(std::current_exception());
            }
            Rewatch();
            owner->m_watched.store(folders.WatchCount());
            owner->m_polled.store(folders.PolledCount());
        }
    }

    PathWatcher* owner = nullptr;
    MainSearchPathManager& manager;
    Options options;
    detail::FolderWatcher folders;
    std::shared_ptr<const MainSearchPath> watchedSnapshot;
    std::vector<std::shared_ptr<const MainSearchPath>> retired;
    std::shared_ptr<const MainSearchPathManager::FolderList> awaitedList;
    std::size_t awaitedCount = 0;
    std::mutex pendingMutex;
    std::vector<AbsoluteIRI> pending;
    foundation::messaging::Subscription subscription;
    std::atomic<bool> stop{false};
    std::thread thread;
};

PathWatcher::PathWatcher(MainSearchPathManager& manager, Options options)
    : m_impl(std::make_unique<Impl>(manager, std::move(options))) {
    Impl& impl = *m_impl;
    impl.owner = this;
    if (const int err = impl.folders.Open(); err != 0) {
        throw std::runtime_error(
            fmt::format("cannot watch folders for changes: {}", os::ErrorText(err)));
    }
    impl.subscription =
        foundation::messaging::createLocalEventMgr(foundation::messaging::SessionEmId)
            ->subscribe<FileFolderChangedEvent>([&impl](const FileFolderChangedEvent& event) {
                try {
                    AbsoluteIRI location(event.getLocation());
                    std::lock_guard lock(impl.pendingMutex);
                    impl.pending.push_back(std::move(location));
                } catch (const foundation::storage::vfs::InvalidIRIException&) {
                    // Not a location of ours.
                }
            });
    impl.Rewatch();
    m_watched.store(impl.folders.WatchCount());
    m_polled.store(impl.folders.PolledCount());
    impl.thread = std::thread([&impl] { impl.Run(); });
}

PathWatcher::~PathWatcher() {
    m_impl->stop.store(true);
    m_impl->thread.join();
    m_impl->subscription.reset();
}

}  // namespace Velmora::SearchPath
