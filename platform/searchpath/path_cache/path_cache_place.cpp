// The path cache's place: whose the cache folder is, what is at a cache's place, and keeping the
// folder tidy and bounded.

#include <velmora/searchpath/path_cache_place.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <vector>

#include <fmt/format.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_cache.hpp>
#include <velmora/text/ustring.hpp>

#include "cache_folder.hpp"
#include "path_cache_format.hpp"

namespace Velmora::SearchPath {

namespace {

using namespace path_cache_internal;

// The kinds of st_mode, as Linux numbers them.
constexpr std::uint32_t kKindBits = 0170000;
constexpr std::uint32_t kFifo = 0010000;
constexpr std::uint32_t kCharDevice = 0020000;
constexpr std::uint32_t kFolder = 0040000;
constexpr std::uint32_t kBlockDevice = 0060000;
constexpr std::uint32_t kRegular = 0100000;
constexpr std::uint32_t kLink = 0120000;
constexpr std::uint32_t kWritableByOthers = 0022;

std::string Parent(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string Trimmed(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

bool Within(const std::string& path, const std::string& top) {
    return !top.empty() && top != "/" && path.starts_with(top) &&
           (path.size() == top.size() || path[top.size()] == '/');
}

// The outermost of the cache home and the user's home that holds `folder`; empty when neither.
std::string TopOf(const std::string& folder) {
    std::string top;
    const auto consider = [&](std::string candidate) {
        candidate = Trimmed(std::move(candidate));
        if (Within(folder, candidate) && (top.empty() || candidate.size() < top.size()))
            top = candidate;
    };
    if (const std::string cacheFolder = DefaultPathCacheFolder(); !cacheFolder.empty())
        consider(Parent(cacheFolder));
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        consider(home);
    return top;
}

bool Trusted(std::uint32_t owner) {
    // The superuser can write anywhere anyway.
    return owner == os::System().UserId() || owner == 0;
}

std::string KindText(std::uint32_t mode) {
    switch (mode & kKindBits) {
        case kRegular:
            return "a cache file";
        case kFolder:
            return "a folder";
        case kFifo:
            return "a FIFO";
        case kLink:
            return "a symbolic link";
        case kCharDevice:
        case kBlockDevice:
            return "a device";
        default:
            return "a socket";
    }
}

// The process id in a temporary file's name "<cache>.<pid>.<hex>.tmp"; 0 when it has none.
std::uint32_t WriterOf(std::string_view name) {
    if (!name.ends_with(".tmp"))
        return 0;
    name.remove_suffix(4);
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return 0;
    name = name.substr(0, dot);
    const auto before = name.rfind('.');
    if (before == std::string_view::npos)
        return 0;
    std::uint32_t pid = 0;
    const auto digits = name.substr(before + 1);
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    return ec == std::errc() && end == digits.data() + digits.size() ? pid : 0;
}

bool IsCacheName(std::string_view name) {
    return name.size() == 38 && name.ends_with(".cache") &&
           name.find_first_not_of("0123456789abcdef") == 32;
}

bool IsTemporaryName(std::string_view name) {
    return name.size() > 38 && IsCacheName(name.substr(0, 38)) && name[38] == '.' &&
           name.ends_with(".tmp");
}

// The most of a cache that is read to tell whether its folders are all gone: a list of throwaway
// folders makes a small cache, and a large one is left to the folder's bounds.
constexpr std::uint64_t kMostBytesReadForFolders = std::uint64_t{4} << 20;

// Whether the cache at `path` was written for folders that are all gone (a list of throwaway
// folders given once): no start will ever use it. A cache that cannot be read, or holds no
// folder, is not judged.
bool FoldersAllGone(const std::string& path) {
    std::string bytes;
    if (os::System().ReadRegularFile(path, kMostBytesReadForFolders, bytes) != 0 ||
        bytes.size() < kTableEnd || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
        return false;
    }
    const auto section = [&](SectionId id) {
        const auto entry =
            Get<SectionEntry>(bytes, sizeof(Header) + (id - 1) * sizeof(SectionEntry));
        return entry.offset <= bytes.size() && entry.size <= bytes.size() - entry.offset
                   ? std::string_view(bytes).substr(entry.offset, entry.size)
                   : std::string_view();
    };
    const std::string_view folders = section(kFolders);
    const std::string_view text = section(kText);
    if (folders.size() < 4)
        return false;
    const auto count = std::min<std::size_t>(Get<std::uint32_t>(folders, 0),
                                             (folders.size() - 4) / sizeof(FolderRecord));
    bool any = false;
    for (std::size_t i = 0; i < count; ++i) {
        const auto record = Get<FolderRecord>(folders, 4 + i * sizeof(FolderRecord));
        if (record.parent != kNoParent)
            continue;
        if (record.locationOffset > text.size() ||
            record.locationLength > text.size() - record.locationOffset) {
            return false;
        }
        try {
            const std::string native = text::ToNative(
                foundation::storage::vfs::fromAbsoluteIRI(foundation::storage::vfs::AbsoluteIRI(
                    text::FromNative(text.substr(record.locationOffset, record.locationLength)))));
            os::FileStatus status;
            if (const int err = os::System().Stat(native, status); err != ENOENT && err != ENOTDIR)
                return false;
        } catch (const foundation::storage::vfs::Exception&) {
            return false;
        }
        any = true;
    }
    return any;
}

}  // namespace

std::string PathCacheFolderProblem(const std::string& folder) {
    const std::string top = TopOf(Trimmed(folder));
    for (std::string at = Trimmed(folder); !at.empty(); at = Parent(at)) {
        os::FileStatus status;
        // Followed through links: a cache home is often a link to a folder of the user's.
        if (const int err = os::System().Stat(at, status); err == ENOENT) {
            // Made the user's when the cache is written.
        } else if (err != 0) {
            return fmt::format(
                "cannot check the path cache folder {}: {}; the path cache is not used", at,
                os::ErrorText(err));
        } else if (!status.IsFolder()) {
            return fmt::format(
                "{} is not a folder: the path cache is not used; remove it, or set "
                "XDG_CACHE_HOME to a folder of yours",
                at);
        } else if (!Trusted(status.owner)) {
            return fmt::format(
                "the path cache folder {} belongs to another user (uid {}): the "
                "path cache is not used; remove it, or set XDG_CACHE_HOME to a "
                "folder of yours",
                at, status.owner);
        } else if ((status.mode & kWritableByOthers) != 0) {
            return fmt::format(
                "the path cache folder {} is writable by others (mode {:04o}): the "
                "path cache is not used; make it yours alone: chmod go-w {}",
                at, status.mode & 07777, at);
        }
        if (top.empty() || at == top)
            break;
    }
    return {};
}

std::string DescribePathCachePlace(const std::string& file) {
    os::FileStatus status;
    if (os::System().LinkStatus(file, status) != 0)
        return "none";
    std::string text = KindText(status.mode);
    if (status.owner != os::System().UserId())
        text += fmt::format(" of another user (uid {})", status.owner);
    return text;
}

std::string ClearPathCachePlace(const std::string& file) {
    os::FileStatus status;
    if (const int err = os::System().LinkStatus(file, status); err != 0) {
        return err == ENOENT ? std::string()
                             : fmt::format("cannot look at {}: {}", file, os::ErrorText(err));
    }
    if (status.owner != os::System().UserId()) {
        return fmt::format(
            "{} is {} of another user (uid {}): left as it is; it is that user's "
            "to remove",
            file, KindText(status.mode), status.owner);
    }
    const bool folder = (status.mode & kKindBits) == kFolder;
    const int err = folder ? os::System().RemoveFolder(file) : os::System().RemoveFile(file);
    if (err == ENOTEMPTY || err == EEXIST)
        return fmt::format("{} is a folder with files in it, not a path cache: left as it is",
                           file);
    if (err != 0 && err != ENOENT)
        return fmt::format("cannot remove {}: {}", file, os::ErrorText(err));
    return {};
}

std::string ClearAllPathCaches(const std::string& folder) {
    if (std::string problem = PathCacheFolderProblem(folder); !problem.empty())
        return problem;
    os::FolderListing listing;
    if (const int err = os::System().ListFolder(folder, listing); err != 0) {
        return err == ENOENT ? std::string()
                             : fmt::format("cannot list {}: {}", folder, os::ErrorText(err));
    }
    std::string problems;
    for (const auto& item : listing.items) {
        if (!IsCacheName(item.name) && !IsTemporaryName(item.name))
            continue;
        if (std::string problem = ClearPathCachePlace(folder + "/" + item.name); !problem.empty())
            problems += problem + "\n";
    }
    if (!problems.empty())
        problems.pop_back();
    return problems;
}

namespace path_cache_internal {

int MakeCacheFolder(const std::string& folder) {
    os::FileStatus status;
    if (const int err = os::System().Stat(folder, status); err == 0)
        return status.IsFolder() ? 0 : ENOTDIR;
    else if (err != ENOENT)
        return err;
    if (const std::string parent = Parent(folder); !parent.empty() && parent != folder) {
        if (const int err = MakeCacheFolder(parent); err != 0)
            return err;
    }
    const int err = os::System().MakePrivateFolder(folder);
    return err == EEXIST ? 0 : err;
}

std::string MakeRoomForCache(const std::string& file) {
    os::FileStatus status;
    if (os::System().LinkStatus(file, status) != 0)
        return {};
    if (status.owner != os::System().UserId()) {
        return fmt::format("{} is {} of another user (uid {}), not a path cache", file,
                           KindText(status.mode), status.owner);
    }
    if ((status.mode & kKindBits) != kFolder)
        return {};  // renamed over
    if (const int err = os::System().RemoveFolder(file); err != 0 && err != ENOENT) {
        return fmt::format(
            "{} is a folder with files in it, not a path cache: remove it (rm -r {})", file, file);
    }
    return {};
}

std::string TemporaryCacheName(const std::string& file) {
    static std::atomic<std::uint64_t> serial{0};
    return fmt::format("{}.{}.{:x}.tmp", file, os::System().ProcessId(), serial++);
}

void TidyCacheFolder(const std::string& folder, const std::string& kept) {
    os::FolderListing listing;
    if (os::System().ListFolder(folder, listing) != 0)
        return;
    struct Cache {
        std::string path;
        std::int64_t usedNs;
        std::uint64_t bytes;
    };
    std::vector<Cache> caches;
    const std::uint32_t me = os::System().UserId();
    for (const auto& item : listing.items) {
        const std::string path = folder + "/" + item.name;
        const bool temporary = IsTemporaryName(item.name);
        if (!temporary && !IsCacheName(item.name))
            continue;
        os::FileStatus status;
        if (os::System().LinkStatus(path, status) != 0 || status.owner != me)
            continue;
        if (temporary) {
            // Left by a writer that was killed: no one will rename it.
            if (const std::uint32_t writer = WriterOf(item.name);
                writer == 0 || !os::System().ProcessExists(writer)) {
                os::System().RemoveFile(path);
            }
        } else if (path != kept && FoldersAllGone(path)) {
            os::System().RemoveFile(path);
        } else if (path != kept) {
            caches.push_back({path, std::max(status.accessedNs, status.modifiedNs), status.size});
        }
    }
    std::sort(caches.begin(), caches.end(),
              [](const Cache& a, const Cache& b) { return a.usedNs > b.usedNs; });
    os::FileStatus keptStatus;
    std::uint64_t bytes = os::System().LinkStatus(kept, keptStatus) == 0 ? keptStatus.size : 0;
    std::size_t count = 1;
    for (const Cache& cache : caches) {
        ++count;
        bytes += cache.bytes;
        if (count > kMostPathCaches || bytes > kMostPathCacheBytes)
            os::System().RemoveFile(cache.path);
    }
}

}  // namespace path_cache_internal

}  // namespace Velmora::SearchPath
