#pragma once
// FolderEntry: the host's path entry, a folder scanned from disk.
//
// An entry is immutable once built. It holds the folder's files, indexed by name so that FindFile
// is a hash lookup per extension, and its special sub-entries ("+" package and "@" class folders,
// the private folder and the resources folder). It does not know its parent: the path that holds
// it does, which lets an unchanged sub-entry be shared by an old and a refreshed parent.
//
// Entries are made by FolderScanner; see folder_scanner.hpp.

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/export.hpp>

namespace Velmora::SearchPath {

using PathManagement::FilenameMatchingPolicy;
using PathManagement::PathEntryType;

// FolderStamp: what tells that a folder's listing may have changed since it was read.
struct FolderStamp {
    std::int64_t modifiedNs = 0;
    std::int64_t changedNs = 0;
    std::uint64_t inode = 0;
    std::uint64_t device = 0;
    std::uint64_t size = 0;
    // When the listing that goes with this stamp was read, in nanoseconds since the epoch; 0 when
    // that was long enough ago for the stamp to be trusted (a listing kept in the path cache).
    // A change made in the same timestamp tick as the listing leaves the stamp as it was, so a
    // stamp that close to its listing is not worth saving. Not part of what the folder is.
    std::int64_t listedNs = 0;

    friend bool operator==(const FolderStamp& a, const FolderStamp& b) noexcept {
        return a.modifiedNs == b.modifiedNs && a.changedNs == b.changedNs && a.inode == b.inode &&
               a.device == b.device && a.size == b.size;
    }
};

// FileTable: the files of one folder listing, shared by the entries made from that listing.
class FileTable;

class VELMORA_SEARCHPATH_EXPORT FolderEntry final
    : public PathManagement::IPathEntry,
      public std::enable_shared_from_this<FolderEntry> {
  public:
    struct Parts {
        foundation::storage::vfs::AbsoluteIRI location;
        foundation::storage::vfs::CanonicalAbsoluteIRI canonical;
        PathEntryType kind{};
        FolderStamp stamp;
        std::shared_ptr<const FileTable> files;
        std::vector<std::shared_ptr<const FolderEntry>> subEntries;  // ordered by name
    };
    explicit FolderEntry(Parts parts);
    ~FolderEntry() override;

    // IPathEntry
    PathEntryType GetPathEntryType() const override { return m_kind; }
    std::shared_ptr<const PathManagement::PathItemVector> GetItems() const override;
    foundation::storage::vfs::AbsoluteIRI GetAbsoluteIRI() const override { return m_location; }
    foundation::storage::vfs::CanonicalAbsoluteIRI GetCanonicalAbsoluteIRI() const override {
        return m_canonical;
    }
    std::shared_ptr<const IPathEntry> GetPrivateSubEntry() const override { return m_private; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry2() const override { return m_resources; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry3() const override { return nullptr; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry4() const override { return nullptr; }
    std::shared_ptr<const IPathEntry> GetSpecialSubEntry5() const override { return nullptr; }
    std::shared_ptr<const PathManagement::PathItem> FindFile(
        const PathManagement::detail::SearchTarget& target,
        FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(PathManagement::SearchScope scope,
                      const PathManagement::EntryCallback& callback) const override;
    PathManagement::SharedNameMatcher GetExtensionMatcher(
        FilenameMatchingPolicy policy) const override;
    ustring GetName() const override;
    PathManagement::SharedPathEntryVector GetSubEntries() const override { return m_subEntryList; }

    // The host's own operations.
    const foundation::storage::vfs::AbsoluteIRI& GetLocation() const noexcept { return m_location; }
    const FolderStamp& GetStamp() const noexcept { return m_stamp; }
    const std::shared_ptr<const FileTable>& GetFileTable() const noexcept { return m_files; }
    const std::vector<std::shared_ptr<const FolderEntry>>& SubEntries() const noexcept {
        return m_subEntries;
    }
    // The names of the folders on the way to this one, root first: {u"home", u"ada", u"tb"}.
    // Worked out when first asked for: a start from a path cache makes entries for every folder of
    // the path, and most are never asked.
    const std::vector<ustring>& GetFolderNames() const;
    // The number of files in the folder.
    std::size_t GetFileCount() const noexcept;
    // The sorted file names of the folder (name and extension together). A folder loaded from a
    // path cache reads them from the cache the first time they are asked for.
    std::span<const ustring> GetFileNames() const;

    // FindFileNamed: the file named `baseName` followed by the first of `extensions` that exists.
    std::shared_ptr<const PathManagement::PathItem> FindFileNamed(
        std::u16string_view baseName, std::span<const ustring> extensions,
        FilenameMatchingPolicy policy) const;
    // EndsWithFolders: whether the location ends with the folders named by `parts`, a "+" or "@"
    // in front of a folder name being optional, and every "+" folder between the match and the
    // ordinary folder that owns it being named. An empty `parts` matches any entry.
    bool EndsWithFolders(std::span<const std::u16string_view> parts,
                         FilenameMatchingPolicy policy) const;

  private:
    bool Walk(PathManagement::SearchScope scope, const PathManagement::EntryCallback& callback,
              bool isRoot) const;

    foundation::storage::vfs::AbsoluteIRI m_location;
    foundation::storage::vfs::CanonicalAbsoluteIRI m_canonical;
    PathEntryType m_kind;
    FolderStamp m_stamp;
    std::shared_ptr<const FileTable> m_files;
    std::vector<std::shared_ptr<const FolderEntry>> m_subEntries;
    PathManagement::SharedPathEntryVector m_subEntryList;
    std::shared_ptr<const IPathEntry> m_private;
    std::shared_ptr<const IPathEntry> m_resources;
    mutable std::once_flag m_namesOnce;
    mutable std::vector<ustring> m_names;
};

// SplitPartialName: the non-empty parts of a name between separators:
// u"+shapes//circle" => {u"+shapes", u"circle"}. The views point into `name`.
VELMORA_SEARCHPATH_EXPORT std::vector<std::u16string_view> SplitPartialName(
    std::u16string_view name);

// Worked out alone, not taken from every folder name of the location: a path names each main
// entry as it is made, and would otherwise hold all of their names for as long as it lives.
inline ustring FolderEntry::GetName() const {
    const ustring path = m_location.getPath();
    const auto parts = SplitPartialName(path);
    return parts.empty() ? ustring() : ustring(parts.back());
}

}  // namespace Velmora::SearchPath
