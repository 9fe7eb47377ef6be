#pragma once
// MainPositions: where each main folder stands on one snapshot of the path, for the refreshes that
// change events ask for. A refresh replaces entries but keeps every folder in its place, so one
// table serves every snapshot that refreshes made from the one it was read from, and finding the
// entry that an event names costs a few hash lookups rather than the snapshot's whole name index.

#include <cstddef>
#include <memory>
#include <optional>

#include <boost/unordered/unordered_flat_map.hpp>

#include <velmora/searchpath/main_search_path.hpp>

namespace Velmora::SearchPath::detail {

class MainPositions {
  public:
    explicit MainPositions(const std::shared_ptr<const MainSearchPath>& path);

    // Serves: whether the table holds the folders of `path` (made for it, or carried to it).
    bool Serves(const std::shared_ptr<const MainSearchPath>& path) const {
        return m_path.lock() == path;
    }
    // CarryTo: `path` has the same folders in the same places as the one the table serves.
    void CarryTo(const std::shared_ptr<const MainSearchPath>& path) { m_path = path; }
    // Follow: makes the table serve `path`, a change of the path it serves that kept most of its
    // entries, by taking out and putting in only the entries between the runs the two share at
    // the front and at the back. False, with the table as it was, when the path it served is gone
    // or the change was too large to be worth it.
    bool Follow(const std::shared_ptr<const MainSearchPath>& path);

    // At: the position of the main entry of the folder `location`, if it is on the path.
    std::optional<std::size_t> At(const foundation::storage::vfs::AbsoluteIRI& location) const {
        const auto found = m_at.find(location);
        return found == m_at.end() ? std::nullopt : std::optional(found->second);
    }
    // Holding: the position of the main entry that holds `location` as one of its entries or, for
    // a file or a folder that is no entry, as the parent of `location`; none when no entry does.
    std::optional<std::size_t> Holding(const MainSearchPath& path,
                                       const foundation::storage::vfs::AbsoluteIRI& location) const;

  private:
    std::weak_ptr<const MainSearchPath> m_path;
    boost::unordered_flat_map<foundation::storage::vfs::AbsoluteIRI, std::size_t> m_at;
};

}  // namespace Velmora::SearchPath::detail
