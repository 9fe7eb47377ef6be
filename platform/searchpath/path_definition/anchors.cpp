#include "anchors.hpp"

#include <algorithm>

namespace Velmora::SearchPath::detail {

std::vector<bool> Anchors(const std::vector<std::ptrdiff_t>& ranks) {
    // Patience sorting: tails[k] is the item that ends the best increasing run of length k + 1.
    std::vector<std::size_t> tails;
    std::vector<std::ptrdiff_t> previous(ranks.size(), -1);
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        if (ranks[i] < 0)
            continue;
        // Most items extend the best run so far: a path keeps most of its order.
        if (!tails.empty() && ranks[tails.back()] < ranks[i]) {
            previous[i] = static_cast<std::ptrdiff_t>(tails.back());
            tails.push_back(i);
            continue;
        }
        const auto at =
            std::lower_bound(tails.begin(), tails.end(), ranks[i],
                             [&](std::size_t t, std::ptrdiff_t r) { return ranks[t] < r; });
        if (at != tails.begin())
            previous[i] = static_cast<std::ptrdiff_t>(*(at - 1));
        if (at == tails.end())
            tails.push_back(i);
        else
            *at = i;
    }
    std::vector<bool> anchored(ranks.size(), false);
    for (auto i = tails.empty() ? std::ptrdiff_t{-1} : static_cast<std::ptrdiff_t>(tails.back());
         i >= 0; i = previous[static_cast<std::size_t>(i)]) {
        anchored[static_cast<std::size_t>(i)] = true;
    }
    return anchored;
}

}  // namespace Velmora::SearchPath::detail
