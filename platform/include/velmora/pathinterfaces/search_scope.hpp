#pragma once
// SearchScope and FilenameMatchingPolicy: how a walk or a search over a path is bounded and how
// names are compared.

#include <cstddef>
#include <cstdint>
#include <span>

namespace Velmora::PathManagement {

// FilenameMatchingPolicy: how names of files and folders are compared.
enum class FilenameMatchingPolicy : std::uint32_t {
    // The platform's own rule; on Linux names are compared exactly.
    PlatformDefault = 0,
    // Upper and lower case are the same ("Area.VL" matches "area.vl"). Where a folder holds
    // several names that match, the one spelled exactly as asked wins, else the first by name.
    IgnoreCase = 1,
    // Code unit by code unit, whatever the platform.
    Exact = 2,
};

// SearchScope: the entry kinds that a walk or a search visits, as a view over a contiguous run of
// 32-bit kind codes (the PathEntryType values). The codes are not copied: the run must outlive
// every call that receives the scope.
//
//   const std::uint32_t primary[] = {0};
//   path.FindFirstInScope(SearchScope(primary), target, policy);   // main entries only
//
// Main entries are kind 0; the special sub-entries beneath them are their own kinds ("+" package
// folders 1, "@" class folders 2, private folders 3, resources folders 5). Resources folders are
// never searched for files by name, whatever the scope.
class SearchScope {
  public:
    constexpr SearchScope() noexcept = default;
    constexpr SearchScope(const std::uint32_t* begin, const std::uint32_t* end) noexcept
        : m_begin(begin), m_end(end) {}
    template <std::size_t N>
    constexpr SearchScope(const std::uint32_t (&codes)[N]) noexcept
        : m_begin(codes), m_end(codes + N) {}
    constexpr SearchScope(std::span<const std::uint32_t> codes) noexcept
        : m_begin(codes.data()), m_end(codes.data() + codes.size()) {}

    constexpr const std::uint32_t* begin() const noexcept { return m_begin; }
    constexpr const std::uint32_t* end() const noexcept { return m_end; }
    constexpr std::size_t size() const noexcept {
        return static_cast<std::size_t>(m_end - m_begin);
    }
    constexpr bool empty() const noexcept { return m_begin == m_end; }

    // Contains: whether the scope selects entries of kind `code`.
    constexpr bool Contains(std::uint32_t code) const noexcept {
        for (const std::uint32_t* p = m_begin; p != m_end; ++p) {
            if (*p == code)
                return true;
        }
        return false;
    }

  private:
    const std::uint32_t* m_begin = nullptr;
    const std::uint32_t* m_end = nullptr;
};

}  // namespace Velmora::PathManagement
