#pragma once
// Synthetic search-path trees for the benchmarks.
//
// GenerateTree writes, under a root folder, `folders` ordinary folders that stand for the folders
// of a search path, each holding `filesPerFolder` empty files of the language (".vl", ".vlp",
// ".vlx"). Most names occur in one folder only ("fn_<folder>_<k>"); a pool of shared names
// ("shared_<j>") is spread over many folders, so that a lookup of one of them must pick the first
// of several folders that hold it. Some folders also get the special sub-folders "+pkg", "@Cls"
// and "private". The same shape and seed always give the same tree, on any platform.
//
// The tree comes with its manifest: for every name in the ordinary folders, the first folder that
// holds it under each extension. That is what a correct lookup must answer, so a benchmark can
// check its results before it times them.
//
//   vpath_bench::TreeShape shape;            // 2,000 folders of 50 files
//   shape.folders = 20;
//   const auto tree = vpath_bench::GenerateTree("/tmp/t", shape);
//   // tree.folders[0] == "/tmp/t/d00000", tree.fileCount >= 20 * 50
//
// This is test machinery: it uses the C++ library and POSIX directly, not the host's seam.

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vpath_bench {

// The language's extensions in order of preference, as the tree uses them.
inline constexpr std::array<const char*, 3> kExtensions = {".vlx", ".vlp", ".vl"};

// TreeShape: the size and make-up of a generated tree.
struct TreeShape {
    std::size_t folders = 2000;
    std::size_t filesPerFolder = 50;
    std::uint64_t seed = 1;
    // Per cent of each folder's files that take a name from the shared pool.
    unsigned sharedPercent = 20;
    // How many folders, on average, hold each shared name; sets the size of the pool.
    std::size_t foldersPerSharedName = 100;
    // One folder in this many gets "+pkg", "@Cls" and "private" (0: none does).
    std::size_t specialsEvery = 10;
    // Files in each special sub-folder.
    std::size_t filesPerSpecial = 3;
};

// NameRecord: one base name found in the ordinary folders, and where it first occurs.
struct NameRecord {
    static constexpr std::int64_t kNowhere = -1;

    std::string base;  // "fn_12_3", "shared_7"
    // Index (in path order) of the first folder holding base + kExtensions[e], or kNowhere.
    std::array<std::int64_t, kExtensions.size()> firstByExtension{kNowhere, kNowhere, kNowhere};

    // The folder that a lookup of `base` under every extension must answer: the first folder that
    // holds it under any of them.
    std::int64_t FirstFolder() const noexcept;
    // The extension (index into kExtensions) that `base` has in FirstFolder().
    std::size_t ExtensionInFirstFolder() const noexcept;
};

// GeneratedTree: what GenerateTree wrote.
struct GeneratedTree {
    std::filesystem::path root;
    std::vector<std::filesystem::path> folders;  // the ordinary folders, in path order
    std::size_t fileCount = 0;                   // every file written, special sub-folders included
    std::size_t folderCount = 0;                 // every folder written beneath the root
    std::vector<NameRecord> sharedNames;         // the pool names that were used
    std::vector<NameRecord> singleNames;         // names found in one folder only
};

// GenerateTree: writes the tree of `shape` under `root`, which must exist and be empty.
// Throws std::system_error if a file or folder cannot be created.
GeneratedTree GenerateTree(const std::filesystem::path& root, const TreeShape& shape);

// MissingName: a base name that no generated tree holds: "absent_<k>".
std::string MissingName(std::size_t k);

}  // namespace vpath_bench
