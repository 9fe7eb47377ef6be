// MainSearchPathManager's refreshes driven from outside: the folders that change events name, and
// the folder list that another process saved in the path definition file.

#include <velmora/searchpath/main_search_path_manager.hpp>

#include <algorithm>

#include <boost/unordered/unordered_flat_set.hpp>

#include "manager_state.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using PathManagement::PathChangeKind;

// The main entry that holds `location` or, when `location` is a file, the folder holding it.
std::shared_ptr<const FolderEntry> MainEntryHolding(const MainSearchPath& path,
                                                    const AbsoluteIRI& location) {
    for (const AbsoluteIRI& at : {location, location.getParent()}) {
        if (const auto entry = path.GetPathEntryFromAbsoluteIRI(
                at, PathManagement::FilenameMatchingPolicy::Exact)) {
            return std::static_pointer_cast<const FolderEntry>(path.GetMainEntryForEntry(*entry));
        }
    }
    return nullptr;
}

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

    boost::unordered_flat_set<const FolderEntry*> stale;
    for (const auto& location : locations) {
        const auto main = MainEntryHolding(*old->path, location);
        if (!main)
            continue;
        stale.insert(main.get());
        // A stamp can look unchanged when the change fell within the file system's timestamp
        // tick; the event is the better witness, so the folder is listed again regardless.
        m_cache.Forget(location);
        m_cache.Forget(location.getParent());
    }
    if (stale.empty())
        return false;

    const FolderScanner scanner(&m_cache);
    ScanReport report;
    bool changed = false;
    std::vector<std::shared_ptr<const FolderEntry>> entries;
    entries.reserve(old->path->GetFolderEntries().size());
    for (const auto& entry : old->path->GetFolderEntries()) {
        if (!stale.contains(entry.get())) {
            entries.push_back(entry);
            continue;
        }
        // A folder that vanished leaves the snapshot, as it would a fresh scan, and is a warning.
        auto fresh = scanner.ScanMainEntry(entry->GetAbsoluteIRI(), report);
        if (fresh && fresh != entry && SameListing(*fresh, *entry))
            fresh = entry;
        changed = changed || fresh != entry;
        if (fresh)
            m_cache.Remember(fresh);
        if (fresh)
            entries.push_back(std::move(fresh));
    }
    // Folders that read the same are the same objects: nothing to tell.
    if (!changed)
        return false;
    ScanReport warnings = *old->warnings;
    warnings.Append(report);
    Publish(
        PathChangeKind::Refreshed,
        MakeState(old->folders, MainSearchPath::Create(std::move(entries)), std::move(warnings)));
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
