#pragma once
// IPath: an ordered search path of entries, the interface that the main search path and every
// view over paths implement.
//
// Contracts of every implementation:
//   - Lists and walks present entries and found items in path order.
//   - "First" means first in path order.
//   - A lookup that finds nothing returns null, an empty optional, an empty list or false; it never
//     throws for that.
//   - An entry beneath a main entry sorts equal to it in FirstEntryIsBeforeSecondOnPath.
//   - All operations are const and may be called from several threads at once.

#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathinterfaces/search_scope.hpp>
#include <velmora/platform/export.hpp>

namespace Velmora::PathManagement {

class VELMORA_PLATFORM_EXPORT IPath {
  public:
    virtual ~IPath();

    // The main entries, in path order.
    virtual SharedPathEntryVector GetMainEntries() const = 0;
    // All method entries ("@" class folders) in path order.
    virtual PathEntryVector GetMethodEntries() const = 0;
    // The method entries named `name` (the folder name without its "@") whose parent's kind the
    // scope selects.
    virtual PathEntryVector GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                   FilenameMatchingPolicy policy) const = 0;
    // The entries within the scope whose location ends with the folders that `partialName` names
    // ("shapes/@Polygon"); a leading "+" or "@" may be left out of a folder name.
    virtual PathEntryVector GetPartiallyMatchingEntries(SearchScope scope,
                                                        const ustring& partialName,
                                                        FilenameMatchingPolicy policy) const = 0;
    // The main entry to which `entry` belongs. REQUIRES: IsEntryOnPath(entry).
    virtual std::shared_ptr<const IPathEntry> GetMainEntryForEntry(
        const IPathEntry& entry) const = 0;
    // The parent of `entry`, null for a main entry. REQUIRES: IsEntryOnPath(entry).
    virtual std::shared_ptr<const IPathEntry> GetParentEntryForEntry(
        const IPathEntry& entry) const = 0;
    // The entry at `location` compared under `policy`, null if none.
    virtual std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::AbsoluteIRI& location,
        FilenameMatchingPolicy policy) const = 0;
    // The entry whose real location is `location`, null if none.
    virtual std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& location) const = 0;
    // The first file on the path that the target names, among the entries the scope selects.
    virtual OptionalFoundItem FindFirstInScope(SearchScope scope,
                                               const detail::SearchTarget& target,
                                               FilenameMatchingPolicy policy) const = 0;
    // Every entry's file that the target names, one per entry, in path order.
    virtual std::vector<FoundItem> FindAllInScope(SearchScope scope,
                                                  const detail::SearchTarget& target,
                                                  FilenameMatchingPolicy policy) const = 0;
    // Calls `callback` for every entry the scope selects, in path order; true if a call stopped it.
    virtual bool ForEachEntry(SearchScope scope, const EntryCallback& callback) const = 0;
    // As ForEachEntry, but `callback` may be called from several threads at once.
    virtual bool ConcurrentForEachEntry(SearchScope scope, const EntryCallback& callback) const = 0;
    // Whether `first` comes before `second` on the path.
    virtual bool FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                                const IPathEntry& second) const = 0;
    // Whether `entry` (this very object) is on the path.
    virtual bool IsEntryOnPath(const IPathEntry& entry) const = 0;

  protected:
    IPath() = default;
    IPath(const IPath&) = default;
    IPath& operator=(const IPath&) = default;
};

}  // namespace Velmora::PathManagement
