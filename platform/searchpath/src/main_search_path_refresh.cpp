// MainSearchPathManager's refreshes driven from outside: the folders that change events name, and
// the folder list that another process saved in the path definition file.

#include <velmora/searchpath/main_search_path_manager.hpp>

#include <algorithm>

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

}  // namespace

bool MainSearchPathManager::RefreshFolders(const std::vector<AbsoluteIRI>& locations) {
    RefuseRecursiveChange();
    std::unique_lock lock(m_changeMutex);
    const auto old = CurrentState();
    if (!m_mainPositions || !m_mainPositions->Serves(old->path))
        m_mainPositions = std::make_shared<detail::MainPositions>(old->path);

    std::vector<std::size_t> stale;
    for (const auto& location : locations) {
        const auto position = m_mainPositions->Holding(*old->path, location);
        if (!position)
            continue;
        stale.push_back(*position);
        // A stamp can look unchanged when the change fell within the file system's timestamp
        // tick; the event is the better witness, so the folder is listed again regardless.
        m_cache.Forget(location);
        m_cache.Forget(location.getParent());
    }
    std::sort(stale.begin(), stale.end());
    stale.erase(std::unique(stale.begin(), stale.end()), stale.end());

    const FolderScanner scanner(&m_cache);
    ScanReport report;
    std::vector<MainSearchPath::Replacement> replaced;
    for (const std::size_t position : stale) {
        const auto& entry = old->path->GetFolderEntries()[position];
        // A folder that vanished leaves the snapshot, as it would a fresh scan, and is a warning.
        auto fresh = scanner.ScanMainEntry(entry->GetAbsoluteIRI(), report);
        if (fresh && fresh != entry && SameListing(*fresh, *entry))
            fresh = entry;
        if (fresh)
            m_cache.Remember(fresh);
        if (fresh == entry)
            continue;
        replaced.push_back({position, std::move(fresh)});
    }
    // Folders that read the same are the same objects: nothing to tell.
    if (replaced.empty())
        return false;
    ScanReport warnings = *old->warnings;
    warnings.Append(report);
    auto path = MainSearchPath::Update(*old->path, replaced);
    if (path->GetFolderEntries().size() == old->path->GetFolderEntries().size())
        m_mainPositions->CarryTo(path);
    Publish(PathChangeKind::Refreshed,
            MakeState(old->folders, std::move(path), std::move(warnings)));
    return true;
}

bool MainSearchPathManager::ReloadPathDefinition(Notification& problems) {
    if (!m_options.pathDefinition)
        return false;
    RefuseRecursiveChange();
    std::unique_lock lock(m_changeMutex);
    auto contents = m_options.pathDefinition->Load(problems);
    if (contents.outcome != PathDefinitionFile::Outcome::Loaded)
        return false;
    const auto old = CurrentState();
    if (contents.folders == *old->folders)
        return false;
    const boost::unordered_flat_set<AbsoluteIRI> before(old->folders->begin(), old->folders->end());
    const bool grew = std::any_of(contents.folders.begin(), contents.folders.end(),
                                  [&](const AbsoluteIRI& f) { return !before.contains(f); });
    ScanReport warnings;
    auto path = MainSearchPath::Scan(contents.folders, warnings, &m_cache);
    m_cache.Retain(path->GetFolderEntries());
    Publish(grew ? PathChangeKind::Added : PathChangeKind::Removed,
            MakeState(std::make_shared<const FolderList>(std::move(contents.folders)),
                      std::move(path), std::move(warnings)));
    return true;
}

}  // namespace Velmora::SearchPath
