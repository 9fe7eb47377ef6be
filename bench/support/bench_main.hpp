#pragma once
// The start of every benchmark program: Google Benchmark's flags, then the tree's.

#include <optional>

#include "support/bench_options.hpp"

namespace vpath_bench {

// InitializeBench: takes Google Benchmark's flags, then ours. Nothing when the program should end
// at once, with `status` its exit status: 0 after --help, 2 after a bad flag (the usage printed).
std::optional<BenchOptions> InitializeBench(int& argc, char** argv, int& status);

}  // namespace vpath_bench
