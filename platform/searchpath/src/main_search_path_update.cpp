// MainSearchPath::Update: the next snapshot of a path from the one before it and the main entries
// read anew. A change event names a few folders; the path it lands in may hold a hundred thousand.

#include <velmora/searchpath/main_search_path.hpp>

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
    // A folder that left the path moves every one after it: that path is made whole.
    if (!sameFolders)
        return Create(std::move(folders));

    std::shared_ptr<MainSearchPath> path(new MainSearchPath());
    auto mains = std::make_shared<PathEntryVector>(*previous.m_mains);
    for (const auto& [position, entry] : replaced)
        (*mains)[position] = entry;
    path->m_mains = std::move(mains);
    path->m_mainFolders = std::move(folders);
    path->m_fileCount = files;
    return path;
}

}  // namespace Velmora::SearchPath
