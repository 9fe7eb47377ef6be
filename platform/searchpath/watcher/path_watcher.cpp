#include <velmora/searchpath/path_watcher.hpp>

#include <algorithm>
#include <condition_variable>
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
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include "folder_watcher.hpp"
#include "sync_point.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::storage::filefolderobserver::FileFolderChangedEvent;
using foundation::storage::vfs::AbsoluteIRI;
using Clock = std::chrono::steady_clock;

// How long the thread sleeps when nothing happens; it bounds how late a stop is noticed and how
// late an event sent by another thread is taken up.
constexpr std::chrono::milliseconds kIdle{100};

std::size_t CountFolders(const std::vector<std::shared_ptr<const FolderEntry>>& entries) {
    std::size_t count = entries.size();
    for (const auto& entry : entries)
        count += CountFolders(entry->SubEntries());
    return count;
}

void Merge(detail::WatchedChanges& into, detail::WatchedChanges& from) {
    into.locations.insert(into.locations.end(), from.locations.begin(), from.locations.end());
    into.overflow = into.overflow || from.overflow;
    into.pathDefinitionChanged = into.pathDefinitionChanged || from.pathDefinitionChanged;
    into.appeared.insert(into.appeared.end(), from.appeared.begin(), from.appeared.end());
    into.synced = std::max(into.synced, from.synced);
}

}  // namespace

IWatchedPath::~IWatchedPath() = default;

