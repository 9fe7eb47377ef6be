// Fuzzes the path cache the way a start loads it: the bytes are a file, loaded mapped and read
// whole, for a path of folders. Whatever the bytes and the path, both loads give what reading the
// bytes without a path gives (a path only lets entries share its folders' locations), and
// whatever is accepted answers lookups and is written back alike.
//
// Input: a byte of choices (bit 0: recompute the checksums, to reach past them; bits 1 to 4: how
// the path is made from the folders the cache holds), then the cache's bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cache_support.hpp"
#include "path_cache_format.hpp"

namespace {

using Velmora::SearchPath::FolderEntryList;
using Velmora::SearchPath::LoadPathCache;
using Velmora::SearchPath::ParsePathCache;
using Velmora::SearchPath::SameEntries;
using vpath_fuzz::AbsoluteIRI;
using vpath_fuzz::Require;

// The path a start would load the cache for: the folders the cache holds, reordered, thinned out
// and mixed with folders it does not hold, as the user's path has changed since it was written.
std::vector<AbsoluteIRI> PathFor(const FolderEntryList& entries, unsigned choices) {
    std::vector<AbsoluteIRI> folders;
    for (const auto& entry : entries)
        folders.push_back(entry->GetLocation());
    if ((choices & 2) && !folders.empty())
        folders.erase(folders.begin());
    if (choices & 4)
        std::reverse(folders.begin(), folders.end());
    if (choices & 8)
        folders.insert(folders.begin() + static_cast<std::ptrdiff_t>(folders.size() / 2),
                       AbsoluteIRI(u"file:///fuzz/not/cached"));
    if ((choices & 16) && !folders.empty())
        folders.push_back(folders.front());
    return folders;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    const std::vector<std::string> caches = {
        vpath_fuzz::CacheOfTree({"a/x.vl", "a/y.vlx", "a/+p/z.vl", "a/+p/@C/C.vl", "a/private/q.vl",
                                 "a/resources/r.txt", "b/caf\xE9.vl", "b/@D/m.vl"},
                                {"a", "b"}),
        vpath_fuzz::CacheOfTree({"one/f.vl", "two/f.vl", "two/g\xFF.vlp", "three/@K/K.vl"},
                                {"one", "two", "three", "empty"}),
    };
    std::vector<std::string> seeds;
    for (const std::string& cache : caches) {
        for (const char choices : {'\x00', '\x0B', '\x15'})
            seeds.push_back(choices + cache);
    }
    vpath_fuzz::SeedEmptyCorpora(*argc, *argv, seeds);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vpath_fuzz::Input input(data, size);
    const unsigned choices = input.Byte();
    std::string bytes(input.Rest());
    if (choices & 1)
        bytes = Velmora::SearchPath::path_cache_internal::Reseal(std::move(bytes));
    const auto file = vpath_fuzz::Scratch() / "path.cache";
    vpath_fuzz::WriteFile(file, bytes);

    std::string why;
    const auto alone = ParsePathCache(bytes, vpath_fuzz::CacheRoot(), why);
    const std::vector<AbsoluteIRI> folders = PathFor(alone, choices);
    for (const bool inMemory : {false, true}) {
        const auto loaded =
            LoadPathCache(vpath_fuzz::IriOf(file), vpath_fuzz::CacheRoot(), folders, inMemory);
        Require(SameEntries(loaded, alone));
        // A mapped cache's names are read from the file as lookups ask for them.
        if (!inMemory && !loaded.empty())
            vpath_fuzz::RequireLookupsHold(loaded);
    }
    if (!alone.empty())
        vpath_fuzz::RequireRewriteHolds(alone);
    return 0;
}
