#pragma once
// The cached start: where a path's cache lives, and when it is read and written again.
//
// The path cache (path_cache.hpp) spares a start the listing of every folder. Around it sits the
// policy that every program starting a path wants, the vpath command and an embedding runtime
// alike:
// - each path has its own cache file under DefaultPathCacheFolder(): one per path definition
//   file, one per folder list;
// - a start reads it and lists again only the folders whose stamps moved or that it lacks;
// - a start or a change writes it anew only when the write pays for itself (CacheWorthSaving:
//   more than 1/64 of the path would be listed again at every later start), weighed against what
//   the file holds, not against the start;
// - a program that runs on while the path changes may write it on a thread of its own once the
//   changes pause, so that no change waits for a write.
// A cache that cannot be written costs time at the next start and nothing else: the failure is
// handed to the caller's warning sink and the program goes on.
//
// A manager takes all of this from one option:
//
//   MainSearchPathManager::Options options;
//   options.pathDefinition.emplace(PathDefinitionFile::DefaultLocation());
//   options.pathCache.emplace();  // the default cache of that path definition file
//   auto manager = MainSearchPathManager::Open(std::move(options), problems);
//
// and a path of folders of its own from ScanWithPathCache.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

namespace Velmora::SearchPath {

// PathCacheSlot: the cache file of one path and the root its locations are saved under.
struct PathCacheSlot {
    foundation::storage::vfs::AbsoluteIRI file;
    foundation::storage::vfs::AbsoluteIRI root;
    // Read whole into memory rather than mapped (LoadPathCache): for a program that runs on,
    // which another program truncating the file must not kill.
    bool inMemory = false;
};

// PathCacheForPathDefinition: the default cache of the path kept in the path definition file at
// `nativePath` (relative to the current folder, or absolute); none when there is no cache folder
// (neither XDG_CACHE_HOME nor HOME is set).
VELMORA_SEARCHPATH_EXPORT std::optional<PathCacheSlot> PathCacheForPathDefinition(
    const std::string& nativePath);
// PathCacheForFolders: the default cache of a path given as a list of folders.
VELMORA_SEARCHPATH_EXPORT std::optional<PathCacheSlot> PathCacheForFolders(
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

// A sink for what a program may want to tell its user: a cache that could not be written.
using CacheWarning = std::function<void(const std::string&)>;

// LoadCachedEntries: the entries the cache at `slot` holds for the path of `folders`; none when
// there is no usable cache there. A cache folder that may not be used (PathCacheFolderProblem) is
// told to `warn`, once a process.
VELMORA_SEARCHPATH_EXPORT FolderEntryList LoadCachedEntries(
    const PathCacheSlot& slot, const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
    const CacheWarning& warn = {});

// SavePathCacheIfWorthIt: writes the cache of `entries` over the one at `slot`, which holds
// `saved`, when CacheWorthSaving says so; returns whether it was written. A failure goes to `warn`.
VELMORA_SEARCHPATH_EXPORT bool SavePathCacheIfWorthIt(const PathCacheSlot& slot,
                                                      const FolderEntryList& saved,
                                                      const FolderEntryList& entries,
                                                      const CacheWarning& warn);

// ScanWithPathCache: the path of `folders` started from the cache at `slot` (from disk alone
// when there is none), the cache written again if that is worth it. Problems of folders go to
// `report`, as for MainSearchPath::Scan.
VELMORA_SEARCHPATH_EXPORT std::shared_ptr<const MainSearchPath> ScanWithPathCache(
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
    const std::optional<PathCacheSlot>& slot, ScanReport& report, const CacheWarning& warn = {});

// PathCacheUse: how a manager uses a path cache (MainSearchPathManager::Options::pathCache).
struct PathCacheUse {
    // The cache; none for the default one of the manager's path definition file (a manager that
    // keeps no file then uses none).
    std::optional<PathCacheSlot> at;
    // Writes on a thread of its own once the changes pause, for a program that runs on.
    bool inBackground = false;
    CacheWarning warn;
    // Hears the entries read from the cache before the path's folders are checked against the
    // disk: a watcher can set its watches then, so that no change slips between.
    std::function<void(const FolderEntryList&)> loaded;
};

// PathCacheKeeper: the cache of one path over a program's life: it reads the cache at the start,
// remembers what the file holds, and is offered each new state of the path.
class VELMORA_SEARCHPATH_EXPORT PathCacheKeeper {
  public:
    PathCacheKeeper(PathCacheSlot slot, bool inBackground, CacheWarning warn);
    // Writes what is left to write, then stops (Finish).
    ~PathCacheKeeper();
    PathCacheKeeper(const PathCacheKeeper&) = delete;
    PathCacheKeeper& operator=(const PathCacheKeeper&) = delete;

    // Load: the entries the cache holds for `folders`, remembered as what the file holds.
    FolderEntryList Load(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);
    // Offer: a new state of the path (the start, or one after a change): written now, or in the
    // background after the changes pause (1 s of quiet, at most 30 s after the first unwritten
    // one), when that is worth it.
    void Offer(std::shared_ptr<const MainSearchPath> path);
    // Finish: writes what waits to be written and stops the background thread.
    void Finish();

    const PathCacheSlot& Slot() const noexcept { return m_slot; }

  private:
    class Background;
    const PathCacheSlot m_slot;
    const CacheWarning m_warn;
    FolderEntryList m_saved;  // what the file holds (as far as this program knows)
    std::unique_ptr<Background> m_background;
};

}  // namespace Velmora::SearchPath
