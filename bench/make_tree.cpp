// vpath_bench_tree ROOT [--folders=N] [--files=N] [--seed=N]: writes the benchmarks' generated
// tree under ROOT (an empty folder) and prints its ordinary folders as one search path, joined
// by ":", for scripts that run other tools on the same data:
//
//   root=$(mktemp -d) && path=$(vpath_bench_tree "$root" --folders=100)
//   vpath --path "$path" which shared_3

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "support/bench_options.hpp"

int main(int argc, char** argv) {
    if (argc < 2 || std::string(argv[1]).starts_with("-")) {
        std::fprintf(stderr, "usage: %s ROOT [--folders=N] [--files=N] [--seed=N]\n", argv[0]);
        return 2;
    }
    // The options after ROOT are those of the benchmarks.
    std::vector<char*> rest = {argv[0]};
    rest.insert(rest.end(), argv + 2, argv + argc);
    std::string error;
    const auto options =
        vpath_bench::ParseBenchOptions(static_cast<int>(rest.size()), rest.data(), error);
    if (!options) {
        std::fprintf(stderr, "%s%s%s", error.c_str(), error.empty() ? "" : "\n",
                     vpath_bench::BenchUsage(argv[0]).c_str());
        return error.empty() ? 0 : 2;
    }
    try {
        const auto tree = vpath_bench::GenerateReportedTree(argv[1], options->shape);
        std::string path;
        for (const auto& folder : tree.folders)
            path.append(path.empty() ? "" : ":").append(folder.string());
        std::printf("%s\n", path.c_str());
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vpath_bench_tree: %s\n", e.what());
        return 1;
    }
}
