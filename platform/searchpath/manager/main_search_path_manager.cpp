#include <velmora/searchpath/main_search_path_manager.hpp>

#include <exception>
#include <iterator>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include <tbb/task_arena.h>
#include <tbb/task_group.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include "main_positions.hpp"
#include "manager_state.hpp"
#include "path_rebase.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using PathManagement::PathChange;
using PathManagement::PathChangeKind;
using VorlanComponents::ComponentIdentifier;
using FolderList = std::vector<AbsoluteIRI>;
using FolderSet = boost::unordered_flat_set<AbsoluteIRI>;

// How often a change is made again on the saved path when it keeps being edited meanwhile.
constexpr int kSaveAttempts = 8;

// Folders compared by what they name but held by where they are, so that a set of a whole path's
// folders costs no count of references.
struct FolderAtHash {
    std::size_t operator()(const AbsoluteIRI* folder) const noexcept { return folder->hashValue(); }
};
struct FolderAtEqual {
    bool operator()(const AbsoluteIRI* a, const AbsoluteIRI* b) const noexcept { return *a == *b; }
};

// Each folder the first time it comes, in order.
FolderList FirstOccurrences(std::span<const AbsoluteIRI> range) {
    FolderList folders;
    boost::unordered_flat_set<const AbsoluteIRI*, FolderAtHash, FolderAtEqual> seen;
    folders.reserve(range.size());
    seen.reserve(range.size());
    // Each folder's text lies elsewhere in memory: asked for a few folders ahead, so that the
    // waits for them overlap.
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < range.size(); ++i) {
        if (i + kAhead < range.size())
            __builtin_prefetch(&range[i + kAhead].toString());
        if (seen.insert(&range[i]).second)
            folders.push_back(range[i]);
    }
    return folders;
}

FolderList FirstOccurrences(const MainSearchPathManager::FolderRange& range) {
    if (const auto& array = range.Contiguous())
        return FirstOccurrences(*array);
    FolderList folders;
    boost::unordered_flat_set<const AbsoluteIRI*, FolderAtHash, FolderAtEqual> seen;
    for (const AbsoluteIRI& folder : range) {
        if (seen.insert(&folder).second)
            folders.push_back(folder);
    }
    return folders;
}

// Whether `folders` holds each folder once, told from the folders that `before`, a list that holds
// each once, has not in the same places: those between the runs that the two share at the front
// and at the back. `placeOf` gives a folder's place on `before`. Each folder between is looked up
// rather than the whole list: none when they are too many for that to pay.
std::optional<bool> HoldsEachOnce(std::span<const AbsoluteIRI> folders, const FolderList& before,
                                  const detail::MainPositions& placeOf) {
    constexpr std::size_t kMostBetween = 4096;
    const auto [front, back] = SharedRuns(folders, before);
    const std::size_t end = folders.size() - back;
    if (end - front > kMostBetween)
        return std::nullopt;
    boost::unordered_flat_set<const AbsoluteIRI*, FolderAtHash, FolderAtEqual> between;
    for (std::size_t i = front; i < end; ++i) {
        if (!between.insert(&folders[i]).second)
            return false;
        // A folder of the runs stands there already.
        if (const auto place = placeOf.At(folders[i]);
            place && (*place < front || *place >= before.size() - back)) {
            return false;
        }
    }
    return true;
}

// The entries of a change of the path, in two steps: those of the folders that the change moved or
// brought are read first, so that a folder that cannot be used refuses the change before anything
// is saved; the list of them all is put together after.
struct ChangedEntries {
    // The entries of the old path kept in their places at the front and at the back.
    std::size_t front = 0;
    std::size_t back = 0;
    // The entries of the folders between those runs (of all the folders, when the old path had
    // folders without entries).
    std::vector<std::shared_ptr<const FolderEntry>> between;
};

// The entries of the folders between the runs that `folders` shares with `before`, the folders of
// the path whose entries are `entries`. Each folder that stays keeps its entry: it was read at this
// start or kept fresh since, and reading it again would make a change of one folder cost the whole
// path. Only the folders new to the path are listed. Where each folder of the path has an entry,
// folders and entries stand in the same places: the runs at the front and the back take theirs
// without a look at them.
ChangedEntries ReadChangedEntries(const FolderList& folders, const FolderList& before,
                                  const std::vector<std::shared_ptr<const FolderEntry>>& entries,
                                  ScanReport& report) {
    if (entries.size() != before.size()) {
        return {0, 0,
                MainSearchPath::RevalidateEntries(folders, entries, report, nullptr, entries.size(),
                                                  true)};
    }
    const SharedRunLengths runs = SharedRuns(folders, before);
    const auto between = [&](const auto& list) {
        return std::vector(list.begin() + static_cast<std::ptrdiff_t>(runs.front),
                           list.end() - static_cast<std::ptrdiff_t>(runs.back));
    };
    return {runs.front, runs.back,
            MainSearchPath::RevalidateEntries(between(folders), between(entries), report, nullptr,
                                              entries.size() - runs.front - runs.back, true)};
}

