// MainSearchPathManager's refreshes driven from outside: the folders that change events name, and
// the folder list that another process saved in the path definition file.

#include <velmora/searchpath/main_search_path_manager.hpp>

#include <algorithm>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "main_positions.hpp"
#include "manager_state.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using PathManagement::PathChangeKind;

// Whether two readings of a folder tree hold the same files and special folders: a folder listed
// again on an event that changed nothing keeps its entry, so that no one is told of a refresh.
bool SameListing(const FolderEntry& a, const FolderEntry& b) {
    const auto aFiles = a.GetFileNames();
    const auto bFiles = b.GetFileNames();
    if (a.GetAbsoluteIRI() != b.GetAbsoluteIRI() || a.GetPathEntryType() != b.GetPathEntryType() ||
        !std::equal(aFiles.begin(), aFiles.end(), bFiles.begin(), bFiles.end()) ||
        a.SubEntries().size() != b.SubEntries().size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.SubEntries().size(); ++i) {
        if (!SameListing(*a.SubEntries()[i], *b.SubEntries()[i]))
            return false;
    }
    return true;
}

// The entries of `path` and `more` in the order of the folder list.
std::vector<std::shared_ptr<const FolderEntry>> InListOrder(
    const std::vector<AbsoluteIRI>& folders, const MainSearchPath& path,
    std::vector<std::shared_ptr<const FolderEntry>> more) {
    boost::unordered_flat_map<AbsoluteIRI, std::shared_ptr<const FolderEntry>> byLocation;
    for (auto& entry : more)
        byLocation.emplace(entry->GetAbsoluteIRI(), std::move(entry));
    for (const auto& entry : path.GetFolderEntries())
        byLocation.emplace(entry->GetAbsoluteIRI(), entry);
    std::vector<std::shared_ptr<const FolderEntry>> entries;
    entries.reserve(byLocation.size());
    for (const auto& folder : folders) {
        if (const auto found = byLocation.find(folder); found != byLocation.end())
            entries.push_back(found->second);
    }
    return entries;
}

}  // namespace

std::shared_ptr<const PathState> MainSearchPathManager::RefreshFolders(
    const std::vector<AbsoluteIRI>& locations) {
    RefuseRecursiveChange();
    std::unique_lock lock(m_changeMutex);
    const auto old = CurrentState();
    const detail::MainPositions& positions = PositionsOf(old->path);

    std::vector<std::size_t> stale;
    for (const auto& location : locations) {
        if (const auto position = positions.Holding(*old->path, location))
            stale.push_back(*position);
    }
    std::sort(stale.begin(), stale.end());
    stale.erase(std::unique(stale.begin(), stale.end()), stale.end());

    // What the folders read again may reuse is in their own old entries: a cache of just those
    // costs far less to build than one of the whole path.
    EntryCache reusable;
    {
        std::vector<std::shared_ptr<const FolderEntry>> entries;
        entries.reserve(stale.size());
        for (const std::size_t position : stale)
            entries.push_back(old->path->GetFolderEntries()[position]);
        reusable.Retain(entries);
    }
    for (const auto& location : locations) {
        // A stamp can look unchanged when the change fell within the file system's timestamp
        // tick; the event is the better witness, so the folder is listed again regardless.
        reusable.Forget(location);
        reusable.Forget(location.getParent());
    }
    const FolderScanner scanner(&reusable);
    ScanReport report;
    std::vector<MainSearchPath::Replacement> replaced;
    for (const std::size_t position : stale) {
        const auto& entry = old->path->GetFolderEntries()[position];
        // A folder that vanished leaves the snapshot, as it would a fresh scan, and is a warning.
        auto fresh = scanner.ScanMainEntry(entry->GetAbsoluteIRI(), report);
        if (fresh && fresh != entry && SameListing(*fresh, *entry))
            fresh = entry;
        if (fresh == entry)
            continue;
        replaced.push_back({position, std::move(fresh)});
    }
    // Folders of the list that were missing and exist now take their places on the path.
    std::vector<std::shared_ptr<const FolderEntry>> appearing;
    if (old->path->GetFolderEntries().size() < old->folders->size()) {
        for (const auto& location : locations) {
            if (positions.At(location) || std::find(old->folders->begin(), old->folders->end(),
                                                    location) == old->folders->end()) {
                continue;
            }
            ScanReport ignored;  // still missing: its warning stands already
            if (auto entry = scanner.ScanMainEntry(location, ignored))
                appearing.push_back(std::move(entry));
        }
    }
    // Folders that read the same are the same objects: nothing to tell.
    if (replaced.empty() && appearing.empty())
        return nullptr;
    ScanReport warnings;
    for (const auto& problem : old->warnings->Problems()) {
        if (std::none_of(appearing.begin(), appearing.end(),
                         [&](const auto& e) { return e->GetAbsoluteIRI() == problem.location; }))
            warnings.Add(problem);
    }
    warnings.Append(report);
    auto path = MainSearchPath::Update(*old->path, replaced);
    if (!appearing.empty())
        path = MainSearchPath::Create(InListOrder(*old->folders, *path, std::move(appearing)));
    if (path->GetFolderEntries().size() == old->path->GetFolderEntries().size()) {
        std::vector<std::size_t> readAgain;
        for (const auto& replacement : replaced)
            readAgain.push_back(replacement.position);
        m_mainPositions->CarryTo(path, readAgain);
    }
    // The new path's entries, shared with it rather than copied: a refresh of one folder of a
    // large path costs no pass over all of them.
    m_cache.Retain(std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>>(
        path, &path->GetFolderEntries()));
    return Publish(PathChangeKind::Refreshed,
                   MakeState(old->folders, std::move(path), std::move(warnings)));
}

std::shared_ptr<const PathState> MainSearchPathManager::ReloadPathDefinition(
    Notification& problems) {
    if (!m_options.pathDefinition)
        return nullptr;
    RefuseRecursiveChange();
    std::unique_lock lock(m_changeMutex);
    // Most often the file holds what this manager saved in it last: told from the kept reading
    // without a copy of the path.
    if (m_options.pathDefinition->Holds(*CurrentState()->folders))
        return nullptr;
    auto contents = m_options.pathDefinition->Load(problems);
    if (contents.outcome != PathDefinitionFile::Outcome::Loaded)
        return nullptr;
    const auto old = CurrentState();
    if (contents.folders == *old->folders)
        return nullptr;
    const boost::unordered_flat_set<AbsoluteIRI> before(old->folders->begin(), old->folders->end());
    const bool grew = std::any_of(contents.folders.begin(), contents.folders.end(),
                                  [&](const AbsoluteIRI& f) { return !before.contains(f); });
    ScanReport warnings;
    auto path = MainSearchPath::Scan(contents.folders, warnings, &m_cache);
    m_cache.Retain(std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>>(
        path, &path->GetFolderEntries()));
    return Publish(grew ? PathChangeKind::Added : PathChangeKind::Removed,
                   MakeState(std::make_shared<const FolderList>(std::move(contents.folders)),
                             std::move(path), std::move(warnings)));
}

}  // namespace Velmora::SearchPath
