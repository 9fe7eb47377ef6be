#pragma once
// SharedRuns: how far two sequences agree at the front and at the back, element by element.
//
// A change of a long path touches a few folders: the lists before and after it share long runs
// at both ends, and only what lies between those runs needs looking up.
//
//   const auto runs = SharedRuns(before, after);
//   // before[runs.front, before.size() - runs.back) and the same range of `after` differ.

#include <cstddef>
#include <functional>

namespace Velmora::SearchPath {

struct SharedRunLengths {
    std::size_t front = 0;
    std::size_t back = 0;  // never reaching into the front run of either sequence
};

template <class A, class B, class Same = std::equal_to<>>
SharedRunLengths SharedRuns(const A& a, const B& b, Same same = {}) {
    SharedRunLengths runs;
    while (runs.front < a.size() && runs.front < b.size() && same(a[runs.front], b[runs.front]))
        ++runs.front;
    while (runs.back < a.size() - runs.front && runs.back < b.size() - runs.front &&
           same(a[a.size() - 1 - runs.back], b[b.size() - 1 - runs.back])) {
        ++runs.back;
    }
    return runs;
}

}  // namespace Velmora::SearchPath
