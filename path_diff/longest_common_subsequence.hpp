#pragma once
// Internal to the library: callers use PathEntryVectorDifferentiator, not this engine.
//
// LongestCommonSubsequence: one longest subsequence common to two sequences, by the method of
// Hunt and Szymanski. Elements are equal when std::equal_to says so and are hashed with
// std::hash; for shared pointers that is the address they hold, so two distinct objects for the
// same folder are different elements.
//
//   first = P, Q, R   second = R, P, Q   => P, Q
//   first = P, Q      second = Q, P      => Q
//   first = P, P      second = P         => P (the one at index 0)
//
// The engine indexes every position of every element of `second`, walks `first` once keeping,
// for each length, the smallest position of `second` at which a common subsequence of that length
// can end, and reads the answer back along links between matches. Time is of order
// (m + n + r) log n, where r is the number of pairs (i, j) with first[i] == second[j].
//
// Positions are 32-bit: sequences of 2^32 elements or more are outside the design.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <memory_resource>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/container/deque.hpp>
#include <boost/container/options.hpp>

namespace Velmora::PathManagement::detail {

template <typename ElementType, typename SequenceType>
class LongestCommonSubsequence {
  public:
    // One match of a common subsequence: first[index], and the match before it on the same
    // subsequence (null for the first). Chains share their older nodes.
    struct IndexNode {
        IndexNode(unsigned int i, std::shared_ptr<IndexNode> p) noexcept
            : index(i), previous(std::move(p)) {}
        // A chain can be as long as the subsequence. Left to the default, releasing its last node
        // would release the one before it from inside its destructor, and so on, one stack frame
        // per match: a long chain would overflow the stack. Nodes that only this chain holds are
        // released here one after the other instead.
        ~IndexNode() {
            std::shared_ptr<IndexNode> node = std::move(previous);
            while (node && node.use_count() == 1) {
                std::shared_ptr<IndexNode> older = std::move(node->previous);
                node = std::move(older);
            }
        }
        IndexNode(const IndexNode&) = delete;
        IndexNode& operator=(const IndexNode&) = delete;

        unsigned int index;
        std::shared_ptr<IndexNode> previous;
    };

    // The engine reads both sequences while it works and keeps references to them: they must
    // outlive it and stay unchanged.
    LongestCommonSubsequence(const SequenceType& first, const SequenceType& second)
        : m_first(first), m_second(second) {}
    LongestCommonSubsequence(SequenceType&&, const SequenceType&) = delete;
    LongestCommonSubsequence(const SequenceType&, SequenceType&&) = delete;
    LongestCommonSubsequence(SequenceType&&, SequenceType&&) = delete;

    // GetLongestCommonSubsequence: a longest common subsequence, as copies of elements of
    // `first` in the order of `first`. Computed on the first call and kept; later calls return
    // the same. Among several of the greatest length, the one returned is the chain that ends at
    // the match that last lowered (or set) the highest threshold.
    SequenceType GetLongestCommonSubsequence() & {
        Compute();
        return *m_result;
    }
    // The same on an engine about to go: the kept answer is handed over rather than copied.
    SequenceType GetLongestCommonSubsequence() && {
        Compute();
        return std::move(*m_result);
    }

  private:
    // Most elements stand once or twice in `second`, so each queue has blocks of four positions
    // (Boost.Container's deque takes its block size as an option and allocates nothing while
    // empty; the standard one starts every queue with a 512-byte block, which made the index
    // ten times larger than its contents). The memory comes from a buffer of the engine's own:
    // the index only grows while the engine works, so memory is handed out in large chunks,
    // never taken back one piece at a time, and released all at once when the engine goes.
    using Positions = boost::container::deque<
        unsigned int, std::pmr::polymorphic_allocator<unsigned int>,
        boost::container::deque_options_t<boost::container::block_size<4u>>>;

    void Compute() {
        if (m_result)
            return;
        IndexSecond();
        BuildMatchList();
        Extend();
        m_result = ReadResult();
    }

    // Each element's positions in `second`, largest first: pushing to the front while walking
    // forward leaves them in decreasing order.
    void IndexSecond() {
        // Buckets for every element at once: the load factor stays within 1.0 and no rehash
        // moves the index while it fills.
        m_positions.reserve(m_second.size());
        unsigned int j = 0;
        for (const ElementType& element : m_second) {
            Positions& positions = m_positions[element];
            // On an empty queue the front and the back are one place. A new std::deque has its
            // cursor at the start of its first block, so a push to the front would allocate a
            // second block for every element: twice the memory of the whole index.
            if (positions.empty())
                positions.push_back(j++);
            else
                positions.push_front(j++);
        }
    }

    // The whole list is made before Extend starts. An element of `first` that `second` lacks
    // gets an empty queue here; the pointers stay good through any rehash this causes, since an
    // unordered map never moves its values.
    void BuildMatchList() {
        m_matches.reserve(m_first.size());
        for (const ElementType& element : m_first)
            m_matches.push_back(&m_positions[element]);
    }

    void Extend() {
        unsigned int i = 0;
        for (const Positions* positions : m_matches) {
            // Largest position first, so that no two positions of this one element end up on
            // the same chain: each lands at or below the slot the previous one took.
            for (const unsigned int j : *positions)
                Place(i, j);
            ++i;
        }
    }

    void Place(unsigned int i, unsigned int j) {
        const auto slot = std::lower_bound(m_thresholds.begin(), m_thresholds.end(), j);
        const auto k = static_cast<std::size_t>(slot - m_thresholds.begin());
        if (slot == m_thresholds.end()) {
            m_thresholds.push_back(j);
            m_links.push_back(std::make_shared<IndexNode>(i, k == 0 ? nullptr : m_links[k - 1]));
        } else if (j < *slot) {
            *slot = j;
            m_links[k] = std::make_shared<IndexNode>(i, k == 0 ? nullptr : m_links[k - 1]);
        }
    }

    SequenceType ReadResult() const {
        SequenceType result;
        if (m_links.empty())
            return result;
        result.reserve(m_links.size());
        for (const IndexNode* node = m_links.back().get(); node != nullptr;
             node = node->previous.get()) {
            result.push_back(m_first[node->index]);
        }
        std::reverse(result.begin(), result.end());
        return result;
    }

    const SequenceType& m_first;
    const SequenceType& m_second;
    std::pmr::monotonic_buffer_resource m_pool;  // declared first: it outlives the index
    std::pmr::unordered_map<ElementType, Positions, std::hash<ElementType>,
                            std::equal_to<ElementType>>
        m_positions{&m_pool};
    std::vector<const Positions*> m_matches;
    std::vector<unsigned int> m_thresholds;
    std::vector<std::shared_ptr<IndexNode>> m_links;
    std::optional<SequenceType> m_result;
};

}  // namespace Velmora::PathManagement::detail
