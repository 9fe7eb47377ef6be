#pragma once
// Internal to the path cache (and the scan's file tables, whose hashes the cache's name index
// stores): hashing of file names that are looked up as a base name and an extension without joining
// the two into a new string.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Velmora::SearchPath::searchpath_internal {

// NameKey: the name `first` followed by `second` ("area" and ".vl" stand for "area.vl").
struct NameKey {
    std::u16string_view first;
    std::u16string_view second;
};

// A hash that can be computed piece by piece, so that a NameKey and the joined name agree.
// The table applies its own mixing on top.
struct NameHash {
    using is_transparent = void;

    static std::uint64_t Feed(std::uint64_t h, std::u16string_view s) noexcept {
        for (const char16_t c : s) {
            h ^= c;
            h *= 0x100000001B3ull;
        }
        return h;
    }
    std::size_t operator()(std::u16string_view s) const noexcept {
        return static_cast<std::size_t>(Feed(0xCBF29CE484222325ull, s));
    }
    std::size_t operator()(const NameKey& k) const noexcept {
        return static_cast<std::size_t>(Feed(Feed(0xCBF29CE484222325ull, k.first), k.second));
    }
};

struct NameEqual {
    using is_transparent = void;

    bool operator()(std::u16string_view a, std::u16string_view b) const noexcept { return a == b; }
    bool operator()(std::u16string_view a, const NameKey& k) const noexcept {
        return a.size() == k.first.size() + k.second.size() && a.starts_with(k.first) &&
               a.ends_with(k.second);
    }
    bool operator()(const NameKey& k, std::u16string_view a) const noexcept {
        return (*this)(a, k);
    }
};

}  // namespace Velmora::SearchPath::searchpath_internal
