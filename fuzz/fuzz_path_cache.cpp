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
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

#include "path_cache_format.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ParsePathCache;
using Velmora::SearchPath::PathCacheFactory;
using Velmora::SearchPath::path_cache_internal::Reseal;

const AbsoluteIRI kRoot(u"file:///fuzz/pathdef");

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// A valid cache of a small tree with every kind of folder, written once.
const std::string& BaseCache() {
    static const std::string bytes = [] {
        namespace fs = std::filesystem;
        const fs::path root = fs::temp_directory_path() / "vpath-fuzz-path-cache";
        fs::remove_all(root);
        for (const char* f : {"a/x.vl", "a/y.vlx", "a/+p/z.vl", "a/+p/@C/C.vl", "a/private/q.vl",
                              "a/resources/r.txt", "b/caf\xE9.vl", "b/@D/m.vl"}) {
            fs::create_directories((root / f).parent_path());
            std::ofstream(root / f) << "";
        }
        Velmora::SearchPath::ScanReport report;
        const auto path = MainSearchPath::Scan(
            {AbsoluteIRI(u"file://" + Velmora::text::FromNative((root / "a").string())),
             AbsoluteIRI(u"file://" + Velmora::text::FromNative((root / "b").string()))},
            report);
        std::string encoded = PathCacheFactory(path->GetFolderEntries(), 1).Encode(kRoot);
        fs::remove_all(root);
        return encoded;
    }();
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
    const auto entries = ParsePathCache(bytes, kRoot, why);
    if (entries.empty())
        return 0;
    // Every name of every entry, and one that no entry holds, through the path-wide index.
    const auto path = MainSearchPath::Create(entries);
    const std::uint32_t all[] = {0, 1, 2, 3, 5};
    std::vector<std::pair<ustring, ustring>> names = {{u"absent", u".vl"}};
    path->ForEachEntry(Velmora::PathManagement::SearchScope(all), [&](const auto& entry) {
        for (const auto& item : *entry->GetItems())
            names.emplace_back(item->GetName(), item->GetExtension());
        return false;
    });
    for (const auto& [name, extension] : names) {
        const std::vector<ustring> extensions = {extension};
        const Velmora::PathManagement::detail::SearchTarget target(name, extensions);
        for (const auto policy : {Velmora::PathManagement::FilenameMatchingPolicy::PlatformDefault,
                                  Velmora::PathManagement::FilenameMatchingPolicy::IgnoreCase}) {
            const auto first =
                path->FindFirstInScope(Velmora::PathManagement::SearchScope(all), target, policy);
            Require(!first || first->GetPathItem() != nullptr);
            for (const auto& found :
                 path->FindAllInScope(Velmora::PathManagement::SearchScope(all), target, policy)) {
                Require(found.GetPathItem() != nullptr);
            }
        }
    }

    const std::string again = PathCacheFactory(entries, 1).Encode(kRoot);
    const auto reread = ParsePathCache(again, kRoot, why);
    Require(reread.size() == entries.size());
    Require(PathCacheFactory(reread, 1).Encode(kRoot) == again);
    return 0;
}
