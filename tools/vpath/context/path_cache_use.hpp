#pragma once
// The command's side of the host's path cache (velmora/searchpath/cached_start.hpp): --no-cache,
// and a cache that cannot be written told as a warning on standard error.

#include <optional>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/cached_start.hpp>

namespace vpath_cli {

using CacheSlot = Velmora::SearchPath::PathCacheSlot;

// DisableCache: nothing is read from or written to a path cache from now on (--no-cache).
void DisableCache();

// KeepCacheInMemory: caches are read whole rather than mapped from now on, for a command that
// runs on (which --batch, watch): another program truncating the file cannot kill it.
void KeepCacheInMemory();

// ResetCacheChoices: undoes DisableCache and KeepCacheInMemory, for the path service, which runs
// one command after another in one process.
void ResetCacheChoices();

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

// SaveCacheIfWorthIt: SavePathCacheIfWorthIt, a failure printed as a warning.
bool SaveCacheIfWorthIt(const std::optional<CacheSlot>& slot,
                        const Velmora::SearchPath::FolderEntryList& saved,
                        const Velmora::SearchPath::FolderEntryList& entries);

}  // namespace vpath_cli
