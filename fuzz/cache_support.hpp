#pragma once
// What the path cache's fuzz targets share: the root their caches are written for, real caches of
// small trees, and the checks that whatever a reader accepts answers lookups and writes back alike.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_cache.hpp>

#include "fuzz_support.hpp"

namespace vpath_fuzz {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::FolderEntryList;

inline const AbsoluteIRI& CacheRoot() {
    static const AbsoluteIRI root(u"file:///fuzz/pathdef");
    return root;
}

inline AbsoluteIRI IriOf(const std::filesystem::path& folder) {
    return AbsoluteIRI(u"file://" + Velmora::text::FromNative(folder.string()));
}

// The main entries of `folders`, as a scan of the disk makes them.
inline FolderEntryList ScanFolders(const std::vector<std::filesystem::path>& folders) {
    std::vector<AbsoluteIRI> iris;
    for (const auto& folder : folders)
        iris.push_back(IriOf(folder));
    Velmora::SearchPath::ScanReport report;
    return Velmora::SearchPath::MainSearchPath::Scan(iris, report)->GetFolderEntries();
}

// A cache written by the cache writer for CacheRoot(), of a tree made of `files` (paths relative to
// a fresh folder, whose first segments are the main folders) under `mains`.
inline std::string CacheOfTree(const std::vector<std::string>& files,
                               const std::vector<std::string>& mains) {
    namespace fs = std::filesystem;
    const fs::path root = Scratch() / "tree";
    fs::remove_all(root);
    std::vector<fs::path> folders;
    for (const auto& main : mains) {
        folders.push_back(root / main);
        fs::create_directories(root / main);
    }
    for (const auto& file : files) {
        fs::create_directories((root / file).parent_path());
        WriteFile(root / file, "");
    }
    std::string bytes =
        Velmora::SearchPath::PathCacheFactory(ScanFolders(folders), 1).Encode(CacheRoot());
    fs::remove_all(root);
    return bytes;
}

// Every name of every entry, and one that no entry holds, is looked up through the path-wide index
// with each policy; whatever is found is a file, and with `mustFind` each name of an entry that is
// searched by name is found.
inline void RequireLookupsHold(const FolderEntryList& entries, bool mustFind = false) {
    namespace pm = Velmora::PathManagement;
    const auto path = Velmora::SearchPath::MainSearchPath::Create(entries);
    const std::uint32_t all[] = {0, 1, 2, 3, 5};
    const std::uint32_t searched[] = {0, 1, 3};
    std::vector<std::pair<ustring, ustring>> names = {{u"absent", u".vl"}};
    path->ForEachEntry(pm::SearchScope(all), [&](const auto& entry) {
        for (const auto& item : *entry->GetItems())
            names.emplace_back(item->GetName(), item->GetExtension());
        return false;
    });
    std::size_t mustFindFrom = names.size();
    if (mustFind) {
        path->ForEachEntry(pm::SearchScope(searched), [&](const auto& entry) {
            for (const auto& item : *entry->GetItems())
                names.emplace_back(item->GetName(), item->GetExtension());
            return false;
        });
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto& [name, extension] = names[i];
        const std::vector<ustring> extensions = {extension};
        const pm::detail::SearchTarget target(name, extensions);
        for (const auto policy : {pm::FilenameMatchingPolicy::PlatformDefault,
                                  pm::FilenameMatchingPolicy::IgnoreCase}) {
            const auto first = path->FindFirstInScope(pm::SearchScope(all), target, policy);
            Require(!first || first->GetPathItem() != nullptr);
            Require(first || i < mustFindFrom);
            for (const auto& found : path->FindAllInScope(pm::SearchScope(all), target, policy))
                Require(found.GetPathItem() != nullptr);
        }
    }
}

// What a reader accepted is written again, read back and written to the same bytes.
inline void RequireRewriteHolds(const FolderEntryList& entries) {
    const std::string again = Velmora::SearchPath::PathCacheFactory(entries, 1).Encode(CacheRoot());
    std::string why;
    const auto reread = Velmora::SearchPath::ParsePathCache(again, CacheRoot(), why);
    Require(reread.size() == entries.size());
    Require(Velmora::SearchPath::PathCacheFactory(reread, 1).Encode(CacheRoot()) == again);
}

}  // namespace vpath_fuzz
