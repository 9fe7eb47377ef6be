// MainSearchPath::Update: the next snapshot of a path from the one before it and the main entries
// read anew. A change event names a few folders; the path it lands in may hold a hundred thousand.

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include <boost/unordered/unordered_flat_set.hpp>

#include <velmora/pathmanagement/search_target.hpp>

namespace Velmora::SearchPath {
namespace {

using PathManagement::PathEntryVector;

// The files that a tree adds to the path's count; those of resources folders are never found by
// name and do not count.
std::size_t FilesIn(const FolderEntry& entry) {
    std::size_t files =
        entry.GetPathEntryType() == PathEntryType::ResourcesFolder ? 0 : entry.GetFileCount();
    for (const auto& sub : entry.SubEntries())
        files += FilesIn(*sub);
    return files;
}

}  // namespace

PathManagement::SharedPathEntryVector MainSearchPath::GetMainEntries() const {
    std::call_once(m_mainsOnce, [this] {
        if (!m_mains)
            m_mains =
                std::make_shared<const PathEntryVector>(m_mainFolders.begin(), m_mainFolders.end());
    });
    return m_mains;
}

PathEntryVector MainSearchPath::GetMethodEntries() const {
    // A path that Update made finds its method entries while it builds its index.
    static_cast<void>(m_index.operator->());
    return m_methods;
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Update(
    const MainSearchPath& previous, const std::vector<Replacement>& replaced) {
    auto folders = previous.m_mainFolders;
    bool sameFolders = true;
    std::size_t files = previous.m_fileCount;
    for (const auto& [position, entry] : replaced) {
        auto& old = folders.at(position);
        sameFolders = sameFolders && entry && entry->GetAbsoluteIRI() == old->GetAbsoluteIRI();
        files -= FilesIn(*old);
        if (entry)
            files += FilesIn(*entry);
        old = entry;
    }
    // A folder that left the path moves every one after it, and a folder read anew may now hold
    // or let go of a special folder that is on the path itself: those paths are made whole.
    if (!sameFolders || previous.m_specialMains)
        return Create(std::move(folders));

    // The one copy of the main entries that a refresh makes; the IPath list of them is made from it
    // when first asked for.
    std::shared_ptr<MainSearchPath> path(new MainSearchPath());
    path->m_mainFolders = std::move(folders);
    path->m_fileCount = files;
    return path;
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Rearrange(
    const MainSearchPath& previous, std::vector<std::shared_ptr<const FolderEntry>> mainEntries) {
    std::erase(mainEntries, nullptr);
    // Which folders a path of special folders leaves out can change with any change of it.
    if (previous.m_specialMains)
        return Create(std::move(mainEntries));
    const auto& old = previous.m_mainFolders;
    // The runs of the same entries in the same places at the front and the back are the same
    // files; only the entries between them can differ.
    const auto [front, back] = SharedRuns(old, mainEntries);
    boost::unordered_flat_set<const FolderEntry*> gone;
    for (std::size_t i = front; i < old.size() - back; ++i)
        gone.insert(old[i].get());
    std::size_t files = previous.m_fileCount;
    for (std::size_t i = front; i < mainEntries.size() - back; ++i) {
        const FolderEntry& entry = *mainEntries[i];
        if (gone.erase(&entry))
            continue;
        // A new folder with a special name may be a special subfolder of another folder on the
        // path, which Create leaves out: that path is made whole.
        if (PathManagement::GetPathEntryTypeFromBaseName(entry.GetName()) !=
            PathEntryType::Ordinary) {
            return Create(std::move(mainEntries));
        }
        files += FilesIn(entry);
    }
    for (const FolderEntry* entry : gone)
        files -= FilesIn(*entry);
    std::shared_ptr<MainSearchPath> path(new MainSearchPath());
    path->m_mainFolders = std::move(mainEntries);
    path->m_fileCount = files;
    return path;
}

}  // namespace Velmora::SearchPath
