#pragma once
// PathItem and FoundItem: a file held by a path entry, and the answer of a file search.

#include <memory>
#include <vector>

#include <boost/optional.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

class IPathEntry;

// PathItem: one file of a path entry's folder. The name and the extension together are the file's
// name ("area" and ".vl" for area.vl; "README" and "" for README); with the folder's location they
// identify one file.
class VELMORA_PLATFORM_EXPORT PathItem {
  public:
    PathItem(foundation::storage::vfs::AbsoluteIRI location, ustring name, ustring extension);

    // The location of the folder that holds the file.
    const foundation::storage::vfs::AbsoluteIRI& GetLocation() const noexcept { return m_location; }
    const ustring& GetName() const noexcept { return m_name; }
    const ustring& GetExtension() const noexcept { return m_extension; }
    // The whole file name: name followed by extension.
    ustring GetFileName() const { return m_name + m_extension; }
    // The location of the file itself.
    foundation::storage::vfs::AbsoluteIRI GetAbsoluteIRI() const;

    friend bool operator==(const PathItem& a, const PathItem& b) noexcept {
        return a.m_location == b.m_location && a.m_name == b.m_name &&
               a.m_extension == b.m_extension;
    }

  private:
    foundation::storage::vfs::AbsoluteIRI m_location;
    ustring m_name;
    ustring m_extension;
};

using PathItemVector = std::vector<std::shared_ptr<const PathItem>>;

// FoundItem: a file that a search found, and the entry in which it was found.
class FoundItem {
  public:
    FoundItem(std::shared_ptr<const PathItem> item,
              std::shared_ptr<const IPathEntry> entry) noexcept
        : m_item(std::move(item)), m_entry(std::move(entry)) {}

    const std::shared_ptr<const PathItem>& GetPathItem() const noexcept { return m_item; }
    const std::shared_ptr<const IPathEntry>& GetPathEntry() const noexcept { return m_entry; }

    // Two found items are equal when they name the same item object in the same entry object.
    friend bool operator==(const FoundItem& a, const FoundItem& b) noexcept = default;

  private:
    std::shared_ptr<const PathItem> m_item;
    std::shared_ptr<const IPathEntry> m_entry;
};

// The answer of FindFirstInScope: whether something was found, and what.
using OptionalFoundItem = boost::optional<FoundItem>;

}  // namespace Velmora::PathManagement
