#pragma once
// Internal to the host's search path: the files and special subfolders of one folder listing.

#include <memory>
#include <span>
#include <string>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "name_hash.hpp"

namespace Velmora::SearchPath {

// A special subfolder seen in a listing: kept so that an unchanged folder can be rescanned
// without listing it again.
struct SpecialChild {
    std::string nativeName;
    ustring name;
    PathManagement::PathEntryType kind;
    bool throughLink;  // reached through a symbolic link: its real location must be resolved
};

class FileTable {
  public:
    // Make: the table of `fileNames` (in any order) found in the folder at `location`.
    static std::shared_ptr<const FileTable> Make(
        const foundation::storage::vfs::AbsoluteIRI& location, std::vector<ustring> fileNames,
        std::vector<SpecialChild> specials);

    std::span<const ustring> Names() const noexcept { return m_names; }
    const std::shared_ptr<const PathManagement::PathItemVector>& Items() const noexcept {
        return m_items;
    }
    const std::vector<SpecialChild>& Specials() const noexcept { return m_specials; }

    // Find: the position of the file named `first` followed by `second`, or -1.
    std::ptrdiff_t Find(std::u16string_view first, std::u16string_view second) const noexcept {
        const auto it = m_index.find(searchpath_internal::NameKey{first, second});
        return it == m_index.end() ? -1 : static_cast<std::ptrdiff_t>(it->second);
    }

  private:
    std::vector<ustring> m_names;                                   // sorted
    std::shared_ptr<const PathManagement::PathItemVector> m_items;  // parallel to m_names
    boost::unordered_flat_map<std::u16string_view, std::uint32_t, searchpath_internal::NameHash,
                              searchpath_internal::NameEqual>
        m_index;
    std::vector<SpecialChild> m_specials;
};

}  // namespace Velmora::SearchPath
