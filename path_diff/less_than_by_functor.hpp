#pragma once
// Internal to the library.
//
// LessThanByFunctorImpl: a less-than that orders two values by a key computed from each, for
// sorting by something that the values only give on request:
//
//   auto byLength = LessThanByFunctorImpl{[](const std::string& s) { return s.size(); }};
//   byLength("abc", "de")  => false
//   byLength("de", "abc")  => true
//
// Both keys are computed anew at every comparison and none is kept, so the key function is
// called twice per comparison; from several threads at once when a parallel sort uses it.

#include <utility>

namespace Velmora::PathManagement::detail {

template <typename KeyFunction>
struct LessThanByFunctorImpl {
    // REQUIRES: the keys have an operator< that is a strict weak order.
    template <typename T>
    bool operator()(const T& a, const T& b) const {
        const auto keyOfA = key(a);
        const auto keyOfB = key(b);
        return keyOfA < keyOfB;
    }

    KeyFunction key;
};

template <typename KeyFunction>
LessThanByFunctorImpl(KeyFunction) -> LessThanByFunctorImpl<KeyFunction>;

}  // namespace Velmora::PathManagement::detail
