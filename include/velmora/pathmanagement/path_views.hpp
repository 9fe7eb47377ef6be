#pragma once
// Path views: paths made of other paths.
//
//   ConcatenatedPath    several paths chained end to end, answered by asking each in order;
//   DeduplicatedPath    the same, showing each folder and each found file once;
//   MultiMaskedPath     one path with some of its main entries (and all beneath them) hidden.
//
// A view owns only shared references to what it wraps and never copies entries. All operations
// may be called from several threads at once. Each view fills its list of main entries once, on
// the first GetMainEntries, and never refreshes it: build views over paths that do not change
// while the view lives, and build a new view after a change.
//
//   auto user = MainSearchPath::Scan(userFolders, report);
//   auto product = MainSearchPath::Scan(productFolders, report);
//   auto both = std::make_shared<DeduplicatedPath>(
//       std::vector<std::shared_ptr<const IPath>>{user, product});
//   FindFirstFileVisibleOnPath(*both, target, policy);  // user folders first, repeats hidden

#include <atomic>
#include <functional>
#include <memory>
#include <unordered_set>
#include <vector>

#include <boost/thread/once.hpp>

#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/export.hpp>

namespace Velmora::PathManagement {

// ConcatenatedPath: its entries are those of its first sub-path, then those of its second, and so
// on. Sub-paths are kept exactly as given: a ConcatenatedPath among them is not flattened and the
// same path may occur twice. REQUIRES: no sub-path is null.
class VELMORA_PATHMANAGEMENT_EXPORT ConcatenatedPath : public IPath {
  public:
    explicit ConcatenatedPath(std::vector<std::shared_ptr<const IPath>>&& paths);
    ConcatenatedPath(const std::shared_ptr<const IPath>& first,
                     const std::shared_ptr<const IPath>& second);
    ~ConcatenatedPath() override;

    // The main entries of every sub-path in order, cached on the first call (a throwing first
    // call leaves the cache empty, and the next call tries again).
    SharedPathEntryVector GetMainEntries() const override;
    PathEntryVector GetMethodEntries() const override;
    PathEntryVector GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                           FilenameMatchingPolicy policy) const override;
    PathEntryVector GetPartiallyMatchingEntries(SearchScope scope, const ustring& partialName,
                                                FilenameMatchingPolicy policy) const override;
    // REQUIRES: the entry is on some sub-path; the owning sub-path answers.
    std::shared_ptr<const IPathEntry> GetMainEntryForEntry(const IPathEntry& entry) const override;
    std::shared_ptr<const IPathEntry> GetParentEntryForEntry(
        const IPathEntry& entry) const override;
    // Tries the location as a canonical one on every sub-path (through this object's canonical
    // overload) before it tries the location with the policy on any sub-path.
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::AbsoluteIRI& location,
        FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& location) const override;
    OptionalFoundItem FindFirstInScope(SearchScope scope, const detail::SearchTarget& target,
                                       FilenameMatchingPolicy policy) const override;
    std::vector<FoundItem> FindAllInScope(SearchScope scope, const detail::SearchTarget& target,
                                          FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
    // The sub-paths one after another, each as concurrent as it is itself.
    bool ConcurrentForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
    // Decided by the first sub-path that holds either entry; an entry on no sub-path is never
    // before anything.
    bool FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                        const IPathEntry& second) const override;
    bool IsEntryOnPath(const IPathEntry& entry) const override;

  protected:
    // Returns the cached main entries, filling the cache with `build()` on the first call.
    SharedPathEntryVector CachedMainEntries(const std::function<PathEntryVector()>& build) const;
    // The cached main entries if they have been published, else null; never waits.
    SharedPathEntryVector PublishedMainEntries() const;

    const std::vector<std::shared_ptr<const IPath>>& SubPaths() const noexcept { return m_paths; }

  private:
    const IPath& OwningSubPath(const IPathEntry& entry) const;

    std::vector<std::shared_ptr<const IPath>> m_paths;
    mutable boost::once_flag m_once = BOOST_ONCE_INIT;
    mutable SharedPathEntryVector m_mainEntries;
    mutable std::atomic<bool> m_published{false};
};