// The entries of the changed path: the runs of `entries` that it kept, and those read between.
std::vector<std::shared_ptr<const FolderEntry>> AllEntries(
    ChangedEntries changed, const std::vector<std::shared_ptr<const FolderEntry>>& entries) {
    std::vector<std::shared_ptr<const FolderEntry>> all;
    all.reserve(changed.front + changed.between.size() + changed.back);
    // The entries lie all over the heap, their counts beside them: each is asked for a few entries
    // ahead, so that the waits for them overlap.
    constexpr std::size_t kAhead = 16;
    const auto take = [&](std::size_t from, std::size_t to) {
        for (std::size_t i = from; i < to; ++i) {
            if (i + kAhead < to)
                __builtin_prefetch(entries[i + kAhead].get());
            all.push_back(entries[i]);
        }
    };
    take(0, changed.front);
    std::move(changed.between.begin(), changed.between.end(), std::back_inserter(all));
    take(entries.size() - changed.back, entries.size());
    return all;
}

ustring DisplayText(const AbsoluteIRI& folder) {
    try {
        return foundation::storage::vfs::fromAbsoluteIRI(folder);
    } catch (const foundation::storage::vfs::Exception&) {
        return folder.toString();
    }
}

// The message for a folder that cannot go on the path; none for a problem that is no reason to
// refuse it.
std::optional<resource_core::MessageRecord> MessageFor(const ScanProblem& problem) {
    const ustring folder = DisplayText(problem.location);
    switch (problem.kind) {
        case ScanProblem::Kind::Missing:
            return VELMORA::searchpath::folderMissing(folder);
        case ScanProblem::Kind::NotAFolder:
            return VELMORA::searchpath::notAFolder(folder);
        case ScanProblem::Kind::Unreadable:
            return VELMORA::searchpath::folderUnreadable(folder,
                                                         os::ErrorText(problem.errorNumber));
        case ScanProblem::Kind::SymlinkLoop:
            return VELMORA::searchpath::folderLoops(folder);
        case ScanProblem::Kind::Duplicate:
            break;
    }
    return std::nullopt;
}

// A package is on the path when it has folders for the path and all of them are on it.
std::vector<ComponentIdentifier> PackagesOn(const PackageRegistry::IPackageRegistry& registry,
                                            const FolderList& folders) {
    const FolderSet onPath(folders.begin(), folders.end());
    std::vector<ComponentIdentifier> packages;
    for (const auto& package : registry.GetPackages()) {
        bool any = false;
        bool all = true;
        for (const auto& record : *package->GetFolders()) {
            if (record.tags.contains(PackageRegistry::kSearchPathTag)) {
                any = true;
                all = all && onPath.contains(record.folder);
            }
        }
        if (any && all)
            packages.push_back(package->GetIdentifier());
    }
    return packages;
}

// The path's main entries, shared with it rather than copied: a path of many folders would cost a
// counted reference each.
std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>> EntriesOf(
    const std::shared_ptr<const MainSearchPath>& path) {
    return {path, &path->GetFolderEntries()};
}

// Where the cache of the path the options start lives: the one given, else the default one of
// the path definition file.
std::optional<PathCacheSlot> CacheSlotOf(const MainSearchPathManager::Options& options) {
    if (!options.pathCache)
        return std::nullopt;
    if (options.pathCache->at || !options.pathDefinition)
        return options.pathCache->at;
    return PathCacheForPathDefinition(options.pathDefinition->GetNativePath());
}

bool SameEntries(const MainSearchPath& a, const MainSearchPath& b) {
    return a.GetFolderEntries() == b.GetFolderEntries();
}

}  // namespace

