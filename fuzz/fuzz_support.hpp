#pragma once
// What the fuzz targets that work on files share: a property check, a scratch folder in memory, an
// input read piece by piece, and seeds written into an empty corpus folder.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace vpath_fuzz {

// An abort makes libFuzzer keep the input that broke the property.
inline void Require(bool holds) {
    if (!holds)
        std::abort();
}

// A fresh folder of this process, on a memory file system where there is one: the targets write
// and rename files on every input, and flushing them to a disk would be all that they measure.
inline const std::filesystem::path& Scratch() {
    namespace fs = std::filesystem;
    struct Folder {
        fs::path path;
        ~Folder() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    };
    static const Folder folder = [] {
        const fs::path base = fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
        Folder made{base / ("vpath-fuzz-" + std::to_string(::getpid()))};
        fs::remove_all(made.path);
        fs::create_directories(made.path);
        return made;
    }();
    return folder.path;
}

inline void WriteFile(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string ReadFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The input, taken from the front: a byte at a time, then pieces, then the rest.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), size) {}

    unsigned Byte() {
        if (m_rest.empty())
            return 0;
        const auto byte = static_cast<unsigned char>(m_rest.front());
        m_rest.remove_prefix(1);
        return byte;
    }
    // The bytes up to the next `end` (which is taken too), or all that is left.
    std::string_view Piece(char end) {
        const std::size_t at = m_rest.find(end);
        const std::string_view piece = m_rest.substr(0, at);
        m_rest.remove_prefix(at == std::string_view::npos ? m_rest.size() : at + 1);
        return piece;
    }
    std::string_view Rest() const { return m_rest; }
    bool Empty() const { return m_rest.empty(); }

  private:
    std::string_view m_rest;
};

// Writes `seeds` into each corpus folder named on the command line that is still empty, so that
// the first run of a target starts from inputs that reach past its format's first checks.
inline void SeedEmptyCorpora(int argc, char** argv, const std::vector<std::string>& seeds) {
    namespace fs = std::filesystem;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        const fs::path folder = argv[i];
        if (argv[i][0] == '-' || !fs::is_directory(folder, error) || !fs::is_empty(folder, error) ||
            error) {
            continue;
        }
        for (std::size_t k = 0; k < seeds.size(); ++k)
            WriteFile(folder / ("seed-" + std::to_string(k)), seeds[k]);
    }
}

}  // namespace vpath_fuzz
