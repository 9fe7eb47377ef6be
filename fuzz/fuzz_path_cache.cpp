// Fuzzes the path cache reader. Whatever the bytes, reading them must neither crash nor hang,
// looking names up in what it accepts must neither crash nor answer with a folder that lacks the
// file, and whatever it accepts must survive being written and read again unchanged.
//
// The first input byte picks how the rest is used, so that the fuzzer gets past the checksums:
//   0: the bytes as they stand;
//   1: the bytes with their checksums recomputed;
//   2: a valid cache of a small tree, overwritten by the bytes as (position, value) pairs, its
//      checksums then recomputed.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "cache_support.hpp"
#include "path_cache_format.hpp"

namespace {

using Velmora::SearchPath::path_cache_internal::Reseal;

// A valid cache of a small tree with every kind of folder, written once.
const std::string& BaseCache() {
    static const std::string bytes =
        vpath_fuzz::CacheOfTree({"a/x.vl", "a/y.vlx", "a/+p/z.vl", "a/+p/@C/C.vl", "a/private/q.vl",
                                 "a/resources/r.txt", "b/caf\xE9.vl", "b/@D/m.vl"},
                                {"a", "b"});
    return bytes;
}

std::string Input(std::string_view data) {
    const int mode = data.empty() ? 0 : static_cast<unsigned char>(data[0]) % 3;
    if (!data.empty())
        data.remove_prefix(1);
    if (mode == 0)
        return std::string(data);
    if (mode == 1)
        return Reseal(std::string(data));
    std::string bytes = BaseCache();
    for (std::size_t i = 0; i + 2 < data.size(); i += 3) {
        const std::size_t at =
            (static_cast<unsigned char>(data[i]) << 8 | static_cast<unsigned char>(data[i + 1])) %
            bytes.size();
        bytes[at] = data[i + 2];
    }
    if (data.size() % 3 == 1)
        bytes.resize(static_cast<unsigned char>(data.back()) * bytes.size() / 256);
    return Reseal(std::move(bytes));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes = Input({reinterpret_cast<const char*>(data), size});
    std::string why;
    const auto entries = Velmora::SearchPath::ParsePathCache(bytes, vpath_fuzz::CacheRoot(), why);
    if (entries.empty())
        return 0;
    vpath_fuzz::RequireLookupsHold(entries);
    vpath_fuzz::RequireRewriteHolds(entries);
    return 0;
}
