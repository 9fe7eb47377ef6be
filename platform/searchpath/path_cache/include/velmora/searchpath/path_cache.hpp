#pragma once
// The path cache: the scanned folders of a search path saved to a file, so that a later start
// reads one stat per folder instead of listing every folder again.
//
// The cache holds, for each folder of the path's entry trees, its location, its stamp (device,
// inode, size, modification and change time), its file names and its special subfolders. A start
// hands the loaded entries to the scan as known entries (an EntryCache): a folder whose stamp is
// unchanged keeps its cached listing, any other folder is listed again.
//
// A stamp within kRacyStampWindowNs of the moment its folder was listed is saved as unknown: on a
// file system with coarse timestamps, a change made in the same tick as the listing would leave
// the folder's stamp as it was, and the folder must be listed again at the next start to see it.
//
// Loading never trusts a damaged file: a cache that is missing, truncated, of another version or
// byte order, fails a checksum, or was written for another root is ignored (with a line on the
// debug channel "platform::searchpath::cache") and the caller scans.
//
//   SavePathCache(cacheFile, root, path->GetFolderEntries());
//   ...
//   EntryCache known;
//   known.Retain(LoadPathCache(cacheFile, root));
//   auto path = MainSearchPath::Scan(folders, report, &known);

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath_entry_factory.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/folder_entry.hpp>

namespace Velmora::SearchPath {

using FolderEntryList = std::vector<std::shared_ptr<const FolderEntry>>;

// How close to the time of its listing a stamp may be and still be trusted (coarse file systems
// keep times to a second or two).
inline constexpr std::int64_t kRacyStampWindowNs = 2'000'000'000;

// PathCacheFactory: writes the path cache of the given main entries and everything beneath them.
class VELMORA_SEARCHPATH_EXPORT PathCacheFactory final : public PathManagement::IPathEntryFactory {
  public:
    // `writtenAtNs`: the time of writing, nanoseconds since the epoch, and the moment every stamp
    // is judged against as if its folder were listed then; if 0, the clock's now, and each
    // stamp is judged against its own listing (FolderStamp::listedNs).
    explicit PathCacheFactory(FolderEntryList mainEntries, std::int64_t writtenAtNs = 0);

    // Writes the whole cache and flushes the stream, so that a failed write surfaces here.
    void WriteCache(foundation::storage::vfs::ofstream& stream,
                    const foundation::storage::vfs::AbsoluteIRI& root) const override;

    // Encode: the cache's bytes, as WriteCache writes them.
    std::string Encode(const foundation::storage::vfs::AbsoluteIRI& root) const;

  private:
    FolderEntryList m_mains;
    std::int64_t m_writtenAtNs;
    std::int64_t m_judgedAtNs;
};

// ParsePathCache: the main entries saved in `bytes` for `root`; empty, with the reason in `why`,
// when the bytes are not a whole, intact cache of `root`. Never throws for bad bytes.
// `folders`, when given, is the path the entries are read for: a main entry saved at one of its
// locations shares that location's IRI, so that matching entries to folders compares nothing.
VELMORA_SEARCHPATH_EXPORT FolderEntryList ParsePathCache(
    std::string_view bytes, const foundation::storage::vfs::AbsoluteIRI& root, std::string& why,
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders = {});

// LoadPathCache: ParsePathCache of the file at `cacheFile`; empty when there is no usable cache
// there: anything but a regular file of the user's is not read (a link is not followed, a FIFO not
// waited on). The file is memory-mapped and its names read from it as they are asked for, unless
// `inMemory`: then it is read whole, so that another program truncating it cannot take the pages
// from under a program that runs on (a mapped page past the end of a file kills its reader).
VELMORA_SEARCHPATH_EXPORT FolderEntryList LoadPathCache(
    const foundation::storage::vfs::AbsoluteIRI& cacheFile,
    const foundation::storage::vfs::AbsoluteIRI& root,
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders = {}, bool inMemory = false);

// PathCacheReadAhead: reads the cache file at `cacheFile` whole on a thread of its own, for a
// LoadPathCache(..., inMemory = true) of the same file that comes soon after, which then takes the
// bytes read rather than reading them: so the read overlaps what a start does first (reading the
// path definition file). The load checks the file as always; bytes that no load took go with the
// handle, which waits for the read.
class VELMORA_SEARCHPATH_EXPORT PathCacheReadAhead {
  public:
    explicit PathCacheReadAhead(const foundation::storage::vfs::AbsoluteIRI& cacheFile);
    ~PathCacheReadAhead();
    PathCacheReadAhead(const PathCacheReadAhead&) = delete;
    PathCacheReadAhead& operator=(const PathCacheReadAhead&) = delete;

    struct Read;

  private:
    std::shared_ptr<Read> m_read;
};

// SavePathCache: writes the cache of `mainEntries` for `root` to a temporary file beside
// `cacheFile` and renames it over `cacheFile`, creating the folder if needed: a reader sees the
// old cache or the new one, never a part. Throws UnableToSaveToolboxCacheException (the old cache
// stays) or the storage layer's Exception.
VELMORA_SEARCHPATH_EXPORT void SavePathCache(const foundation::storage::vfs::AbsoluteIRI& cacheFile,
                                             const foundation::storage::vfs::AbsoluteIRI& root,
                                             const FolderEntryList& mainEntries);

// DefaultPathCacheFolder: $XDG_CACHE_HOME/vpath, else $HOME/.cache/vpath; empty when neither
// variable is set.
VELMORA_SEARCHPATH_EXPORT std::string DefaultPathCacheFolder();

// PathCacheFileName: the file name, within the cache folder, of the cache of the path that `key`
// names (a path definition file's location, a path's folders): a hash of it, "1f3a...c0.cache".
VELMORA_SEARCHPATH_EXPORT std::string PathCacheFileName(std::u16string_view key);

// SameEntries: whether two lists hold the same folders in the same order, each with the same stamp,
// files and sub-entries (the very same objects, or objects alike): a start whose entries are the
// same as the cached ones found no change, and its cache need not be written again.
VELMORA_SEARCHPATH_EXPORT bool SameEntries(const FolderEntryList& a, const FolderEntryList& b);

// CacheWorthSaving: whether a cache of `entries` is worth writing over the cache that holds
// `saved`. A start lists again every folder the cache lacks or holds stale, and writing a cache
// costs about what listing a fifth of its folders does: the cache is written once the folders and
// files it would make a start list again, or holds for folders no longer on the path, are more
// than 1/kUnsavedShareWorthSaving of the path's. Adding a folder to a large path thus costs one
// folder's listing at each later start, not a rewrite of the whole cache; a small path, or a
// large change, is written at once.
inline constexpr std::size_t kUnsavedShareWorthSaving = 64;
VELMORA_SEARCHPATH_EXPORT bool CacheWorthSaving(const FolderEntryList& saved,
                                                const FolderEntryList& entries);

}  // namespace Velmora::SearchPath
