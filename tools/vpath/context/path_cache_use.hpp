#pragma once
// The command's path cache: where the cache of a path lives, and when it is read and written.
//
// Each path has its own cache file under $XDG_CACHE_HOME/vpath/ (else ~/.cache/vpath/): one per
// path definition file, one per --path folder list. A start reads it and lists again only the
// folders whose stamps changed or that it lacks; a start or a change that leaves enough of the path
// to be listed again writes it anew (to a temporary file, renamed over the old one). --no-cache
// turns all of this off.

#include <optional>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_cache.hpp>

namespace vpath_cli {

// DisableCache: nothing is read from or written to a path cache from now on (--no-cache).
void DisableCache();

// CacheSlot: the cache of one path: its file and the root it is written for.
struct CacheSlot {
    foundation::storage::vfs::AbsoluteIRI file;
    foundation::storage::vfs::AbsoluteIRI root;
};

// CacheForPathDefinition: the cache of the path kept in the path definition file `pathdef`
// (native path). None when caching is off or there is no cache folder.
std::optional<CacheSlot> CacheForPathDefinition(const std::string& pathdef);
// CacheForFolders: the cache of a path given as a folder list (--path).
std::optional<CacheSlot> CacheForFolders(
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

// LoadCache: the entries saved in the cache for the path of `folders`; none when there is no
// usable cache.
Velmora::SearchPath::FolderEntryList LoadCache(
    const std::optional<CacheSlot>& slot,
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

// SaveCacheIfWorthIt: writes the cache of `entries` over the one that holds `saved` when that is
// worth its time (CacheWorthSaving); returns whether it was written. A failure is printed as a
// warning: the cache only saves time.
bool SaveCacheIfWorthIt(const std::optional<CacheSlot>& slot,
                        const Velmora::SearchPath::FolderEntryList& saved,
                        const Velmora::SearchPath::FolderEntryList& entries);

// UseCache: starts `manager`'s cache bookkeeping: writes the cache now if the start found changes
// since `loaded` worth saving, and again after each change of the path that is.
void UseCache(const std::optional<CacheSlot>& slot,
              const Velmora::SearchPath::FolderEntryList& loaded,
              Velmora::SearchPath::MainSearchPathManager& manager);

// UseCacheInBackground: UseCache for a command that runs on while the path changes: the start and
// the changes are written on a thread of their own once changes pause, so that neither the start
// nor a change waits for the write.
// FinishCacheSaving writes what is left and stops that thread; call it before the command ends.
void UseCacheInBackground(const std::optional<CacheSlot>& slot,
                          const Velmora::SearchPath::FolderEntryList& loaded,
                          Velmora::SearchPath::MainSearchPathManager& manager);
void FinishCacheSaving();

}  // namespace vpath_cli