// DeduplicatedPath: a ConcatenatedPath that shows every folder once (the first entry with each
// location, in path order) and every found file once (the first with each folder location and
// file name). Lookups of the first match need no filtering: the first occurrence already wins.
class VELMORA_PATHMANAGEMENT_EXPORT DeduplicatedPath : public ConcatenatedPath {
  public:
    explicit DeduplicatedPath(std::vector<std::shared_ptr<const IPath>>&& paths);
    ~DeduplicatedPath() override;

    SharedPathEntryVector GetMainEntries() const override;
    PathEntryVector GetMethodEntries() const override;
    PathEntryVector GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                           FilenameMatchingPolicy policy) const override;
    PathEntryVector GetPartiallyMatchingEntries(SearchScope scope, const ustring& partialName,
                                                FilenameMatchingPolicy policy) const override;
    std::vector<FoundItem> FindAllInScope(SearchScope scope, const detail::SearchTarget& target,
                                          FilenameMatchingPolicy policy) const override;
    // Skips entries whose location this walk has already visited. Walks the cached main entries
    // when GetMainEntries has already found some, else the sub-paths.
    bool ForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
    // Always sequential: the set of visited locations belongs to one walk on one thread.
    bool ConcurrentForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
};

// MultiMaskedPath: one path with some of its main entries masked: a masked main entry and every
// entry that belongs to it behave as if they were not on the path. Masking is by object: another
// entry object for the same folder is not masked. REQUIRES: the masked entries are main entries of
// the path, and the path sorts every entry equal to its main entry.
class VELMORA_PATHMANAGEMENT_EXPORT MultiMaskedPath : public IPath {
  public:
    MultiMaskedPath(std::shared_ptr<const IPath> path,
                    std::vector<std::shared_ptr<const IPathEntry>> masked);
    ~MultiMaskedPath() override;

    // IsMasked: whether the entry is on the underlying path and belongs to a masked main entry.
    bool IsMasked(const IPathEntry& entry) const;
    // RemoveMaskedEntries: the list, in path order, without the runs of masked entries.
    PathEntryVector RemoveMaskedEntries(PathEntryVector entries) const;

    SharedPathEntryVector GetMainEntries() const override;
    PathEntryVector GetMethodEntries() const override;
    PathEntryVector GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                           FilenameMatchingPolicy policy) const override;
    PathEntryVector GetPartiallyMatchingEntries(SearchScope scope, const ustring& partialName,
                                                FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const IPathEntry> GetMainEntryForEntry(const IPathEntry& entry) const override;
    std::shared_ptr<const IPathEntry> GetParentEntryForEntry(
        const IPathEntry& entry) const override;
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::AbsoluteIRI& location,
        FilenameMatchingPolicy policy) const override;
    std::shared_ptr<const IPathEntry> GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& location) const override;
    // The underlying path's first match if its entry is not masked; otherwise the first match
    // directly after a masked entry's run, trying the masked entries in the order they were given.
    // Only that one match per masked entry is considered.
    OptionalFoundItem FindFirstInScope(SearchScope scope, const detail::SearchTarget& target,
                                       FilenameMatchingPolicy policy) const override;
    std::vector<FoundItem> FindAllInScope(SearchScope scope, const detail::SearchTarget& target,
                                          FilenameMatchingPolicy policy) const override;
    bool ForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
    bool ConcurrentForEachEntry(SearchScope scope, const EntryCallback& callback) const override;
    bool FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                        const IPathEntry& second) const override;
    bool IsEntryOnPath(const IPathEntry& entry) const override;

  private:
    EntryCallback SkippingMasked(const EntryCallback& callback) const;

    std::shared_ptr<const IPath> m_path;
    std::vector<std::shared_ptr<const IPathEntry>> m_masked;
    std::unordered_set<std::shared_ptr<const IPathEntry>> m_maskedSet;
    mutable boost::once_flag m_once = BOOST_ONCE_INIT;
    mutable SharedPathEntryVector m_mainEntries;
    mutable std::atomic<bool> m_published{false};
};

}  // namespace Velmora::PathManagement