std::unique_ptr<MainSearchPathManager> MainSearchPathManager::Open(Options options,
                                                                   Notification& problems) {
    // A cache read whole is read while the path definition file is.
    std::optional<PathCacheReadAhead> ahead;
    if (const auto slot = CacheSlotOf(options); slot && slot->inMemory)
        ahead.emplace(slot->file);
    FolderList folders;
    bool saved = false;
    if (options.pathDefinition) {
        auto contents = options.pathDefinition->Load(problems);
        if (contents.outcome == PathDefinitionFile::Outcome::Failed)
            return nullptr;
        saved = contents.outcome == PathDefinitionFile::Outcome::Loaded;
        folders = std::move(contents.folders);
    }
    if (!saved && options.defaultFolders)
        folders = options.defaultFolders();
    // A saved path holds each folder once already.
    if (saved) {
        return std::unique_ptr<MainSearchPathManager>(new MainSearchPathManager(
            std::make_shared<const FolderList>(std::move(folders)), std::move(options), Unique{}));
    }
    return std::make_unique<MainSearchPathManager>(folders, std::move(options));
}

MainSearchPathManager::MainSearchPathManager(const FolderList& folders, Options options)
    : MainSearchPathManager(std::make_shared<const FolderList>(
                                FirstOccurrences(std::span<const AbsoluteIRI>(folders))),
                            std::move(options), Unique{}) {}

MainSearchPathManager::MainSearchPathManager(std::shared_ptr<const FolderList> unique,
                                             Options options, Unique)
    : m_options(std::move(options)) {
    if (m_options.pathCache) {
        const auto slot = CacheSlotOf(m_options);
        auto use = *std::exchange(m_options.pathCache, std::nullopt);
        if (slot) {
            m_pathCache =
                std::make_unique<PathCacheKeeper>(*slot, use.inBackground, std::move(use.warn));
            m_options.loadKnownEntries =
                [this, loaded = std::move(use.loaded)](const FolderList& folders) {
                    auto entries = m_pathCache->Load(folders);
                    if (loaded)
                        loaded(entries);
                    return entries;
                };
        }
    }
    const auto load = std::exchange(m_options.loadKnownEntries, {});
    const auto known = std::make_shared<const std::vector<std::shared_ptr<const FolderEntry>>>(
        load ? load(*unique) : std::exchange(m_options.knownEntries, {}));
    m_cache.Retain(known);
    ScanReport report;
    auto path = MainSearchPath::Revalidate(*unique, *known, report, &m_cache);
    m_cache.Retain(EntriesOf(path));
    m_state = MakeState(std::move(unique), std::move(path), std::move(report));
    if (m_pathCache)
        m_pathCache->Offer(m_state->path);
}

MainSearchPathManager::~MainSearchPathManager() = default;

void MainSearchPathManager::ApplyPathAfterAdding(const FolderRange& newPath,
                                                 Notification& notification) {
    RefuseRecursiveChange();
    Change(PathChangeKind::Added, UniqueFolders(newPath), notification);
}

void MainSearchPathManager::ApplyPathAfterRemoving(const FolderRange& newPath,
                                                   Notification& notification) {
    RefuseRecursiveChange();
    Change(PathChangeKind::Removed, UniqueFolders(newPath), notification);
}

void MainSearchPathManager::ApplyGivenPath(PathChangeKind kind, FolderList&& newPath,
                                           Notification& notification) {
    RefuseRecursiveChange();
    Change(kind, UniqueFolders(std::move(newPath)), notification);
}

bool MainSearchPathManager::KnownOnceEach(std::span<const AbsoluteIRI> folders) {
    // A new path is nearly always the current one with a few folders changed: only those are
    // looked up in the table of places, which a set of the whole path would cost far more than.
    std::unique_lock lock(m_changeMutex);
    const auto old = CurrentState();
    return old->path->GetFolderEntries().size() == old->folders->size() &&
           HoldsEachOnce(folders, *old->folders, PositionsOf(old->path)) == true;
}

MainSearchPathManager::FolderList MainSearchPathManager::UniqueFolders(const FolderRange& range) {
    if (const auto& array = range.Contiguous(); array && KnownOnceEach(*array))
        return FolderList(array->begin(), array->end());
    return FirstOccurrences(range);
}

MainSearchPathManager::FolderList MainSearchPathManager::UniqueFolders(FolderList&& list) {
    if (KnownOnceEach(list))
        return std::move(list);
    return FirstOccurrences(std::span<const AbsoluteIRI>(list));
}

const detail::MainPositions& MainSearchPathManager::PositionsOf(
    const std::shared_ptr<const MainSearchPath>& path) {
    if (!m_mainPositions || (!m_mainPositions->Serves(path) && !m_mainPositions->Follow(path))) {
        m_mainPositions = std::make_shared<detail::MainPositions>(path);
    }
    return *m_mainPositions;
}

