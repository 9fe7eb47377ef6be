#pragma once
// IPathEntry: one folder of a search path, with the files it holds and the special sub-entries
// beneath it.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathinterfaces/search_scope.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

namespace detail {
struct SearchTarget;
}  // namespace detail

// The kind of a folder by its base name; the enumerators are declared with the search target.
enum class PathEntryType : std::uint32_t;

class IPathEntry;

using PathEntryPtr = std::shared_ptr<const IPathEntry>;
// An entry list: entries in path order.
using PathEntryVector = std::vector<PathEntryPtr>;
// A shared entry list: handed to many callers without copying.
using SharedPathEntryVector = std::shared_ptr<const PathEntryVector>;

// EntryCallback: called for each entry of a walk; returning true stops the walk at once.
using EntryCallback = std::function<bool(const std::shared_ptr<const IPathEntry>&)>;

// NameMatcher: says whether two names are the same under one FilenameMatchingPolicy. Used to
// compare an extension of a search with an item's extension, and folder names with each other.
using NameMatcher = std::function<bool(const ustring&, const ustring&)>;
using SharedNameMatcher = std::shared_ptr<const NameMatcher>;

// IPathEntry. Entries are immutable once built and are held as shared pointers to const; every
// operation may be called from several threads at once.
class VELMORA_PLATFORM_EXPORT IPathEntry {
  public:
    virtual ~IPathEntry();

    // The kind of the entry: Ordinary for a main entry, else the kind of its special folder.
    virtual PathEntryType GetPathEntryType() const = 0;
    // The files of the entry's folder, ordered by file name (code unit order).
    virtual std::shared_ptr<const PathItemVector> GetItems() const = 0;
    // The location of the entry's folder, as it was put on the path.
    virtual foundation::storage::vfs::AbsoluteIRI GetAbsoluteIRI() const = 0;
    // The real location of the entry's folder, symbolic links resolved.
    virtual foundation::storage::vfs::CanonicalAbsoluteIRI GetCanonicalAbsoluteIRI() const = 0;

    // The five special-subfolder accessors; each is null when the entry has no such subfolder.
    // GetPrivateSubEntry: the "private" folder, searched before the entry itself from inside it.
    virtual std::shared_ptr<const IPathEntry> GetPrivateSubEntry() const = 0;
    // GetSpecialSubEntry2: the "resources" folder.
    virtual std::shared_ptr<const IPathEntry> GetSpecialSubEntry2() const = 0;
    // GetSpecialSubEntry3 to 5: reserved; the host's entries have none and return null. Package
    // and class folders, of which an entry may have many, are reached by GetSubEntries.
    virtual std::shared_ptr<const IPathEntry> GetSpecialSubEntry3() const = 0;
    virtual std::shared_ptr<const IPathEntry> GetSpecialSubEntry4() const = 0;
    virtual std::shared_ptr<const IPathEntry> GetSpecialSubEntry5() const = 0;

    // FindFile: the file that the target names in this entry's folder, trying the target's
    // extensions in order; null if there is none. A target whose base name holds separators
    // ("+shapes/circle") matches only if the folders it names end this entry's location.
    virtual std::shared_ptr<const PathItem> FindFile(const detail::SearchTarget& target,
                                                     FilenameMatchingPolicy policy) const = 0;
    // ForEachEntry: calls `callback` for this entry and the entries beneath it whose kinds the
    // scope selects, parents before children; stops and returns true when a call returns true.
    virtual bool ForEachEntry(SearchScope scope, const EntryCallback& callback) const = 0;
    // GetExtensionMatcher: the comparison of names under `policy`.
    virtual SharedNameMatcher GetExtensionMatcher(FilenameMatchingPolicy policy) const = 0;

    // The base name of the entry's folder: u"+shapes".
    virtual ustring GetName() const = 0;
    // The special sub-entries directly beneath this one ("+", "@", private, resources), by name.
    virtual SharedPathEntryVector GetSubEntries() const = 0;

  protected:
    IPathEntry() = default;
    IPathEntry(const IPathEntry&) = default;
    IPathEntry& operator=(const IPathEntry&) = default;
};

// NamesMatch: whether two names are the same under `policy`.
VELMORA_PLATFORM_EXPORT bool NamesMatch(std::u16string_view a, std::u16string_view b,
                                        FilenameMatchingPolicy policy) noexcept;

// GetNameMatcher: a shared NameMatcher for `policy` (one object per policy, made once).
VELMORA_PLATFORM_EXPORT SharedNameMatcher GetNameMatcher(FilenameMatchingPolicy policy);

}  // namespace Velmora::PathManagement
