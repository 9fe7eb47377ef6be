#include "main_positions.hpp"

#include <vector>

namespace Velmora::SearchPath::detail {

using foundation::storage::vfs::AbsoluteIRI;

MainPositions::MainPositions(const std::shared_ptr<const MainSearchPath>& path) : m_path(path) {
    const auto& mains = path->GetFolderEntries();
    m_at.reserve(mains.size());
    for (std::size_t i = 0; i < mains.size(); ++i)
        m_at.emplace(mains[i]->GetAbsoluteIRI(), i);
}

std::optional<std::size_t> MainPositions::Holding(const MainSearchPath& path,
                                                  const AbsoluteIRI& location) const {
    // Up from `location` to the first main folder, remembering the way.
    std::vector<AbsoluteIRI> below;
    AbsoluteIRI at = location;
    auto found = m_at.find(at);
    while (found == m_at.end()) {
        AbsoluteIRI parent = at.getParent();
        if (parent == at)
            return std::nullopt;
        below.push_back(std::move(at));
        at = std::move(parent);
        found = m_at.find(at);
    }
    // Down again through the entries; at most the last step may leave them.
    const FolderEntry* entry = path.GetFolderEntries()[found->second].get();
    while (!below.empty()) {
        const FolderEntry* next = nullptr;
        for (const auto& sub : entry->SubEntries()) {
            if (sub->GetAbsoluteIRI() == below.back()) {
                next = sub.get();
                break;
            }
        }
        if (next == nullptr)
            break;
        entry = next;
        below.pop_back();
    }
    if (below.size() > 1)
        return std::nullopt;
    return found->second;
}

}  // namespace Velmora::SearchPath::detail