void MainSearchPathManager::Change(PathChangeKind kind, FolderList folders,
                                   Notification& notification) {
    std::unique_lock lock(m_changeMutex);
    const auto old = CurrentState();
    if (folders == *old->folders)
        return;

    // Other processes may have saved changes since this path was read: under the file's lock, the
    // change is made again on what is saved now, so that theirs are kept.
    std::shared_ptr<const FolderList> base = old->folders;
    PathDefinitionFile::ChangeLock fileLock;
    if (m_options.pathDefinition) {
        fileLock = m_options.pathDefinition->LockForChange(notification);
        if (!fileLock.IsHeld())
            return;
    }
    std::shared_ptr<const MainSearchPath> path;
    std::shared_ptr<const FolderList> saved;  // the new path, as the file holds it
    ScanReport warnings;
    // A program that takes no lock (an editor writing the file anew) may change the file at any
    // moment until it is replaced; the change is then made again on what it holds, a few times.
    for (int attempt = 1;; ++attempt) {
        if (m_options.pathDefinition &&
            !detail::RebaseOnSavedFile(*m_options.pathDefinition, base, folders, notification)) {
            return;
        }
        const FolderList newFolders = detail::FoldersNotIn(folders, *base);
        const FolderSet added(newFolders.begin(), newFolders.end());
        if (kind == PathChangeKind::Added)
            detail::DropOtherNamesOf(folders, newFolders, *old->path, *old->folders,
                                     PositionsOf(old->path));
        if (folders == *old->folders)
            return;
        ScanReport report;
        // The entry cache holds the path's own entries: it would index them all to find none of
        // the new folders.
        auto changed =
            ReadChangedEntries(folders, *old->folders, old->path->GetFolderEntries(), report);
        warnings = ScanReport();
        bool refused = false;
        for (const auto& problem : report.Problems()) {
            const auto message =
                added.contains(problem.location) ? MessageFor(problem) : std::nullopt;
            if (message) {
                notification.Add(*message);
                refused = true;
            } else {
                warnings.Add(problem);
            }
        }
        if (refused)
            return;
        // The new path is put together on another thread while this one saves the change, which
        // mostly waits for the disk. Its name index is built when a lookup first asks: a change
        // rarely looks up.
        std::shared_ptr<const FolderList> list;
        auto result = PathDefinitionFile::SaveResult::Saved;
        // Isolated: while this thread, which holds the change lock, waits for the other, it takes
        // up no other work, which might want the lock.
        tbb::this_task_arena::isolate([&] {
            tbb::task_group assembling;
            assembling.run([&] {
                path = MainSearchPath::Rearrange(
                    *old->path, AllEntries(std::move(changed), old->path->GetFolderEntries()));
            });
            try {
                if (m_options.pathDefinition && folders != *base) {
                    // The file's kept reading shares the new path with the state that holds it.
                    list = std::make_shared<const FolderList>(std::move(folders));
                    result = m_options.pathDefinition->SaveChange(*base, list, notification);
                }
            } catch (...) {
                assembling.wait();
                throw;
            }
            assembling.wait();
        });
        if (!list)
            break;
        if (result == PathDefinitionFile::SaveResult::Saved) {
            saved = std::move(list);
            break;
        }
        if (result == PathDefinitionFile::SaveResult::Failed)
            return;
        if (attempt == kSaveAttempts) {
            notification.Add(VELMORA::pathdef::cannotSave(
                text::FromNative(m_options.pathDefinition->GetNativePath()),
                "it kept changing while the change was saved"));
            return;
        }
        folders = *list;
    }
    fileLock = {};
    // The table of places follows the change while the path it served is at hand: once that is
    // gone, only a new table of the whole path would do.
    if (m_mainPositions && !(m_mainPositions->Serves(old->path) && m_mainPositions->Follow(path))) {
        m_mainPositions.reset();
    }
    m_cache.Retain(EntriesOf(path));
    Publish(kind, MakeState(saved ? std::move(saved)
                                  : std::make_shared<const FolderList>(std::move(folders)),
                            std::move(path), std::move(warnings)));
}

std::shared_ptr<const PathState> MainSearchPathManager::Refresh() {
    RefuseRecursiveChange();
    std::unique_lock lock(m_changeMutex);
    const auto old = CurrentState();
    ScanReport report;
    auto path = MainSearchPath::Scan(*old->folders, report, &m_cache);
    if (SameEntries(*path, *old->path))
        return nullptr;
    m_cache.Retain(EntriesOf(path));
    return Publish(PathChangeKind::Refreshed,
                   MakeState(old->folders, std::move(path), std::move(report)));
}

