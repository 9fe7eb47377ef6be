#pragma once
// MainSearchPath: the product's search path over scanned folders, as one immutable snapshot.
//
// Besides the entries it keeps a path-wide index from file name to the entries that hold it, in
// path order, so that FindFirstInScope and GetMethodEntriesByName cost a few hash lookups whatever
// the number of folders. A snapshot never changes; a change of the path builds a new one, reusing
// the entry objects of unchanged folders. Any number of threads may read one snapshot at once.
//
//   ScanReport report;
//   auto path = MainSearchPath::Scan({AbsoluteIRI(u"file:///home/ada/geometry"),
//                                     AbsoluteIRI(u"file:///home/ada/utils")}, report);
//   const std::uint32_t primary[] = {0};
//   const ustring name = u"area";  // a target borrows its name and extensions
//   const std::vector<ustring> exts = {u".vl"};
//   auto hit = path->FindFirstInScope(SearchScope(primary), SearchTarget(name, exts),
//                                     FilenameMatchingPolicy::PlatformDefault);
//   // hit->GetPathItem() is geometry/area.vl if geometry has one, else utils/area.vl

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/folder_entry.hpp>
#include <velmora/searchpath/folder_scanner.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT MainSearchPath final
    : public PathManagement::IPath,
      public std::enable_shared_from_this<MainSearchPath> {
  public:
    // Create: the path over entries already scanned, in path order. A main entry whose location is
    // already on the path is left out (its first occurrence stays), and so is one that another
    // main entry holds as a special subfolder ("+", "@", private, resources), before or after it:
    // such a folder is reached through its holder only, whatever the order.
    static std::shared_ptr<const MainSearchPath> Create(
        std::vector<std::shared_ptr<const FolderEntry>> mainEntries);

    // Scan: scans the folders (reusing entries of `cache` where they are unchanged) and creates the
    // path. Folders that cannot be used and repeated folders are reported and left out.
    static std::shared_ptr<const MainSearchPath> Scan(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders, ScanReport& report,
        const EntryCache* cache = nullptr);

    // Replacement: a new reading of the folder at `position` of GetFolderEntries(); a null entry
    // takes the folder off the path (it vanished).
    struct Replacement {
        std::size_t position;
        std::shared_ptr<const FolderEntry> entry;
    };
    // Update: the path that `previous` becomes when some of its main entries are read anew, for a
    // refresh that must cost in proportion to the folders that changed, not to the path. The new
    // path shares everything else with `previous`, and its index is ready when it is returned:
    // derived from `previous`'s at a cost that follows the folders read anew.
    // REQUIRES: each replacement is for the folder at its position, positions ascending.
    static std::shared_ptr<const MainSearchPath> Update(const MainSearchPath& previous,
                                                        const std::vector<Replacement>& replaced);

    // Rearrange: the path of `mainEntries`, nearly all of them `previous`'s own, as Create would
    // make it; its index is derived from `previous`'s as Update's is. A change of a long path
    // (folders added, taken off, moved) thus costs in proportion to the folders it touches, and
    // the first lookups on it cost what later ones do. REQUIRES: no two entries are of one folder
    // (as Revalidate gives).
    static std::shared_ptr<const MainSearchPath> Rearrange(
        const MainSearchPath& previous,
        std::vector<std::shared_ptr<const FolderEntry>> mainEntries);

    // Revalidate: Scan, starting from `known`, the main entries of an earlier scan in path order
    // (those of a path cache): a known entry whose folders all keep their stamps stands for its
    // folder at one stat per folder, and only the other folders are scanned. The first `fresh`
    // known entries were read just now by this process, and stand for their folders unchecked.
    static std::shared_ptr<const MainSearchPath> Revalidate(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
        const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
        const EntryCache* cache = nullptr, std::size_t fresh = 0);
    // RevalidateEntries: the main entries that Revalidate makes its path of, one per folder in
    // order (repeated folders left out), null for a folder that cannot be used.
    // `foldersAreUnique` spares the search for repeated folders of a list known to have none.
    static std::vector<std::shared_ptr<const FolderEntry>> RevalidateEntries(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
        const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
        const EntryCache* cache = nullptr, std::size_t fresh = 0, bool foldersAreUnique = false);

    ~MainSearchPath() override;

    // IPath
    PathManagement::SharedPathEntryVector GetMainEntries() const override;
    PathManagement::PathEntryVector GetMethodEntries() const override;
    PathManagement::PathEntryVector GetMethodEntriesByName(
        PathManagement::SearchScope scope, const ustring& name,
        FilenameMatchingPolicy policy) const override;
    PathManagement::PathEntryVector GetPartiallyMatchingEntries(
        PathManagement::SearchScope scope, const ustring& partialName,
        FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const PathManagement::IPathEntry> GetMainEntryForEntry(
        const PathManagement::IPathEntry& entry) const override;
    std::shared_ptr<const PathManagement::IPathEntry> GetParentEntryForEntry(
        const PathManagement::IPathEntry& entry) const override;
    std::shared_ptr<const PathManagement::IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::AbsoluteIRI& location,
        FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const PathManagement::IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& location) const override;
    PathManagement::OptionalFoundItem FindFirstInScope(
        PathManagement::SearchScope scope, const PathManagement::detail::SearchTarget& target,
        FilenameMatchingPolicy policy) const override;
    // FindFirstHolderInScope: the entry in which FindFirstInScope finds the target with names
    // matched exactly, told by the path's index of file names alone without reading the entry's
    // files, and the position in the target's extensions of the extension the file has there:
    // the file is the target's base name (its last part) followed by that extension. For callers
    // that need only where the file is. Nothing when no entry in the scope holds it. The index is
    // trusted: where a path cache's index and its folders' lists disagree (a cache written
    // wrongly), FindFirstInScope passes over the folder and this does not.
    struct Holder {
        const FolderEntry* entry;  // lives as long as the path
        std::size_t extension;
    };
    std::optional<Holder> FindFirstHolderInScope(
        PathManagement::SearchScope scope,
        const PathManagement::detail::SearchTarget& target) const;
    std::vector<PathManagement::FoundItem> FindAllInScope(
        PathManagement::SearchScope scope, const PathManagement::detail::SearchTarget& target,
        FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(PathManagement::SearchScope scope,
                      const PathManagement::EntryCallback& callback) const override;
    bool ConcurrentForEachEntry(PathManagement::SearchScope scope,
                                const PathManagement::EntryCallback& callback) const override;
    bool FirstEntryIsBeforeSecondOnPath(const PathManagement::IPathEntry& first,
                                        const PathManagement::IPathEntry& second) const override;
    bool IsEntryOnPath(const PathManagement::IPathEntry& entry) const override;

    // The main entries with their host type, in path order.
    const std::vector<std::shared_ptr<const FolderEntry>>& GetFolderEntries() const noexcept {
        return m_mainFolders;
    }
    // Every entry of the path, main and sub-entries, in path order.
    std::size_t GetEntryCount() const noexcept;
    // The number of files that the path's entries hold (resources folders excluded).
    std::size_t GetFileCount() const noexcept { return m_fileCount; }
    // PrepareForChanges: builds now the tables of the path's index that the first change or
    // refresh after a scan would otherwise build on its thread (the entries by location, the
    // class folders, the folder names), for a program that keeps the path and expects changes
    // and has a thread with nothing else to do meanwhile. They take about as much memory again
    // as the index's names. Any thread; readers are not held up.
    void PrepareForChanges() const;

  private:
    struct Index;
    struct FoldedIndex;
    // Each folder of a path by its place in the folder list, one main entry per place.
    struct FolderPlaces;
    static std::shared_ptr<const MainSearchPath> Create(
        std::vector<std::shared_ptr<const FolderEntry>> mainEntries, const FolderPlaces* places);
    static std::vector<std::shared_ptr<const FolderEntry>> RevalidateEntries(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
        const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
        const EntryCache* cache, std::size_t fresh, FolderPlaces* places);
    MainSearchPath();

    // For each main entry, whether another one holds its folder as a special subfolder; empty
    // when none can (no main entry has a special folder's name).
    static std::vector<char> HeldMains(const std::vector<std::shared_ptr<const FolderEntry>>& mains,
                                       const FolderPlaces* places);

    const FoldedIndex& Folded() const;

    // Made whole, or derived from the path before it, when the path is made: a lookup never waits
    // for it.
    static std::shared_ptr<const MainSearchPath> Derive(
        const MainSearchPath& previous, std::vector<std::shared_ptr<const FolderEntry>> mainEntries,
        const std::vector<std::uint32_t>& from, std::size_t fileCount);

    std::vector<std::shared_ptr<const FolderEntry>> m_mainFolders;
    // Made on first use: a list for callers of the interface, not for lookups.
    mutable std::once_flag m_mainsOnce;
    mutable PathManagement::SharedPathEntryVector m_mains;
    std::size_t m_fileCount = 0;
    // Whether a main entry has a special folder's name: a change of such a path may change which
    // folders their holders hold, and is made whole.
    bool m_specialMains = false;
    std::unique_ptr<const Index> m_index;
    mutable std::once_flag m_foldedOnce;
    mutable std::unique_ptr<const FoldedIndex> m_folded;
};

}  // namespace Velmora::SearchPath
