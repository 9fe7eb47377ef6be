#pragma once
// MainPositions: where each main folder stands on one snapshot of the path, for the refreshes that
// change events ask for. A refresh replaces entries but keeps every folder in its place, so one
// table serves every snapshot that refreshes made from the one it was read from, and finding the
// entry that an event names costs a few hash lookups rather than the snapshot's whole name index.
// It also counts the main entries of each folder on disk, for a change that adds a folder.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include <velmora/searchpath/main_search_path.hpp>

namespace Velmora::SearchPath::detail {

// FolderId: a folder on disk, whatever its name: its device and inode.
struct FolderId {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    friend bool operator==(const FolderId&, const FolderId&) = default;
    friend std::size_t hash_value(const FolderId& id) {
        return std::hash<std::uint64_t>()(id.device * 0x9E3779B97F4A7C15ULL ^ id.inode);
    }
};

// IdOf: the folder that `entry` was read from.
inline FolderId IdOf(const FolderEntry& entry) {
    return FolderId{entry.GetStamp().device, entry.GetStamp().inode};
}

class MainPositions {
  public:
    explicit MainPositions(const std::shared_ptr<const MainSearchPath>& path);

    // Serves: whether the table holds the folders of `path` (made for it, or carried to it).
    bool Serves(const std::shared_ptr<const MainSearchPath>& path) const {
        return m_path.lock() == path;
    }
    // CarryTo: `path` has the same folders in the same places as the one the table serves; the
    // entries at `replaced` are new (read again, perhaps from another folder by the same name).
    void CarryTo(const std::shared_ptr<const MainSearchPath>& path,
                 const std::vector<std::size_t>& replaced);
    // Follow: makes the table serve `path`, a change of the path it serves that kept most of its
    // entries, by taking out and putting in only the entries between the runs the two share at
    // the front and at the back. False, with the table as it was, when the path it served is gone
    // or the change was too large to be worth it.
    bool Follow(const std::shared_ptr<const MainSearchPath>& path);

    // At: the position of the main entry of the folder `location`, if it is on the path.
    std::optional<std::size_t> At(const foundation::storage::vfs::AbsoluteIRI& location) const {
        const auto found = m_at.find(location);
        return found == m_at.end() ? std::nullopt : std::optional(PlaceOf(found->second));
    }
    // Holding: the position of the main entry that holds `location` as one of its entries or, for
    // a file or a folder that is no entry, as the parent of `location`; none when no entry does.
    std::optional<std::size_t> Holding(const MainSearchPath& path,
                                       const foundation::storage::vfs::AbsoluteIRI& location) const;
    // EntriesOf: how many main entries were read from the folder `id`.
    std::size_t EntriesOf(const FolderId& id) const {
        const auto found = m_entriesOf.find(id);
        return found == m_entriesOf.end() ? 0 : found->second;
    }

  private:
    void Count(const FolderEntry& entry);
    void Uncount(const FolderEntry& entry);
    std::size_t PlaceOf(std::ptrdiff_t stored) const {
        return static_cast<std::size_t>(stored + m_shift);
    }

    std::weak_ptr<const MainSearchPath> m_path;
    // Each folder's place, less the shift that all places share: a change at the front of a long
    // path moves every place, which then costs one shift rather than a pass over the table.
    boost::unordered_flat_map<foundation::storage::vfs::AbsoluteIRI, std::ptrdiff_t> m_at;
    std::ptrdiff_t m_shift = 0;
    // The main entries of each folder on disk: a folder added under a new name is then told to be
    // on the path already, or not, without a look at every entry.
    boost::unordered_flat_map<FolderId, std::uint32_t> m_entriesOf;
};

}  // namespace Velmora::SearchPath::detail
