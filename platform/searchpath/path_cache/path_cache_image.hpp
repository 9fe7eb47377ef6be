#pragma once
// Internal to the path cache: a loaded path cache, kept as the bytes of the file. It sits below
// the scan, whose file tables and index read from it in place.
//
// Entries loaded from a cache do not copy their file names out of it: each folder's file table
// reads its names from the image the first time it is asked for them, and the path answers "which
// folders hold this name" from the image's name index, so that a start costs in proportion to the
// folders, not to the files. The image stays alive as long as a table or a path refers to it.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <velmora/os/system.hpp>
#include <velmora/text/ustring.hpp>

#include "name_hash.hpp"
#include "path_cache_format.hpp"

namespace Velmora::SearchPath {

class CacheImage {
  public:
    explicit CacheImage(std::unique_ptr<const os::MappedFile> mapped)
        : m_mapped(std::move(mapped)), m_bytes(m_mapped->Bytes()) {}
    explicit CacheImage(std::string owned) : m_owned(std::move(owned)), m_bytes(m_owned) {}
    CacheImage(const CacheImage&) = delete;
    CacheImage& operator=(const CacheImage&) = delete;

    std::string_view Bytes() const noexcept { return m_bytes; }
    // Release: gives back the memory that holds `part` of the bytes until it is read again.
    void Release(std::string_view part) const noexcept {
        if (m_mapped)
            m_mapped->Release(part);
    }
    // The number of folder records in the cache.
    std::uint32_t RecordCount() const noexcept { return m_recordCount; }

    // SetIndex: the sections that lookups read, once the whole file has been checked.
    // Returns false when the index section is not laid out as an index of `recordCount` folders.
    bool SetIndex(std::string_view names, std::string_view index, std::uint32_t recordCount);

    // ForEachHolder: calls visit(record) for each folder record whose listing holds the file
    // named `first` followed by `second`, in path order.
    template <class Visit>
    void ForEachHolder(std::u16string_view first, std::u16string_view second, Visit visit) const {
        const std::uint64_t hash =
            searchpath_internal::NameHash()(searchpath_internal::NameKey{first, second});
        const std::uint32_t bucket = path_cache_internal::BucketOf(hash, m_header.bucketBits);
        const std::uint32_t begin = BucketStart(bucket);
        const std::uint32_t end = BucketStart(bucket + 1);
        for (std::uint32_t e = begin; e < end && e < m_header.entryCount; ++e) {
            if (TagAt(e) != static_cast<std::uint8_t>(hash))
                continue;
            const auto entry = EntryAt(e);
            if (!SameName(NameAt(entry.nameOffset), first, second))
                continue;
            ForEachRecord(entry.posting, visit);
            return;
        }
    }

    // ForEachName: calls visit(name, record) for every name of the index (OS bytes) and each
    // folder record that holds it.
    template <class Visit>
    void ForEachName(Visit visit) const {
        for (std::uint32_t e = 0; e < m_header.entryCount; ++e) {
            const auto entry = EntryAt(e);
            const std::string_view name = NameAt(entry.nameOffset);
            ForEachRecord(entry.posting, [&](std::uint32_t record) { visit(name, record); });
        }
    }

    // ForEachSavedName: calls visit(name) for each name of a saved block of names (u8 length and
    // OS bytes each); false, once seen, when the block is not exactly `count` file names.
    template <class Visit>
    static bool ForEachSavedName(std::string_view block, std::uint32_t count, Visit visit) {
        std::size_t at = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (block.size() - at < 1)
                return false;
            const auto length = static_cast<std::uint8_t>(block[at]);
            at += 1;
            if (block.size() - at < length)
                return false;
            const std::string_view name = block.substr(at, length);
            at += length;
            if (!IsFileName(name))
                return false;
            visit(name);
        }
        return at == block.size();
    }
    // IsFileName: whether the OS bytes can be the name of a file in a folder.
    static bool IsFileName(std::string_view name) noexcept {
        return !name.empty() && name.find('/') == std::string_view::npos &&
               name.find('\0') == std::string_view::npos && name != "." && name != "..";
    }

    // HashOfNative: the NameHash of the UTF-16 form of the OS bytes `name`.
    static std::uint64_t HashOfNative(std::string_view name);

  private:
    std::uint32_t BucketStart(std::uint32_t bucket) const noexcept {
        return path_cache_internal::Get<std::uint32_t>(
            m_index, sizeof(path_cache_internal::IndexHeader) + std::size_t{bucket} * 4);
    }
    path_cache_internal::IndexEntry EntryAt(std::uint32_t e) const noexcept {
        return path_cache_internal::Get<path_cache_internal::IndexEntry>(
            m_index, m_entriesAt + std::size_t{e} * sizeof(path_cache_internal::IndexEntry));
    }
    std::uint8_t TagAt(std::uint32_t e) const noexcept {
        return static_cast<std::uint8_t>(m_index[m_tagsAt + e]);
    }
    // The name at `offset` in the names section; empty when it does not lie inside it.
    std::string_view NameAt(std::uint32_t offset) const noexcept {
        if (offset >= m_names.size())
            return {};
        const auto length = static_cast<std::uint8_t>(m_names[offset]);
        if (m_names.size() - offset - 1 < length)
            return {};
        return m_names.substr(offset + 1, length);
    }
    template <class Visit>
    void ForEachRecord(std::uint32_t posting, Visit&& visit) const {
        if ((posting & path_cache_internal::kPostingList) == 0) {
            if (posting < m_recordCount)
                visit(posting);
            return;
        }
        const std::uint32_t at = posting & ~path_cache_internal::kPostingList;
        if (at >= m_header.postingCount)
            return;
        const std::uint32_t count = Posting(at);
        for (std::uint32_t k = 1; k <= count && at + k < m_header.postingCount; ++k) {
            if (const std::uint32_t record = Posting(at + k); record < m_recordCount)
                visit(record);
        }
    }
    std::uint32_t Posting(std::uint32_t at) const noexcept {
        return path_cache_internal::Get<std::uint32_t>(m_index, m_postingsAt + std::size_t{at} * 4);
    }
    // Whether the OS bytes `stored` are the name `first` followed by `second`.
    static bool SameName(std::string_view stored, std::u16string_view first,
                         std::u16string_view second);

    std::unique_ptr<const os::MappedFile> m_mapped;
    std::string m_owned;
    std::string_view m_bytes;
    std::string_view m_names;
    std::string_view m_index;
    std::uint32_t m_recordCount = 0;
    path_cache_internal::IndexHeader m_header{};
    std::size_t m_entriesAt = 0;
    std::size_t m_tagsAt = 0;
    std::size_t m_postingsAt = 0;
};

}  // namespace Velmora::SearchPath
