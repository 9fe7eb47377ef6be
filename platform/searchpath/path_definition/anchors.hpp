#pragma once
// Internal to the path definition file: which folders of a list kept their order in another.
//
// Saving a changed path keeps the lines of the folders that kept their order where they are, and
// the manager's rebase puts a change's folders after the ones that kept theirs: both ask Anchors.

#include <cstddef>
#include <vector>

namespace Velmora::SearchPath::detail {

// Anchors: for a sequence of ranks (a position in some other order, or -1 for none), which items
// keep their order: one longest strictly increasing subsequence of the ranks that are not -1.
//
//   Anchors({0, 2, 1, -1, 3}) => {true, true, false, false, true}  (or 0, 1, 3 as anchors)
std::vector<bool> Anchors(const std::vector<std::ptrdiff_t>& ranks);

}  // namespace Velmora::SearchPath::detail
