#pragma once
// Internal to the path cache: the layout of the path cache file.
//
// All numbers are little-endian. The file is a header, a section table and the sections:
//
//   header   magic "VPATHCCH", u32 version, u32 byte-order mark 0x01020304, i64 time written (ns),
//            u32 section count, u32 reserved, u64 XXH3 of the header (this field as 0) and the
//            section table
//   table    per section: u32 id, u32 reserved, u64 XXH3 of the section, u64 offset, u64 size
//   kRoot    the root the cache was written for: its IRI text, UTF-16
//   kText    UTF-8 texts of main locations and of canonical locations that a symbolic link made
//            (a folder that is its own canonical location points at its location text twice)
//   kFolders u32 count, then one FolderRecord per folder, each main entry followed by its tree in
//            depth-first order, sub-entries in name order
//   kNames   per folder: its file names in table order at FolderRecord::filesOffset, then its
//            special subfolders (u8 kind, u8 through a link, name); each name is a u8 length and
//            its OS bytes (no file system holds a longer name)
//   kIndex   the path-wide file name index, queried where it lies (see IndexHeader)
//
// The name index is a bucketed hash table built once by the writer: a name's bucket is
// BucketOf(NameHash of its UTF-16 form), the bucket's entries are a slice of the entry array, and
// each entry tells the folders whose listing holds that name, in path order. Nothing of it is
// parsed at start: a lookup reads one bucket, compares a tag and the name, and reads the folders.
//
// A change of any of this is a new kVersion.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// Inlined: the checksum is a handful of functions, and the cache reader needs no library for it.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Velmora::SearchPath::path_cache_internal {

static_assert(std::endian::native == std::endian::little, "the path cache is little-endian");

inline constexpr char kMagic[8] = {'V', 'P', 'A', 'T', 'H', 'C', 'C', 'H'};
inline constexpr std::uint32_t kVersion = 3;
inline constexpr std::uint32_t kByteOrderMark = 0x01020304;
inline constexpr std::uint32_t kNoParent = UINT32_MAX;
// The times of a stamp that is not to be trusted: no folder has them, so a folder saved with them
// is always listed again. Its device and inode are kept: they still tell whether a location names
// the same folder.
inline constexpr std::int64_t kUnknownTime = INT64_MIN;

enum SectionId : std::uint32_t { kRoot = 1, kText = 2, kFolders = 3, kNames = 4, kIndex = 5 };
inline constexpr std::uint32_t kSectionCount = 5;

struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t byteOrder;
    std::int64_t writtenAtNs;
    std::uint32_t sectionCount;
    std::uint32_t reserved;
    std::uint64_t checksum;
};
static_assert(sizeof(Header) == 40);

struct SectionEntry {
    std::uint32_t id;
    std::uint32_t reserved;
    std::uint64_t checksum;
    std::uint64_t offset;
    std::uint64_t size;
};
static_assert(sizeof(SectionEntry) == 32);

inline constexpr std::size_t kTableEnd = sizeof(Header) + kSectionCount * sizeof(SectionEntry);

enum FolderFlags : std::uint32_t {
    kStampKnown = 1,   // the stamp may be compared; else the folder is always listed again
    kThroughLink = 2,  // the canonical location is its own text, not the parent's plus the name
};

struct FolderRecord {
    std::uint32_t parent;  // index of the parent record, kNoParent for a main entry
    std::uint8_t kind;     // PathEntryType
    std::uint8_t flags;    // FolderFlags
    std::uint16_t locationLength;
    std::uint32_t specialIndex;  // a sub-entry: its place among the parent's special subfolders
    std::uint32_t fileCount;
    std::uint32_t specialCount;
    std::uint32_t filesOffset;      // in kNames; the special subfolders follow the file names
    std::uint32_t filesBytes;       // the length of the file names from filesOffset
    std::uint32_t locationOffset;   // a main entry: its location in kText (bytes)
    std::uint32_t canonicalOffset;  // a main entry, or kThroughLink: the canonical location
    std::uint16_t canonicalLength;
    std::uint16_t reserved;
    std::int64_t modifiedNs;
    std::int64_t changedNs;
    std::uint64_t inode;
    std::uint64_t device;
    std::uint64_t size;
};
static_assert(sizeof(FolderRecord) == 80);

// kIndex: an IndexHeader, u32 bucketStart[bucketCount + 1] (the entries of bucket b are
// [bucketStart[b], bucketStart[b + 1])), IndexEntry entries[entryCount], u8 tags[entryCount] (the
// low byte of each entry's name hash, compared before the name), u32 postings[...].
struct IndexHeader {
    std::uint32_t bucketBits;  // bucketCount == 1 << bucketBits
    std::uint32_t entryCount;
    std::uint32_t postingCount;
    std::uint32_t reserved;
};
static_assert(sizeof(IndexHeader) == 16);

// A name held by one folder names its record in `posting`; a name held by several has
// kPostingList set and the rest is the place in postings[] of a count followed by that many
// records, ascending.
inline constexpr std::uint32_t kPostingList = 0x8000'0000u;

struct IndexEntry {
    std::uint32_t nameOffset;  // in kNames: the name as u8 length and OS bytes
    std::uint32_t posting;
};
static_assert(sizeof(IndexEntry) == 8);

// The longest name and location text the cache holds.
inline constexpr std::size_t kMaxNameBytes = UINT8_MAX;
inline constexpr std::size_t kMaxTextBytes = UINT16_MAX;

inline std::uint32_t BucketOf(std::uint64_t hash, std::uint32_t bucketBits) noexcept {
    return bucketBits == 0
               ? 0
               : static_cast<std::uint32_t>((hash * 0x9E3779B97F4A7C15ull) >> (64 - bucketBits));
}

inline std::uint64_t Checksum(std::string_view bytes) {
    return XXH3_64bits(bytes.data(), bytes.size());
}

template <class T>
void Put(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
T Get(std::string_view bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// Reseal: `bytes` with every checksum that can be located recomputed, so that tests and the fuzz
// target can reach the checks that lie beyond the checksums.
inline std::string Reseal(std::string bytes) {
    if (bytes.size() < kTableEnd)
        return bytes;
    for (std::uint32_t i = 0; i < kSectionCount; ++i) {
        const std::size_t at = sizeof(Header) + i * sizeof(SectionEntry);
        auto entry = Get<SectionEntry>(bytes, at);
        if (entry.offset <= bytes.size() && entry.size <= bytes.size() - entry.offset) {
            entry.checksum = Checksum(std::string_view(bytes).substr(entry.offset, entry.size));
            std::memcpy(bytes.data() + at, &entry, sizeof entry);
        }
    }
    std::string head = bytes.substr(0, kTableEnd);
    std::memset(head.data() + offsetof(Header, checksum), 0, sizeof(std::uint64_t));
    const std::uint64_t sum = Checksum(head);
    std::memcpy(bytes.data() + offsetof(Header, checksum), &sum, sizeof sum);
    return bytes;
}

}  // namespace Velmora::SearchPath::path_cache_internal
