#pragma once
// Internal to the path cache: keeping the cache folder (see path_cache_place.hpp) as the writer
// needs it.

#include <string>

namespace Velmora::SearchPath::path_cache_internal {

// MakeCacheFolder: makes `folder` and the folders above it that are missing, each the user's
// alone. Returns 0 or an errno value.
int MakeCacheFolder(const std::string& folder);

// MakeRoomForCache: readies the place `file` for a cache to be renamed onto: an empty folder of
// the user's there is removed. Returns why a cache cannot go there, or empty.
std::string MakeRoomForCache(const std::string& file);

// TemporaryCacheName: the name of this process's temporary file for the cache `file`.
std::string TemporaryCacheName(const std::string& file);

// TidyCacheFolder: removes the temporary files of writers no longer running, the caches whose
// folders are all gone, and the least recently used caches beyond the folder's bounds; `kept`, the
// cache just written, stays.
void TidyCacheFolder(const std::string& folder, const std::string& kept);

}  // namespace Velmora::SearchPath::path_cache_internal
