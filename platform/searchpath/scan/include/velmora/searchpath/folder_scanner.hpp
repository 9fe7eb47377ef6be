#pragma once
// FolderScanner: reads folders from disk into FolderEntry trees.
//
// A scan never aborts on a bad folder. A folder that does not exist, is not a folder, cannot be
// read or leads round a symbolic-link loop contributes nothing, and the problem is reported in the
// ScanReport and on the diagnostic channel "platform::searchpath::scan".
//
// With an EntryCache, a folder whose stamp did not change keeps its listing, and an entry whose
// listing and sub-entries are all unchanged keeps its very object; a changed folder gets a new
// object, and so does every entry above it.
//
//   EntryCache cache;
//   ScanReport report;
//   FolderScanner scanner(&cache);
//   auto tb = scanner.ScanMainEntry(AbsoluteIRI(u"file:///home/ada/tb"), report);
//   auto again = scanner.ScanMainEntry(AbsoluteIRI(u"file:///home/ada/tb"), report);
//   // again == tb unless something under /home/ada/tb changed

#include <atomic>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/folder_entry.hpp>

namespace Velmora::SearchPath {

// ScanProblem: one folder that could not be used.
struct VELMORA_SEARCHPATH_EXPORT ScanProblem {
    enum class Kind {
        Missing,      // nothing exists at the location
        NotAFolder,   // something that is not a folder is there
        Unreadable,   // the folder exists but cannot be listed (errorNumber says why)
        SymlinkLoop,  // the folder leads back to itself through symbolic links
        Duplicate,    // the folder is already on the path
    };
    Kind kind;
    foundation::storage::vfs::AbsoluteIRI location;
    int errorNumber = 0;

    // A sentence for users: "cannot read folder /home/ada/x: Permission denied".
    std::string Describe() const;
};

// ScanReport: the problems met by one or more scans, in the order of the path.
class VELMORA_SEARCHPATH_EXPORT ScanReport {
  public:
    void Add(ScanProblem problem);
    void Append(const ScanReport& other);
    const std::vector<ScanProblem>& Problems() const noexcept { return m_problems; }
    bool empty() const noexcept { return m_problems.empty(); }

  private:
    std::vector<ScanProblem> m_problems;
};

// EntryCache: the entries of earlier scans by location and kind, for reuse. Thread-safe.
class VELMORA_SEARCHPATH_EXPORT EntryCache {
  public:
    std::shared_ptr<const FolderEntry> Find(const foundation::storage::vfs::AbsoluteIRI& location,
                                            PathEntryType kind) const;
    // Keep exactly the given entries and everything beneath them, forgetting the rest. Where two
    // given entries are of one folder, the first one given is kept, with everything beneath it.
    void Retain(const std::vector<std::shared_ptr<const FolderEntry>>& mainEntries);
    // The same for a path's entries held elsewhere: shared, not copied.
    void Retain(std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>> mainEntries);
    std::size_t size() const;
    // Forget: drops the entries at `location` (of every kind), so that the next scan lists that
    // folder again even if its stamp looks unchanged.
    void Forget(const foundation::storage::vfs::AbsoluteIRI& location);
    // Remember: adds `entry` and everything beneath it, replacing entries at the same locations.
    void Remember(const std::shared_ptr<const FolderEntry>& entry);

  private:
    struct Key {
        foundation::storage::vfs::AbsoluteIRI location;
        PathEntryType kind;
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& k) const noexcept {
            return k.location.hashValue() ^
                   (static_cast<std::size_t>(k.kind) * 0x9E3779B97F4A7C15ull);
        }
    };
    // Builds m_entries from the entries last retained; m_mutex held exclusively.
    void Build() const;

    mutable std::shared_mutex m_mutex;
    mutable boost::unordered_flat_map<Key, std::shared_ptr<const FolderEntry>, KeyHash> m_entries;
    mutable std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>> m_pending;
    // Finds answered from m_pending by a search, without building m_entries: a change that adds a
    // folder or two to a large path asks once or twice.
    mutable std::atomic<int> m_searches{0};
};

class VELMORA_SEARCHPATH_EXPORT FolderScanner {
  public:
    explicit FolderScanner(const EntryCache* cache = nullptr) : m_cache(cache) {}

    // ScanMainEntry: the entry for a folder put on the path, with its special sub-entries; null
    // (and a problem in `report`) if the folder cannot be used.
    std::shared_ptr<const FolderEntry> ScanMainEntry(
        const foundation::storage::vfs::AbsoluteIRI& location, ScanReport& report) const;

    // ScanMainEntries: ScanMainEntry for each location, in parallel; the result has one element
    // per location (null where it failed) and the report lists problems in the locations' order.
    std::vector<std::shared_ptr<const FolderEntry>> ScanMainEntries(
        const std::vector<foundation::storage::vfs::AbsoluteIRI>& locations,
        ScanReport& report) const;

    // Unchanged: whether the folder of `main`, and every folder of its tree, is still as it was
    // read (one stat each, the same stamps), so that the entry can stand for it without a scan.
    static bool Unchanged(const FolderEntry& main);

  private:
    const EntryCache* m_cache;
};

// FoldersListed: how many folders the scans of this process have listed from disk so far, on every
// thread; folders that a cache spared are not counted. For a progress display of a long start.
VELMORA_SEARCHPATH_EXPORT std::uint64_t FoldersListed() noexcept;

// ListOrdinarySubfolders: the ordinary subfolders of `root` (special folders left out), in name
// order: the folders that a toolbox at `root` puts on the path. Throws
// foundation::storage::vfs::Exception if `root` cannot be listed.
VELMORA_SEARCHPATH_EXPORT std::vector<foundation::storage::vfs::AbsoluteIRI> ListOrdinarySubfolders(
    const foundation::storage::vfs::AbsoluteIRI& root);

}  // namespace Velmora::SearchPath
