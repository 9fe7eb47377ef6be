#include "support/bench_options.hpp"

#include <stdlib.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace vpath_bench {
namespace {

bool ParseCount(std::string_view text, std::uint64_t& out) {
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, out);
    return ec == std::errc() && ptr == end && !text.empty();
}

// One setting, read from its environment variable and its flag.
struct Setting {
    const char* flag;      // "--folders="
    const char* variable;  // "VPATH_BENCH_FOLDERS"
    bool mayBeZero;
    std::uint64_t* target;
};

bool Apply(const Setting& s, std::string_view value, const char* from, std::string& error) {
    std::uint64_t n = 0;
    if (!ParseCount(value, n) || (n == 0 && !s.mayBeZero)) {
        error = std::string(from) + ": expected a positive whole number, got \"" +
                std::string(value) + "\"";
        return false;
    }
    *s.target = n;
    return true;
}

std::filesystem::path DefaultScratchParent() {
    for (const char* name : {"VPATH_BENCH_TMPDIR", "TMPDIR"}) {
        if (const char* value = std::getenv(name); value && *value)
            return value;
    }
    return "/tmp";
}

}  // namespace

std::optional<BenchOptions> ParseBenchOptions(int argc, char** argv, std::string& error) {
    error.clear();
    std::uint64_t folders = 2000, files = 50, seed = 1, repetitions = 7;
    const Setting settings[] = {
        {"--folders=", "VPATH_BENCH_FOLDERS", false, &folders},
        {"--files=", "VPATH_BENCH_FILES", false, &files},
        {"--seed=", "VPATH_BENCH_SEED", true, &seed},
        {"--repetitions=", "VPATH_BENCH_REPETITIONS", false, &repetitions},
    };
    for (const auto& s : settings) {
        if (const char* value = std::getenv(s.variable); value && *value) {
            if (!Apply(s, value, s.variable, error))
                return std::nullopt;
        }
    }
    BenchOptions options;
    options.scratchParent = DefaultScratchParent();
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--help" || arg == "-h")
            return std::nullopt;
        if (arg.starts_with("--tmpdir=")) {
            options.scratchParent = std::string(arg.substr(9));
            continue;
        }
        bool known = false;
        for (const auto& s : settings) {
            const std::string_view flag = s.flag;
            if (arg.starts_with(flag)) {
                known = true;
                if (!Apply(s, arg.substr(flag.size()), s.flag, error))
                    return std::nullopt;
            }
        }
        if (!known) {
            error = "unknown argument \"" + std::string(arg) + "\"";
            return std::nullopt;
        }
    }
    options.shape.folders = folders;
    options.shape.filesPerFolder = files;
    options.shape.seed = seed;
    options.repetitions = repetitions;
    return options;
}

std::string BenchUsage(const char* program) {
    return std::string("usage: ") + program +
           " [--benchmark_...] [--folders=N] [--files=N] [--seed=N] [--repetitions=N]"
           " [--tmpdir=DIR]\n"
           "  --folders=N       ordinary folders on the path (VPATH_BENCH_FOLDERS, 2000)\n"
           "  --files=N         files in each folder (VPATH_BENCH_FILES, 50)\n"
           "  --seed=N          seed of the generated tree (VPATH_BENCH_SEED, 1)\n"
           "  --repetitions=N   timed runs of each whole-tree case (VPATH_BENCH_REPETITIONS, 7)\n"
           "  --tmpdir=DIR      where the temporary tree goes (VPATH_BENCH_TMPDIR, $TMPDIR, "
           "/tmp)\n";
}

ScratchFolder::ScratchFolder(const std::filesystem::path& parent) {
    std::string pattern = (parent / "vpath-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
    m_path = std::filesystem::absolute(pattern);  // the host scans absolute locations only
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

GeneratedTree GenerateReportedTree(const std::filesystem::path& root, const TreeShape& shape) {
    const auto start = std::chrono::steady_clock::now();
    auto tree = GenerateTree(root, shape);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::fprintf(stderr, "generated %zu files in %zu folders under %s in %.2f s (seed %llu)\n",
                 tree.fileCount, tree.folderCount, root.c_str(), took.count(),
                 static_cast<unsigned long long>(shape.seed));
    return tree;
}

}  // namespace vpath_bench
