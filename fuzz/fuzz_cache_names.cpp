// Fuzzes the path cache with odd file names. Names taken from the input bytes (any bytes but "/"
// and NUL, UTF-8 or not, up to the 255 bytes a file system allows) are made as files and folders
// of two folders on disk; the cache written of their scan and read back holds the same folders,
// files and special subfolders, every file the disk lists under its exact bytes, and answers
// lookups of each name.
//
// Input: a byte of choices, bit k making the k-th name a folder (with a file in it) rather than a
// file, then the names, separated by "/". Names of even place are made in both folders.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "cache_support.hpp"

namespace {

namespace fs = std::filesystem;
using vpath_fuzz::Require;

constexpr std::size_t kMaxNames = 16;

// The names of the regular files in `folder`, as the disk lists them, sorted.
std::vector<std::string> FilesOnDisk(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(folder)) {
        if (item.is_regular_file())
            names.push_back(item.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> FilesOfEntry(const Velmora::SearchPath::FolderEntry& entry) {
    std::vector<std::string> names;
    for (const ustring& name : entry.GetFileNames())
        names.push_back(Velmora::text::ToNative(name));
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    vpath_fuzz::SeedEmptyCorpora(
        *argc, *argv,
        {std::string("\x06") + "caf\xC3\xA9.vl/+pkg/@Cls/a b%20.vlx/\xFF\xFE.vl/x.VL/X.vl",
         std::string("\x01") + "private/resources/\xED\xA0\x80.vl/.hidden/" + std::string(255, 'n'),
         std::string("\x00") + "\r.vl/a\nb.vl/#.vl/?.vlp/\xF0\x9F\x98\x80.vl/.vl/a..vl"});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vpath_fuzz::Input input(data, size);
    const unsigned folderBits = input.Byte();
    const fs::path root = vpath_fuzz::Scratch() / "names";
    fs::remove_all(root);
    const std::vector<fs::path> mains = {root / "m0", root / "m1"};
    for (const auto& main : mains)
        fs::create_directories(main);
    for (std::size_t k = 0; k < kMaxNames && !input.Empty(); ++k) {
        std::string name(input.Piece('/'));
        name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
        name.resize(std::min<std::size_t>(name.size(), 255));
        if (name.empty() || name == "." || name == "..")
            continue;
        for (std::size_t m = 0; m < (k % 2 == 0 ? mains.size() : 1); ++m) {
            std::error_code error;
            if (k < 8 && (folderBits >> k & 1)) {
                if (fs::create_directory(mains[m] / name, error))
                    vpath_fuzz::WriteFile(mains[m] / name / "f.vl", "");
            } else if (!fs::exists(mains[m] / name, error)) {
                vpath_fuzz::WriteFile(mains[m] / name, "");
            }
        }
    }

    const auto scanned = vpath_fuzz::ScanFolders(mains);
    Require(scanned.size() == mains.size());
    for (std::size_t m = 0; m < mains.size(); ++m) {
        Require(FilesOfEntry(*scanned[m]) == FilesOnDisk(mains[m]));
        for (const auto& sub : scanned[m]->SubEntries())
            Require(FilesOfEntry(*sub) == std::vector<std::string>{"f.vl"});
    }
    // Judged as if written long after the folders were made, so that every stamp is kept.
    const std::string bytes =
        Velmora::SearchPath::PathCacheFactory(scanned, std::numeric_limits<std::int64_t>::max() / 2)
            .Encode(vpath_fuzz::CacheRoot());
    std::string why;
    const auto reread = Velmora::SearchPath::ParsePathCache(bytes, vpath_fuzz::CacheRoot(), why);
    Require(Velmora::SearchPath::SameEntries(reread, scanned));
    for (std::size_t m = 0; m < mains.size(); ++m)
        Require(FilesOfEntry(*reread[m]) == FilesOnDisk(mains[m]));
    vpath_fuzz::RequireLookupsHold(reread, true);
    return 0;
}
