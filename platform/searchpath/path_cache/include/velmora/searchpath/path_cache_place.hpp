#pragma once
// The path cache's place: the folder that holds the caches of one user, and what may sit there.
//
// A cache decides what a lookup answers, so only the user may have written it. A cache folder is
// used only when it, and each folder above it up to the cache home or the user's home, belongs to
// the user (or to the superuser) and no one else may write to it, as ssh's strict modes ask of
// ~/.ssh; a cache file is used only when it is a regular file of the user's. The folders the
// cache makes are the user's alone (0700) and so are its files (0600), whatever the umask.
//
// The folder holds, by name:
//   <32 hex digits>.cache                 the cache of one path (PathCacheFileName)
//   <32 hex digits>.cache.<pid>.<hex>.tmp a cache being written by process <pid>
// A write removes the temporary files of writers that are no longer running and the caches whose
// folders are all gone (no start will use them again), and keeps the folder bounded: beyond
// kMostPathCaches caches or kMostPathCacheBytes bytes in all, the least recently used go (a start
// reads its cache: that is a use).

#include <cstdint>
#include <string>

#include <velmora/searchpath/export.hpp>

namespace Velmora::SearchPath {

inline constexpr std::size_t kMostPathCaches = 64;
inline constexpr std::uint64_t kMostPathCacheBytes = std::uint64_t{1} << 30;

// PathCacheFolderProblem: why the cache folder `folder` (native path) may not be used, as a
// message that names the folder at fault and how to fix it; empty when it may be used (a folder
// that does not exist yet may: it will be made the user's).
VELMORA_SEARCHPATH_EXPORT std::string PathCacheFolderProblem(const std::string& folder);

// DescribePathCachePlace: what is at the cache file's place `file`: "none", "a cache file",
// "a folder", "a FIFO", "a symbolic link", "a device", "a socket", each followed by
// " of another user (uid N)" when it is not the user's.
VELMORA_SEARCHPATH_EXPORT std::string DescribePathCachePlace(const std::string& file);

// ClearPathCachePlace: removes what is at the cache file's place `file`, whatever it is, when it
// is the user's (a folder only when it is empty), with the temporary files of its writers. Returns
// empty on success (nothing there included), else why it was left.
VELMORA_SEARCHPATH_EXPORT std::string ClearPathCachePlace(const std::string& file);

// ClearAllPathCaches: ClearPathCachePlace of every cache and temporary file in `folder`. Returns
// the problems, one a line; empty when all went.
VELMORA_SEARCHPATH_EXPORT std::string ClearAllPathCaches(const std::string& folder);

}  // namespace Velmora::SearchPath
