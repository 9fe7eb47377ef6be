#pragma once
// Two long paths, different in length and content, with names that are not UTF-8.

#include <array>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>

namespace vpath_test {

inline std::array<std::vector<foundation::storage::vfs::AbsoluteIRI>, 2> CrashPaths() {
    std::array<std::vector<foundation::storage::vfs::AbsoluteIRI>, 2> paths;
    for (int k = 0; k < 600; ++k) {
        const std::u16string n = Velmora::text::FromNative(std::to_string(k));
        paths[0].emplace_back(u"file:///srv/toolboxes/first/folder-" + n + u"-caf%E9");
        if (k < 450)
            paths[1].emplace_back(u"file:///home/ada/second/" + n + u"/%C3%A9t%C3%A9");
    }
    return paths;
}

}  // namespace vpath_test