struct EarlyWatches::Impl {
    explicit Impl(std::string pathDefinition)
        : folders(std::make_unique<detail::FolderWatcher>(std::move(pathDefinition), nullptr)) {}
    ~Impl() { Finish(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    void Finish() {
        if (thread.joinable())
            thread.join();
    }

    std::unique_ptr<detail::FolderWatcher> folders;
    std::vector<std::shared_ptr<const FolderEntry>> known;
    int openError = 0;
    std::exception_ptr failure;
    std::thread thread;
};

EarlyWatches::EarlyWatches(std::string pathDefinition,
                           std::vector<std::shared_ptr<const FolderEntry>> known)
    : m_impl(std::make_unique<Impl>(std::move(pathDefinition))) {
    Impl& impl = *m_impl;
    impl.known = std::move(known);
    impl.openError = impl.folders->Open();
    if (impl.openError != 0 || impl.known.empty())
        return;
    impl.thread = std::thread([&impl] {
        try {
            impl.folders->Reserve(CountFolders(impl.known));
            for (const auto& entry : impl.known)
                impl.folders->WatchTree(*entry);
        } catch (...) {
            impl.failure = std::current_exception();
        }
    });
}

EarlyWatches::~EarlyWatches() = default;
EarlyWatches::EarlyWatches(EarlyWatches&&) noexcept = default;
EarlyWatches& EarlyWatches::operator=(EarlyWatches&&) noexcept = default;

struct PathWatcher::Impl {
    Impl(IWatchedPath& m, Options o, EarlyWatches::Impl& early)
        : manager(m),
          options(std::move(o)),
          folders(std::move(early.folders)),
          earlyKnown(std::move(early.known)) {
        folders->SetWarn(options.warn);
    }

    // Watches what the current snapshot has and the last one watched had not, and stops watching
    // what left the path. A folder that entered the path through a refresh was listed before its
    // watch existed: it is listed again now, so that a file made in between is not missed
    // (watched first, listed after).
    void Rewatch() {
        const auto state = manager.GetState();
        const auto& current = state->path;
        if (current == watchedSnapshot)
            return;
        const auto& now = current->GetFolderEntries();
        std::vector<AbsoluteIRI> fresh;
        if (!watchedSnapshot) {
            // All of them were listed before they were watched: CatchUp covers that, and no
            // folder is listed twice at the start.
            if (earlyKnown.empty()) {
                folders->Reserve(CountFolders(now));
                for (const auto& entry : now)
                    folders->WatchTree(*entry);
            } else {
                Rewatch(earlyKnown, *current, fresh);
                fresh.clear();
                earlyKnown.clear();
            }
        } else if (RefreshedInPlace(watchedSnapshot->GetFolderEntries(), now)) {
            const auto& before = watchedSnapshot->GetFolderEntries();
            for (std::size_t i = 0; i < now.size(); ++i) {
                if (before[i] != now[i])
                    folders->WatchTree(*now[i], &fresh);
            }
        } else {
            Rewatch(watchedSnapshot->GetFolderEntries(), *current, fresh);
        }
        // Freeing a large path's lists takes a while: done when nothing is waiting to be reported.
        retired.push_back(std::move(watchedSnapshot));
        watchedSnapshot = current;
        AwaitMissing(*state);
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
        // The entries that the two share at the front and at the back stay watched: a change of
        // a long path touches a few, and only those between the runs are looked at.
        const auto [front, back] = SharedRuns(before, now);
        boost::unordered_flat_set<const FolderEntry*> known(before.size() - front - back);
        for (std::size_t i = front; i < before.size() - back; ++i)
            known.insert(before[i].get());
        boost::unordered_flat_set<const FolderEntry*> kept(now.size() - front - back);
        // A folder that leaves one entry is most often in the entry read anew in its place: looked
        // for there first, and in the whole path's index (built on first use) only if not.
        boost::unordered_flat_set<AbsoluteIRI> inNew;
        std::vector<const FolderEntry*> below;
        for (std::size_t i = front; i < now.size() - back; ++i) {
            const auto& entry = now[i];
            kept.insert(entry.get());
            if (known.contains(entry.get()))
                continue;
            folders->WatchTree(*entry, &fresh);
            for (below.push_back(entry.get()); !below.empty();) {
                const FolderEntry* folder = below.back();
                below.pop_back();
                inNew.insert(folder->GetAbsoluteIRI());
                for (const auto& sub : folder->SubEntries())
                    below.push_back(sub.get());
            }
        }
        const auto onPath = [&](const AbsoluteIRI& location) {
            return inNew.contains(location) ||
                   current.GetPathEntryFromAbsoluteIRI(
                       location, PathManagement::FilenameMatchingPolicy::Exact) != nullptr;
        };
        for (std::size_t i = front; i < before.size() - back; ++i) {
            if (!kept.contains(before[i].get()))
                folders->Unwatch(*before[i], onPath);
        }
    }

    // Folders of the list that are not on the path do not exist (or cannot be used): each is
    // awaited, to be read when it appears. Looked at only when the folders on the path change.
    void AwaitMissing(const PathState& state) {
        const auto& list = state.folders;
        const auto& now = state.path->GetFolderEntries();
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
                folders->Await(folder);
        }
    }

    // The changes of one burst: what arrives within `settle` of the last, for at most maxSettle.
    detail::WatchedChanges Gather(std::chrono::milliseconds wait) {
        detail::WatchedChanges changes;
        folders->Wait(wait, changes);
        const auto deadline = Clock::now() + options.maxSettle;
        // A sync ends the burst at once: someone waits for it, and every event queued before it
        // is in. The rest of a burst, if it goes on, is gathered in the next round.
        while (!changes.Empty() && changes.synced == 0 && Clock::now() < deadline) {
            detail::WatchedChanges more;
            folders->Wait(options.settle, more);
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

    // A folder changed between the start's scan and its watch is told by no event, but by its
    // stamp: the folders of the first snapshot watched are compared with the disk on a thread of
    // their own, so that no event waits for that, and those that changed are read again.
    void CatchUp(std::shared_ptr<const MainSearchPath> start) {
        std::vector<AbsoluteIRI> changed;
        for (const auto& entry : start->GetFolderEntries()) {
            if (stop.load())
                return;
            if (!FolderScanner::Unchanged(*entry))
                changed.push_back(entry->GetAbsoluteIRI());
        }
        std::lock_guard lock(pendingMutex);
        pending.insert(pending.end(), changed.begin(), changed.end());
        caughtUp.store(true);
    }

    // The latest ticket of WaitUntilSettled not served yet; 0 for none.
    std::uint64_t SettleAsked() {
        std::lock_guard lock(settleMutex);
        return settleAsked > settleDone ? settleAsked : 0;
    }
    void Settle(std::uint64_t asked) {
        std::lock_guard lock(settleMutex);
        settleDone = asked;
        settled.notify_all();
    }

    void Run() {
        auto nextPoll = Clock::now() + options.pollInterval;
        while (!stop.load()) {
            // A round that starts after a caller of WaitUntilSettled asked reads every event
            // queued before it asked, and the catch-up's findings once they are in.
            const bool caughtUpBefore = caughtUp.load();
            const std::uint64_t asked = SettleAsked();
            auto wait = kIdle;
            if (folders->Polling()) {
                wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::max(nextPoll - Clock::now(), Clock::duration{})));
            }
            // Asked to settle, the round reads what is queued and goes on, unless the catch-up is
            // still to come in: then it looks again shortly.
            if (asked != 0)
                wait =
                    caughtUpBefore ? std::chrono::milliseconds(0) : std::min(wait, options.settle);
            if (!retired.empty())
                wait = std::chrono::milliseconds(0);
            auto changes = Gather(wait);
            if (changes.Empty())
                retired.clear();
            if (folders->Polling() && (asked != 0 || Clock::now() >= nextPoll)) {
                folders->Poll(changes);
                nextPoll = Clock::now() + options.pollInterval;
            }
            try {
                Apply(changes);
            } catch (...) {
                if (options.failed)
                    options.failed(std::current_exception());
            }
            Rewatch();
            owner->m_watched.store(folders->WatchCount());
            owner->m_polled.store(folders->PolledCount());
            polling.store(folders->Polling());
            if (sync)
                sync->Passed(changes.synced, changes.overflow);
            if (asked != 0 && caughtUpBefore)
                Settle(asked);
        }
    }

    PathWatcher* owner = nullptr;
    IWatchedPath& manager;
    Options options;
    std::unique_ptr<detail::FolderWatcher> folders;
    // The entries the early watches were set up from, until the first snapshot is watched.
    std::vector<std::shared_ptr<const FolderEntry>> earlyKnown;
    std::shared_ptr<const MainSearchPath> watchedSnapshot;
    std::vector<std::shared_ptr<const MainSearchPath>> retired;
    std::shared_ptr<const std::vector<AbsoluteIRI>> awaitedList;
    std::size_t awaitedCount = 0;
    std::mutex pendingMutex;
    std::vector<AbsoluteIRI> pending;
    std::atomic<bool> caughtUp{false};  // CatchUp's findings are in `pending`
    // The tickets of WaitUntilSettled's callers, and the latest one served.
    std::mutex settleMutex;
    std::condition_variable settled;
    std::uint64_t settleAsked = 0;
    std::uint64_t settleDone = 0;
    foundation::messaging::Subscription subscription;
    std::atomic<bool> stop{false};
    std::atomic<bool> polling{false};
    std::unique_ptr<detail::SyncPoint> sync;  // none when Sync cannot be used
    std::thread thread;
    std::thread catchUp;
};

PathWatcher::PathWatcher(IWatchedPath& manager, Options options)
    : PathWatcher(manager, std::move(options), EarlyWatches(manager.GetPathDefinitionPath(), {})) {}

PathWatcher::PathWatcher(IWatchedPath& manager, Options options, EarlyWatches early) {
    if (!early.m_impl)
        throw std::invalid_argument("PathWatcher: the early watches were taken over already");
    early.m_impl->Finish();
    if (const int err = early.m_impl->openError; err != 0) {
        throw std::runtime_error(
            fmt::format("cannot watch folders for changes: {}", os::ErrorText(err)));
    }
    if (early.m_impl->failure)
        std::rethrow_exception(early.m_impl->failure);
    m_impl = std::make_unique<Impl>(manager, std::move(options), *early.m_impl);
    Impl& impl = *m_impl;
    impl.owner = this;
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
    if (!impl.options.syncFolder.empty()) {
        auto sync = std::make_unique<detail::SyncPoint>(impl.options.syncFolder);
        if (impl.folders->WatchSyncFolder(sync->Folder(), sync->Prefix()) == 0)
            impl.sync = std::move(sync);
    }
    impl.Rewatch();
    impl.polling.store(impl.folders->Polling());
    m_watched.store(impl.folders->WatchCount());
    m_polled.store(impl.folders->PolledCount());
    impl.thread = std::thread([&impl] { impl.Run(); });
    impl.catchUp = std::thread([&impl, start = impl.watchedSnapshot] { impl.CatchUp(start); });
}

PathWatcher::SyncResult PathWatcher::Sync(std::chrono::milliseconds timeout) {
    if (!m_impl->sync || m_impl->polling.load())
        return SyncResult::Revalidate;
    return m_impl->sync->Await(timeout) == detail::SyncPoint::Outcome::Passed
               ? SyncResult::Synced
               : SyncResult::Revalidate;
}

std::shared_ptr<const PathState> PathWatcher::WaitUntilSettled(std::chrono::milliseconds timeout) {
    Impl& impl = *m_impl;
    if (std::this_thread::get_id() == impl.thread.get_id())
        throw std::logic_error("PathWatcher::WaitUntilSettled: called on the watcher's own thread");
    std::unique_lock lock(impl.settleMutex);
    const std::uint64_t ticket = ++impl.settleAsked;
    if (!impl.settled.wait_for(lock, timeout, [&] { return impl.settleDone >= ticket; }))
        return nullptr;
    lock.unlock();
    return impl.manager.GetState();
}

PathWatcher::~PathWatcher() {
    m_impl->stop.store(true);
    m_impl->catchUp.join();
    m_impl->thread.join();
    m_impl->subscription.reset();
}

}  // namespace Velmora::SearchPath
