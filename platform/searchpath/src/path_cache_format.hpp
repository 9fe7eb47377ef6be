#pragma once
// Internal to the host's search path: the layout of the path cache file.
//
// All numbers are little-endian. The file is a header, a section table and the sections:
//
//   header   magic "VPATHCCH", u32 version, u32 byte-order mark 0x01020304, i64 time written (ns),
//            u32 section count, u32 CRC32C of the header (this field as 0) and the section table
//   table    per section: u32 id, u32 CRC32C of the section, u64 offset, u64 size
//   kRoot    the root the cache was written for: its IRI text, UTF-16
//   kText    UTF-16 texts of main locations and of canonical locations that a symbolic link made
//   kFolders u32 count, then one FolderRecord per folder, each main entry followed by its tree in
//            depth-first order, sub-entries in name order
//   kNames   per folder, at FolderRecord::namesOffset: its file names, then its special
//            subfolders (u8 kind, u8 through a link), each name as u16 length and its OS bytes
//
// A change of any of this is a new kVersion.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <boost/crc.hpp>

namespace Velmora::SearchPath::path_cache_internal {

static_assert(std::endian::native == std::endian::little, "the path cache is little-endian");

inline constexpr char kMagic[8] = {'V', 'P', 'A', 'T', 'H', 'C', 'C', 'H'};
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::uint32_t kByteOrderMark = 0x01020304;
inline constexpr std::uint32_t kNoParent = UINT32_MAX;
// The times of a stamp that is not to be trusted: no folder has them, so a folder saved with them
// is always listed again. Its device and inode are kept: they still tell whether a location names
// the same folder.
inline constexpr std::int64_t kUnknownTime = INT64_MIN;

enum SectionId : std::uint32_t { kRoot = 1, kText = 2, kFolders = 3, kNames = 4 };
inline constexpr std::uint32_t kSectionCount = 4;

struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t byteOrder;
    std::int64_t writtenAtNs;
    std::uint32_t sectionCount;
    std::uint32_t crc;
};
static_assert(sizeof(Header) == 32);

struct SectionEntry {
    std::uint32_t id;
    std::uint32_t crc;
    std::uint64_t offset;
    std::uint64_t size;
};
static_assert(sizeof(SectionEntry) == 24);

enum FolderFlags : std::uint32_t {
    kStampKnown = 1,   // the stamp may be compared; else the folder is always listed again
    kThroughLink = 2,  // the canonical location is its own text, not the parent's plus the name
};

struct FolderRecord {
    std::uint32_t parent;        // index of the parent record, kNoParent for a main entry
    std::uint32_t kind;          // PathEntryType
    std::uint32_t flags;         // FolderFlags
    std::uint32_t specialIndex;  // a sub-entry: its place among the parent's special subfolders
    std::uint32_t fileCount;
    std::uint32_t specialCount;
    std::uint32_t namesOffset;     // in kNames
    std::uint32_t locationOffset;  // a main entry: its location in kText (code units)
    std::uint32_t locationLength;
    std::uint32_t canonicalOffset;  // a main entry, or kThroughLink: the canonical location
    std::uint32_t canonicalLength;
    std::uint32_t reserved;
    std::int64_t modifiedNs;
    std::int64_t changedNs;
    std::uint64_t inode;
    std::uint64_t device;
    std::uint64_t size;
};
static_assert(sizeof(FolderRecord) == 88);

// CRC32C (Castagnoli), as storage formats use it.
using Crc32c = boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true>;

inline std::uint32_t Checksum(std::string_view bytes) {
    Crc32c crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
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
    constexpr std::size_t kTableEnd = sizeof(Header) + kSectionCount * sizeof(SectionEntry);
    if (bytes.size() < kTableEnd)
        return bytes;
    for (std::uint32_t i = 0; i < kSectionCount; ++i) {
        const std::size_t at = sizeof(Header) + i * sizeof(SectionEntry);
        auto entry = Get<SectionEntry>(bytes, at);
        if (entry.offset <= bytes.size() && entry.size <= bytes.size() - entry.offset) {
            entry.crc = Checksum(std::string_view(bytes).substr(entry.offset, entry.size));
            std::memcpy(bytes.data() + at, &entry, sizeof entry);
        }
    }
    std::string head = bytes.substr(0, kTableEnd);
    std::memset(head.data() + offsetof(Header, crc), 0, sizeof(std::uint32_t));
    const std::uint32_t crc = Checksum(head);
    std::memcpy(bytes.data() + offsetof(Header, crc), &crc, sizeof crc);
    return bytes;
}

}  // namespace Velmora::SearchPath::path_cache_internal
