#include "main_positions.hpp"

#include <vector>

#include <velmora/searchpath/shared_runs.hpp>

namespace Velmora::SearchPath::detail {

using foundation::storage::vfs::AbsoluteIRI;

MainPositions::MainPositions(const std::shared_ptr<const MainSearchPath>& path) : m_path(path) {
    const auto& mains = path->GetFolderEntries();
    m_at.reserve(mains.size());
    m_entriesOf.reserve(mains.size());
    for (std::size_t i = 0; i < mains.size(); ++i) {
        m_at.emplace(mains[i]->GetLocation(), static_cast<std::ptrdiff_t>(i));
        Count(*mains[i]);
    }
}

void MainPositions::Count(const FolderEntry& entry) {
    ++m_entriesOf[IdOf(entry)];
}

void MainPositions::Uncount(const FolderEntry& entry) {
    const auto found = m_entriesOf.find(IdOf(entry));
    if (found != m_entriesOf.end() && --found->second == 0)
        m_entriesOf.erase(found);
}

void MainPositions::CarryTo(const std::shared_ptr<const MainSearchPath>& path,
                            const std::vector<std::size_t>& replaced) {
    if (const auto served = m_path.lock()) {
        for (const std::size_t position : replaced) {
            Uncount(*served->GetFolderEntries()[position]);
            Count(*path->GetFolderEntries()[position]);
        }
    }
    m_path = path;
}

bool MainPositions::Follow(const std::shared_ptr<const MainSearchPath>& path) {
    const auto served = m_path.lock();
    if (!served)
        return false;
    const auto& before = served->GetFolderEntries();
    const auto& after = path->GetFolderEntries();
    const auto [front, back] = SharedRuns(before, after);
    const std::size_t gone = before.size() - front - back;
    const std::size_t come = after.size() - front - back;
    if (gone + come > before.size() / 16 + 64)
        return false;
    for (std::size_t i = front; i < before.size() - back; ++i) {
        m_at.erase(before[i]->GetLocation());
        Uncount(*before[i]);
    }
    // The entries of the back run move by the change's difference in length. The shorter of the
    // two runs has its places moved, and the other keeps its own through the shift that all
    // places share: a few entries are looked up one by one, more in one pass over the table.
    const auto moved =
        static_cast<std::ptrdiff_t>(after.size()) - static_cast<std::ptrdiff_t>(before.size());
    if (moved != 0 && back > 0) {
        const bool moveBack = back <= front;
        const std::size_t from = moveBack ? before.size() - back : 0;
        const std::size_t to = moveBack ? before.size() : front;
        const std::ptrdiff_t by = moveBack ? moved : -moved;
        constexpr std::size_t kMostLookedUp = 256;
        if (to - from <= kMostLookedUp) {
            for (std::size_t i = from; i < to; ++i)
                m_at.find(before[i]->GetLocation())->second += by;
        } else {
            for (auto& [location, stored] : m_at) {
                if (const std::size_t place = PlaceOf(stored); place >= from && place < to)
                    stored += by;
            }
        }
        if (!moveBack)
            m_shift += moved;
    }
    for (std::size_t i = front; i < after.size() - back; ++i) {
        m_at.insert_or_assign(after[i]->GetLocation(), static_cast<std::ptrdiff_t>(i) - m_shift);
        Count(*after[i]);
    }
    m_path = path;
    return true;
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
    const FolderEntry* entry = path.GetFolderEntries()[PlaceOf(found->second)].get();
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
    return PlaceOf(found->second);
}

}  // namespace Velmora::SearchPath::detail
