#pragma once
// Internal to the scan (and the path cache, which loads and saves tables): the files and special
// subfolders of one folder listing.

#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "path_cache/name_hash.hpp"

namespace Velmora::SearchPath {

// A special subfolder seen in a listing: kept so that an unchanged folder can be rescanned
// without listing it again.
struct SpecialChild {
    std::string nativeName;
    ustring name;
    PathManagement::PathEntryType kind;
    bool throughLink;  // reached through a symbolic link: its real location must be resolved
};

class CacheImage;

class FileTable {
  public:
    // Make: the table of `fileNames` (in any order) found in the folder at `location`.
    static std::shared_ptr<const FileTable> Make(
        const foundation::storage::vfs::AbsoluteIRI& location, std::vector<ustring> fileNames,
        std::vector<SpecialChild> specials);
    // Saved: the table of a folder read from a path cache. Its `fileCount` names are read from
    // `block` (each a u16 length and OS bytes, in table order) only when they are first needed;
    // `image` holds the bytes, and `record` is the folder's place in it.
    static std::shared_ptr<const FileTable> Saved(
        const foundation::storage::vfs::AbsoluteIRI& location, std::vector<SpecialChild> specials,
        std::shared_ptr<const CacheImage> image, std::uint32_t record, std::string_view block,
        std::uint32_t fileCount);

    FileTable() = default;
    FileTable(const FileTable&) = delete;
    FileTable& operator=(const FileTable&) = delete;

    std::size_t Count() const noexcept { return m_count; }
    std::span<const ustring> Names() const { return Load().names; }
    const std::shared_ptr<const PathManagement::PathItemVector>& Items() const {
        return Load().items;
    }
    const std::vector<SpecialChild>& Specials() const noexcept { return m_specials; }

    // Find: the position of the file named `first` followed by `second`, or -1.
    std::ptrdiff_t Find(std::u16string_view first, std::u16string_view second) const {
        const auto& index = Load().index;
        const auto it = index.find(searchpath_internal::NameKey{first, second});
        return it == index.end() ? -1 : static_cast<std::ptrdiff_t>(it->second);
    }

    // The cache this table was read from and its record there; null for a table read from disk.
    const std::shared_ptr<const CacheImage>& Image() const noexcept { return m_image; }
    std::uint32_t Record() const noexcept { return m_record; }
    // The saved names, as the cache holds them; empty for a table read from disk.
    std::string_view SavedBlock() const noexcept { return m_block; }
    // SameFiles: whether both tables hold the same file names; two saved tables are compared by
    // their bytes, without reading their names.
    bool SameFiles(const FileTable& other) const;

  private:
    // The names and what is made of them: filled by Make, or by the first Load of a saved table.
    struct Listing {
        std::vector<ustring> names;                                   // sorted
        std::shared_ptr<const PathManagement::PathItemVector> items;  // parallel to names
        boost::unordered_flat_map<std::u16string_view, std::uint32_t, searchpath_internal::NameHash,
                                  searchpath_internal::NameEqual>
            index;
    };
    const Listing& Load() const {
        if (m_image)
            std::call_once(m_loaded, [this] { LoadSaved(); });
        return *m_listing;
    }
    void LoadSaved() const;
    void Fill(std::vector<ustring> names) const;

    foundation::storage::vfs::AbsoluteIRI m_location;
    std::size_t m_count = 0;
    std::vector<SpecialChild> m_specials;
    std::shared_ptr<const CacheImage> m_image;
    std::uint32_t m_record = 0;
    std::string_view m_block;
    mutable std::once_flag m_loaded;
    // Apart, so that a saved table that is never read costs none of it.
    mutable std::unique_ptr<const Listing> m_listing;
};

}  // namespace Velmora::SearchPath
