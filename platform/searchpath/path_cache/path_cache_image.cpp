#include "path_cache_image.hpp"

#include <algorithm>

namespace Velmora::SearchPath {

using namespace path_cache_internal;

namespace {

bool IsAscii(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

bool CacheImage::SetIndex(std::string_view names, std::string_view index,
                          std::uint32_t recordCount) {
    if (index.size() < sizeof(IndexHeader))
        return false;
    const auto header = Get<IndexHeader>(index, 0);
    if (header.bucketBits > 31)
        return false;
    const std::uint64_t buckets = std::uint64_t{1} << header.bucketBits;
    const std::uint64_t size = sizeof(IndexHeader) + (buckets + 1) * 4 +
                               std::uint64_t{header.entryCount} * (sizeof(IndexEntry) + 1) +
                               std::uint64_t{header.postingCount} * 4;
    if (size != index.size())
        return false;
    m_names = names;
    m_index = index;
    m_recordCount = recordCount;
    m_header = header;
    m_entriesAt = sizeof(IndexHeader) + static_cast<std::size_t>(buckets + 1) * 4;
    m_tagsAt = m_entriesAt + std::size_t{header.entryCount} * sizeof(IndexEntry);
    m_postingsAt = m_tagsAt + header.entryCount;
    return true;
}

std::uint64_t CacheImage::HashOfNative(std::string_view name) {
    using searchpath_internal::NameHash;
    if (!IsAscii(name))
        return NameHash()(std::u16string_view(text::FromNative(name)));
    // An ASCII byte is its own UTF-16 code unit.
    std::uint64_t h = 0xCBF29CE484222325ull;
    for (const char c : name) {
        h ^= static_cast<unsigned char>(c);
        h *= 0x100000001B3ull;
    }
    return h;
}

bool CacheImage::SameName(std::string_view stored, std::u16string_view first,
                          std::u16string_view second) {
    if (!IsAscii(stored)) {
        return searchpath_internal::NameEqual()(std::u16string_view(text::FromNative(stored)),
                                                searchpath_internal::NameKey{first, second});
    }
    if (stored.size() != first.size() + second.size())
        return false;
    const auto same = [](std::string_view bytes, std::u16string_view units) {
        return std::equal(units.begin(), units.end(), bytes.begin(),
                          [](char16_t u, char b) { return u == static_cast<unsigned char>(b); });
    };
    return same(stored.substr(0, first.size()), first) && same(stored.substr(first.size()), second);
}

}  // namespace Velmora::SearchPath
