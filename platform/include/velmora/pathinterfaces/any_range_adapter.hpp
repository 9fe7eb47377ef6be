#pragma once
// AnyRangeAdapter: a list of T passed by its type-erased range instead of by a container type.
//
// Operations that take lists of folders accept any range of T through this one type, so that a
// caller can pass a vector, a slice of one or a Boost adaptor without copying. The range is a Boost
// any_range whose iterators keep the iterator they erase in a 64-byte buffer inside themselves, so
// iterating allocates nothing for iterators of that size or less.
//
// A vector or an array passed so is also kept as a span (Contiguous()), for callers that read a
// long list in one pass. The adapter refers to the caller's range: the range must outlive the
// adapter and every iterator taken from it. Elements are read as const T&, so the range must yield
// lvalues.
//
//   std::vector<ustring> folders = {u"tb", u"utils"};
//   void Show(const AnyRangeAdapter<ustring>& folders);
//   Show(folders);                                                  // forward traversal
//   AnyRangeAdapter<ustring, boost::bidirectional_traversal_tag> both(folders);
//   for (const ustring& f : both | boost::adaptors::reversed) ...  // "utils", "tb"

#include <cstddef>
#include <iterator>
#include <optional>
#include <ranges>
#include <span>
#include <type_traits>

#include <boost/range/any_range.hpp>
#include <boost/range/begin.hpp>
#include <boost/range/detail/any_iterator_buffer.hpp>
#include <boost/range/end.hpp>
#include <boost/range/iterator.hpp>

namespace Velmora::PathManagement::detail {

template <class T, class Traversal = boost::forward_traversal_tag>
class AnyRangeAdapter {
  public:
    using Buffer = boost::any_iterator_buffer<64>;
    using Range = boost::any_range<T, Traversal, const T&, std::ptrdiff_t, Buffer>;
    using iterator = typename Range::iterator;
    using const_iterator = iterator;
    using value_type = T;
    using reference = const T&;

    // An empty range.
    AnyRangeAdapter() = default;

    // The elements of `source`, in its order. Implicit, so that a container can be passed where an
    // adapter is expected.
    template <class Source>
    requires(
        !std::is_same_v<std::remove_cvref_t<Source>, AnyRangeAdapter> &&
        std::is_lvalue_reference_v<typename std::iterator_traits<
            typename boost::range_iterator<const std::remove_cvref_t<Source>>::type>::reference> &&
        std::is_convertible_v<typename std::iterator_traits<typename boost::range_iterator<
                                  const std::remove_cvref_t<Source>>::type>::reference,
                              const T&>)
        AnyRangeAdapter(const Source& source)  // NOLINT(google-explicit-constructor)
        : m_range(boost::begin(source), boost::end(source)) {
        if constexpr (std::ranges::contiguous_range<const Source> &&
                      std::ranges::sized_range<const Source> &&
                      std::is_same_v<std::ranges::range_value_t<const Source>, T>) {
            m_contiguous = std::span<const T>(std::ranges::data(source), std::ranges::size(source));
        }
    }

    // The elements of [first, last).
    template <class Iterator>
    AnyRangeAdapter(Iterator first, Iterator last) : m_range(first, last) {}

    iterator begin() const { return m_range.begin(); }
    iterator end() const { return m_range.end(); }
    bool empty() const { return m_range.empty(); }
    // The erased Boost range itself.
    const Range& GetRange() const noexcept { return m_range; }
    // The elements as one array, when they came from a source that holds them so (a vector, an
    // array): a long list is then read without a call for each step.
    const std::optional<std::span<const T>>& Contiguous() const noexcept { return m_contiguous; }

  private:
    Range m_range;
    std::optional<std::span<const T>> m_contiguous;
};

}  // namespace Velmora::PathManagement::detail
