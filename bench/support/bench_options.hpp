#pragma once
// Settings shared by the benchmark programs, and the temporary folder that holds their tree.
//
// Sizes come from the environment and then the command line, the command line winning:
//
//   VPATH_BENCH_FOLDERS      --folders=N       ordinary folders on the path     (2000)
//   VPATH_BENCH_FILES        --files=N         files in each of them            (50)
//   VPATH_BENCH_SEED         --seed=N          seed of the generated tree       (1)
//   VPATH_BENCH_REPETITIONS  --repetitions=N   timed runs of each whole-tree case (7)
//   VPATH_BENCH_TMPDIR       --tmpdir=DIR      where the tree is written ($TMPDIR, else /tmp)
//
// Google Benchmark's own --benchmark_* flags are taken out of the command line before these are
// read.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "support/tree_generator.hpp"

namespace vpath_bench {

struct BenchOptions {
    TreeShape shape;
    std::size_t repetitions = 7;
    std::filesystem::path scratchParent;
};

// ParseBenchOptions: the options of argv[1..argc) and the environment; nullopt, with the reason in
// `error`, for an unknown flag or a value that is not a positive number. "--help" gives nullopt
// and an empty `error`.
std::optional<BenchOptions> ParseBenchOptions(int argc, char** argv, std::string& error);

// BenchUsage: the text that explains the flags above.
std::string BenchUsage(const char* program);

// ScratchFolder: a new, empty folder under `parent`, removed with all it holds when the object
// goes. Throws std::system_error if it cannot be made.
class ScratchFolder {
  public:
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const noexcept { return m_path; }

  private:
    std::filesystem::path m_path;
};

// GenerateReportedTree: GenerateTree under `root`, telling on stderr what it wrote and how long
// that took, since a large tree takes a few seconds.
GeneratedTree GenerateReportedTree(const std::filesystem::path& root, const TreeShape& shape);

}  // namespace vpath_bench