std::shared_ptr<MainSearchPathManager::State> MainSearchPathManager::MakeState(
    std::shared_ptr<const FolderList> folders, std::shared_ptr<const MainSearchPath> path,
    ScanReport warnings) const {
    auto packages = std::make_shared<const std::vector<ComponentIdentifier>>(
        m_options.packages ? PackagesOn(*m_options.packages, *folders)
                           : std::vector<ComponentIdentifier>{});
    return std::make_shared<State>(State{{0, std::move(folders), std::move(path),
                                          std::make_shared<const ScanReport>(std::move(warnings))},
                                         std::move(packages)});
}

// Called with the change mutex held, so that generations follow one another without a gap and
// observers learn of changes one at a time, in the order of their generations.
std::shared_ptr<const PathState> MainSearchPathManager::Publish(PathChangeKind kind,
                                                                std::shared_ptr<State> state) {
    std::shared_ptr<const State> old;
    {
        std::lock_guard lock(m_stateMutex);
        state->generation = m_state->generation + 1;
        old = std::exchange(m_state, state);
    }
    if (m_pathCache)
        m_pathCache->Offer(state->path);
    std::vector<PathManagement::PathChangeObserver> observers;
    {
        std::lock_guard lock(m_observersMutex);
        observers.reserve(m_observers.size());
        for (const auto& [id, observer] : m_observers)
            observers.push_back(observer);
    }
    if (observers.empty())
        return state;
    const PathChange change{kind, old->path, state->path, state->generation};
    std::exception_ptr failure;
    m_notifyingThread.store(std::this_thread::get_id());
    // Every observer hears of the change, even when one before it throws; the first exception is
    // passed on afterwards (the change stays made).
    for (const auto& observer : observers) {
        try {
            observer(change);
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    }
    m_notifyingThread.store(std::thread::id());
    if (failure)
        std::rethrow_exception(failure);
    return state;
}

std::shared_ptr<const MainSearchPathManager::State> MainSearchPathManager::CurrentState() const {
    std::lock_guard lock(m_stateMutex);
    return m_state;
}

void MainSearchPathManager::RefuseRecursiveChange() const {
    if (m_notifyingThread.load() == std::this_thread::get_id())
        throw PathManagement::RecursivePathChangeException();
}

std::shared_ptr<const PathManagement::IPath> MainSearchPathManager::GetPath() const {
    return CurrentState()->path;
}

std::shared_ptr<const PathState> MainSearchPathManager::GetState() const {
    return CurrentState();
}

std::shared_ptr<const MainSearchPath> MainSearchPathManager::GetSnapshot() const {
    return CurrentState()->path;
}

std::shared_ptr<const std::vector<ComponentIdentifier>> MainSearchPathManager::GetPackagesOnPath()
    const {
    return CurrentState()->packages;
}

std::shared_ptr<const MainSearchPathManager::FolderList> MainSearchPathManager::GetPathFolderIRIs()
    const {
    return CurrentState()->folders;
}

std::shared_ptr<const ScanReport> MainSearchPathManager::GetWarnings() const {
    return CurrentState()->warnings;
}

std::uint64_t MainSearchPathManager::AddPathChangeObserver(
    PathManagement::PathChangeObserver observer) {
    std::lock_guard lock(m_observersMutex);
    const std::uint64_t id = m_nextObserver++;
    m_observers.emplace(id, std::move(observer));
    return id;
}

void MainSearchPathManager::RemovePathChangeObserver(std::uint64_t id) {
    std::lock_guard lock(m_observersMutex);
    m_observers.erase(id);
}

}  // namespace Velmora::SearchPath

namespace VELMORA::searchpath {

folderMissing::folderMissing(const ustring& folder)
    : MessageRecord("VELMORA:searchpath", "folderMissing", {folder}) {}

notAFolder::notAFolder(const ustring& folder)
    : MessageRecord("VELMORA:searchpath", "notAFolder", {folder}) {}

folderUnreadable::folderUnreadable(const ustring& folder, const std::string& reason)
    : MessageRecord("VELMORA:searchpath", "folderUnreadable", {folder, reason}) {}

folderLoops::folderLoops(const ustring& folder)
    : MessageRecord("VELMORA:searchpath", "folderLoops", {folder}) {}

}  // namespace VELMORA::searchpath
