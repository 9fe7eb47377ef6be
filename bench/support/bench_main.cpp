#include "support/bench_main.hpp"

#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

namespace vpath_bench {

std::optional<BenchOptions> InitializeBench(int& argc, char** argv, int& status) {
    benchmark::Initialize(&argc, argv);
    std::string error;
    auto options = ParseBenchOptions(argc, argv, error);
    if (!options) {
        std::fprintf(stderr, "%s%s%s", error.c_str(), error.empty() ? "" : "\n",
                     BenchUsage(argv[0]).c_str());
        status = error.empty() ? 0 : 2;
    }
    return options;
}

}  // namespace vpath_bench
