// bench_partial: which entries of a large path a partial pathname names
// (GetPartiallyMatchingEntries of the scanned main search path, every entry kind in scope), per
// query.
//
// Cases, each cycling through prepared queries:
//   folder         one ordinary folder by its name: "d01234"
//   two_folders    a package folder under its owner, "+" left out: "d01230/pkg"
//   miss           a name no folder has: "absent_17/d01234"
//
// The baseline, in the same run: the plain suffix test a script would write, every folder's path
// (main entries and special sub-folders, as strings) tested with ends_with("/" + query). It does
// none of the leniency for "+" and "@" and no case folding.
//
// Run it on 100,000 folders: bench_partial --folders=100000 --files=2

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/searchpath/main_search_path.hpp>

#include "support/bench_main.hpp"
#include "support/summary_reporter.hpp"
#include "support/tree_locations.hpp"

namespace {

using Velmora::PathManagement::FilenameMatchingPolicy;
using Velmora::PathManagement::SearchScope;
using Velmora::SearchPath::MainSearchPath;

constexpr std::size_t kQueries = 1024;
const std::uint32_t kEverything[] = {0, 1, 2, 3, 4, 5};

struct Case {
    const char* name;
    std::vector<std::string> queries;
    std::size_t expected;  // entries each query names
};

std::vector<Case> MakeCases(const vpath_bench::GeneratedTree& tree,
                            const vpath_bench::TreeShape& shape) {
    const std::size_t folders = tree.folders.size();
    const std::size_t every = shape.specialsEvery;
    const auto FolderName = [&](std::size_t i) { return tree.folders[i].filename().string(); };
    std::vector<Case> cases = {{"folder", {}, 1}, {"two_folders", {}, 1}, {"miss", {}, 0}};
    std::uint64_t x = 0x2545F4914F6CDD1Dull;
    for (std::size_t k = 0; k < kQueries; ++k) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        const std::size_t i = static_cast<std::size_t>(x % folders);
        cases[0].queries.push_back(FolderName(i));
        // The folders that have special sub-folders, as the generator chooses them.
        const std::size_t withSpecials = every == 0 ? folders : i - i % every + shape.seed % every;
        if (withSpecials < folders)
            cases[1].queries.push_back(FolderName(withSpecials) + "/pkg");
        cases[2].queries.push_back("absent_" + std::to_string(k) + "/" + FolderName(i));
    }
    return cases;
}

std::vector<ustring> U16(const std::vector<std::string>& texts) {
    std::vector<ustring> out;
    for (const auto& t : texts)
        out.emplace_back(t.begin(), t.end());
    return out;
}

void BM_Index(benchmark::State& state, const MainSearchPath& path, const Case& c) {
    const auto queries = U16(c.queries);
    std::size_t i = 0;
    for (auto _ : state) {
        auto found = path.GetPartiallyMatchingEntries(SearchScope(kEverything), queries[i],
                                                      FilenameMatchingPolicy::PlatformDefault);
        if (found.size() != c.expected) {
            state.SkipWithError("wrong number of entries");
            break;
        }
        benchmark::DoNotOptimize(found);
        if (++i == queries.size())
            i = 0;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_Suffix(benchmark::State& state, const std::vector<std::string>& folders, const Case& c) {
    std::vector<std::string> suffixes;
    for (const auto& q : c.queries)
        suffixes.push_back("/" + q);
    // The baseline spells the package folder as it is on disk.
    for (auto& s : suffixes) {
        if (const auto at = s.rfind("/pkg"); at != std::string::npos && at + 4 == s.size())
            s.replace(at, 4, "/+pkg");
    }
    std::size_t i = 0;
    for (auto _ : state) {
        std::size_t found = 0;
        for (const auto& folder : folders)
            found += folder.ends_with(suffixes[i]) ? 1 : 0;
        if (found != c.expected) {
            state.SkipWithError("wrong number of folders");
            break;
        }
        benchmark::DoNotOptimize(found);
        if (++i == suffixes.size())
            i = 0;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

double PerQuery(const vpath_bench::SummaryReporter& reporter, const std::string& name) {
    const auto* run = reporter.Find(name, 1, "median");
    if (!run)
        return 0;
    const auto it = run->counters.find("items_per_second");
    return it == run->counters.end() || it->second <= 0 ? 0 : 1e9 / it->second;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = vpath_bench::InitializeBench(argc, argv, status);
    if (!options)
        return status;
    try {
        const vpath_bench::ScratchFolder scratch(options->scratchParent);
        const auto tree = vpath_bench::GenerateReportedTree(scratch.path(), options->shape);
        Velmora::SearchPath::ScanReport report;
        const auto path = MainSearchPath::Scan(vpath_bench::FolderLocations(tree), report);
        if (!report.empty())
            throw std::runtime_error(report.Problems().front().Describe());
        std::vector<std::string> folders;
        path->ForEachEntry(SearchScope(kEverything), [&](const auto& entry) {
            const ustring p = entry->GetAbsoluteIRI().getPath();
            folders.emplace_back(p.begin(), p.end());
            return false;
        });
        const auto cases = MakeCases(tree, options->shape);
        // Every answer is checked before anything is timed; this also builds the path's index of
        // folder names, which the first query would otherwise pay for.
        for (const auto& c : cases) {
            for (const auto& q : U16(c.queries)) {
                if (path->GetPartiallyMatchingEntries(SearchScope(kEverything), q,
                                                      FilenameMatchingPolicy::PlatformDefault)
                        .size() != c.expected) {
                    throw std::runtime_error(std::string(c.name) + ": wrong answer");
                }
            }
        }
        for (const auto& c : cases) {
            if (c.queries.empty())
                continue;
            const auto each = [&](benchmark::internal::Benchmark* b) {
                // Processor time: the queries run on one thread, and on a shared machine the wall
                // time mostly measures the other work.
                b->Repetitions(static_cast<int>(options->repetitions))
                    ->ReportAggregatesOnly(options->repetitions > 1);
            };
            each(benchmark::RegisterBenchmark(
                (std::string("index/") + c.name).c_str(),
                [&path, &c](benchmark::State& s) { BM_Index(s, *path, c); }));
            each(benchmark::RegisterBenchmark(
                (std::string("suffix/") + c.name).c_str(),
                [&folders, &c](benchmark::State& s) { BM_Suffix(s, folders, c); }));
        }
        vpath_bench::SummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();
        std::printf(
            "\nGetPartiallyMatchingEntries on %zu entries (%zu ordinary folders), processor "
            "time per query, median of %zu runs\n%-12s %16s %22s %10s\n",
            folders.size(), tree.folders.size(), options->repetitions, "case", "vpath (index)",
            "baseline (suffix test)", "speed-up");
        for (const auto& c : cases) {
            const double index = PerQuery(reporter, std::string("index/") + c.name);
            const double suffix = PerQuery(reporter, std::string("suffix/") + c.name);
            std::printf("%-12s %13.1f ns %19.1f ns %9.0fx\n", c.name, index, suffix,
                        index > 0 ? suffix / index : 0.0);
        }
        return reporter.Failed() ? 1 : 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_partial: %s\n", e.what());
        return 1;
    }
}
