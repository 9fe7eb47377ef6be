#pragma once
// Internal to the path views: building one list from the lists of several sub-paths.

#include <memory>
#include <vector>

#include <velmora/pathinterfaces/ipath.hpp>

namespace Velmora::PathManagement::detail {

// AppendAll: appends `part` to `result`, reserving room for all of it first so that each sub-path
// costs at most one reallocation.
template <class T>
void AppendAll(std::vector<T>& result, const std::vector<T>& part) {
    result.reserve(result.size() + part.size());
    result.insert(result.end(), part.begin(), part.end());
}

// Elements: a list, whether it came by value or as a shared list.
template <class T>
const std::vector<T>& Elements(const std::vector<T>& list) {
    return list;
}
template <class T>
const std::vector<T>& Elements(const std::shared_ptr<const std::vector<T>>& list) {
    return *list;
}

// Concatenate: the lists that `get` returns for each path, in path order, shrunk to fit.
template <class T, class Get>
std::vector<T> Concatenate(const std::vector<std::shared_ptr<const IPath>>& paths, Get get) {
    std::vector<T> result;
    for (const auto& path : paths) {
        const auto part = get(*path);
        AppendAll(result, Elements(part));
    }
    result.shrink_to_fit();
    return result;
}

}  // namespace Velmora::PathManagement::detail
