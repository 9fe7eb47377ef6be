// bench_lookup: how many names per second the host's search path resolves, on a large path
// scanned from a generated tree.
//
// Each case cycles through a few thousand prepared search targets with FindFirstInScope over the
// folders of the path (scope {0}), on one thread and on two threads reading the same snapshot:
//   hit            names held by exactly one folder, anywhere on the path
//   hit_shadowed   names held by many folders under mixed extensions: the first folder wins
//   miss           names that no folder holds
//   own_extension  names written with their extension ("fn_12_3.vlp"): only that one is looked for
// Targets are made before timing, as a caller that resolves the same names repeatedly would.
// Every target's answer is checked against the tree's manifest before anything is timed. Each
// case runs several times and the summary keeps the median.
//
// The baseline, in the same run: the straightforward path-wide index a standard library gives, a
// std::unordered_map from whole file name to the first folder that holds it, probed once per
// extension with a reused key buffer. It answers only a folder number: it does none of the host's
// work on scopes, entries and found items.

#include <cstdio>
#include <deque>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "support/bench_main.hpp"
#include "support/summary_reporter.hpp"
#include "support/tree_locations.hpp"

namespace {

using Velmora::PathManagement::CreateSearchTargetWithExtensionInFilenamePreferred;
using Velmora::PathManagement::FilenameMatchingPolicy;
using Velmora::PathManagement::SearchScope;
using Velmora::PathManagement::detail::SearchTarget;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;
namespace Constants = Velmora::PathManagement::Constants;
using vpath_bench::NameRecord;

constexpr std::size_t kTargetsPerCase = 4096;
const std::uint32_t kPrimary[] = {0};

// One prepared lookup and what it must answer.
struct Lookup {
    SearchTarget target;
    std::int64_t folder;    // index of the folder that must answer, or NameRecord::kNowhere
    std::size_t extension;  // index into kExtensions of the file found
};

struct LookupCase {
    const char* name;
    std::vector<Lookup> lookups;
};

struct Workload {
    vpath_bench::GeneratedTree tree;
    std::shared_ptr<const MainSearchPath> path;
    std::deque<ustring> names;  // borrowed by the targets: a deque never moves what it holds
    std::vector<LookupCase> cases;
};

// A fixed, spread-out choice of `count` of `n` positions, the same in every run.
std::vector<std::size_t> Spread(std::size_t n, std::size_t count) {
    std::vector<std::size_t> picks;
    if (n == 0)
        return picks;
    std::uint64_t x = 0x2545F4914F6CDD1Dull;
    for (std::size_t k = 0; k < count; ++k) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        picks.push_back(static_cast<std::size_t>(x % n));
    }
    return picks;
}

ustring U16(const std::string& ascii) {
    return ustring(ascii.begin(), ascii.end());
}

Lookup Extensionless(const NameRecord& record, std::deque<ustring>& names) {
    names.push_back(U16(record.base));
    return {SearchTarget(names.back(), Constants::LanguageExtensions), record.FirstFolder(),
            record.ExtensionInFirstFolder()};
}

// A name with an extension it has somewhere, preferring one its first folder does not hold, so
// that the answer lies further down the path.
Lookup WithOwnExtension(const NameRecord& record) {
    std::size_t e = record.ExtensionInFirstFolder();
    for (std::size_t k = 0; k < vpath_bench::kExtensions.size(); ++k) {
        if (record.firstByExtension[k] != NameRecord::kNowhere &&
            record.firstByExtension[k] != record.FirstFolder()) {
            e = k;
        }
    }
    const ustring name = U16(record.base + vpath_bench::kExtensions[e]);
    return {CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions),
            record.firstByExtension[e], e};
}

std::vector<LookupCase> MakeCases(const vpath_bench::GeneratedTree& tree,
                                  std::deque<ustring>& names) {
    const auto& singles = tree.singleNames;
    const auto& shared = tree.sharedNames;
    std::vector<LookupCase> cases = {
        {"hit", {}}, {"hit_shadowed", {}}, {"miss", {}}, {"own_extension", {}}};
    for (const auto i : Spread(singles.size(), kTargetsPerCase))
        cases[0].lookups.push_back(Extensionless(singles[i], names));
    for (const auto i : Spread(shared.size(), kTargetsPerCase))
        cases[1].lookups.push_back(Extensionless(shared[i], names));
    for (std::size_t k = 0; k < kTargetsPerCase; ++k) {
        names.push_back(U16(vpath_bench::MissingName(k)));
        cases[2].lookups.push_back(
            {SearchTarget(names.back(), Constants::LanguageExtensions), NameRecord::kNowhere, 0});
    }
    const auto fromSingles = Spread(singles.size(), kTargetsPerCase / 2);
    const auto fromShared = Spread(shared.size(), kTargetsPerCase / 2);
    for (std::size_t k = 0; k < fromSingles.size() && k < fromShared.size(); ++k) {
        cases[3].lookups.push_back(WithOwnExtension(singles[fromSingles[k]]));
        cases[3].lookups.push_back(WithOwnExtension(shared[fromShared[k]]));
    }
    return cases;
}

// The first wrong answer of a case, described; empty if every answer is right.
std::string Check(const MainSearchPath& path, const LookupCase& c) {
    const auto& entries = path.GetFolderEntries();
    for (const auto& lookup : c.lookups) {
        const auto found = path.FindFirstInScope(SearchScope(kPrimary), lookup.target,
                                                 FilenameMatchingPolicy::PlatformDefault);
        const bool right =
            lookup.folder == NameRecord::kNowhere
                ? !found
                : found &&
                      found->GetPathEntry() == entries[static_cast<std::size_t>(lookup.folder)] &&
                      found->GetPathItem()->GetExtension() ==
                          U16(vpath_bench::kExtensions[lookup.extension]);
        if (!right) {
            const ustring& base = *lookup.target.baseName;
            return std::string(c.name) + ": wrong answer for " +
                   std::string(base.begin(), base.end());
        }
    }
    return {};
}

void BM_FindFirstInScope(benchmark::State& state, const MainSearchPath& path, const LookupCase& c) {
    const auto& lookups = c.lookups;
    // Threads start at different places so that they do not walk the same names in step.
    std::size_t i = lookups.size() * static_cast<std::size_t>(state.thread_index()) /
                    static_cast<std::size_t>(state.threads());
    for (auto _ : state) {
        auto found = path.FindFirstInScope(SearchScope(kPrimary), lookups[i].target,
                                           FilenameMatchingPolicy::PlatformDefault);
        benchmark::DoNotOptimize(found);
        if (++i == lookups.size())
            i = 0;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

// The baseline's index: whole file name => first folder that holds it.
using PlainIndex = std::unordered_map<ustring, std::int64_t>;

PlainIndex MakePlainIndex(const vpath_bench::GeneratedTree& tree) {
    PlainIndex index;
    for (const auto* records : {&tree.singleNames, &tree.sharedNames}) {
        for (const auto& r : *records) {
            for (std::size_t e = 0; e < r.firstByExtension.size(); ++e) {
                if (r.firstByExtension[e] != NameRecord::kNowhere)
                    index.emplace(U16(r.base + vpath_bench::kExtensions[e]), r.firstByExtension[e]);
            }
        }
    }
    return index;
}

void BM_PlainIndex(benchmark::State& state, const PlainIndex& index, const LookupCase& c) {
    const auto& lookups = c.lookups;
    std::size_t i = 0;
    ustring key;
    for (auto _ : state) {
        std::int64_t best = NameRecord::kNowhere;
        for (const ustring& extension : *lookups[i].target.extensions) {
            key.assign(*lookups[i].target.baseName).append(extension);
            const auto it = index.find(key);
            if (it != index.end() && (best == NameRecord::kNowhere || it->second < best))
                best = it->second;
        }
        benchmark::DoNotOptimize(best);
        if (++i == lookups.size())
            i = 0;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

std::string Cell(double perSecond) {
    if (perSecond <= 0)
        return "-";
    char text[48];
    std::snprintf(text, sizeof text, "%.1f ns %s/s", 1e9 / perSecond,
                  vpath_bench::Rate(perSecond).c_str());
    return text;
}

std::string Ratio(double a, double b) {
    if (a <= 0 || b <= 0)
        return "-";
    char text[16];
    std::snprintf(text, sizeof text, "%.2fx", a / b);
    return text;
}

void PrintRow(const std::string& name, const std::string& one, const std::string& two,
              const std::string& scaling, const std::string& map, const std::string& vsMap) {
    std::printf("%-14s %22s %22s %14s %22s %12s\n", name.c_str(), one.c_str(), two.c_str(),
                scaling.c_str(), map.c_str(), vsMap.c_str());
}

// Prints the summary table; false if a benchmark that ran left no figure for it.
bool PrintSummary(const Workload& w, const vpath_bench::SummaryReporter& reporter,
                  std::size_t repetitions) {
    std::printf(
        "\nFindFirstInScope on %zu folders, %zu files; %zu prepared targets per case, "
        "median of %zu runs\n",
        w.path->GetFolderEntries().size(), w.tree.fileCount, kTargetsPerCase, repetitions);
    PrintRow("case", "vpath 1 thread", "vpath 2 threads", "2 threads / 1", "baseline (map)",
             "time vs map");
    bool complete = true;
    const auto rate = [&](const std::string& name, int threads) {
        if (const auto* run = reporter.Find(name, threads, "median")) {
            if (const auto it = run->counters.find("items_per_second"); it != run->counters.end())
                return static_cast<double>(it->second);
        }
        complete = complete && !reporter.Ran(name);
        return 0.0;
    };
    for (const auto& c : w.cases) {
        const double one = rate(std::string("lookup/") + c.name, 1);
        const double two = rate(std::string("lookup/") + c.name, 2);
        const double map = rate(std::string("baseline_map/") + c.name, 1);
        PrintRow(c.name, Cell(one), Cell(two), Ratio(two, one), Cell(map), Ratio(map, one));
    }
    std::printf(
        "ns per lookup and lookups per second; with 2 threads, the wall time per lookup "
        "of both threads together.\ntime vs map: vpath's time per lookup (1 thread) over "
        "the bare map's; 2.00x means vpath takes twice as long.\n");
    return complete;
}

void Register(const Workload& w, const PlainIndex& plain, std::size_t repetitions) {
    // Lookups that miss the caches are sensitive to other work on the machine: report the median
    // of several runs.
    const auto each = [repetitions](benchmark::internal::Benchmark* b) {
        b->UseRealTime()
            ->Repetitions(static_cast<int>(repetitions))
            ->ReportAggregatesOnly(repetitions > 1);
    };
    for (const auto& c : w.cases) {
        if (c.lookups.empty())
            continue;  // a tree too small to hold such names: the summary shows "-"
        each(benchmark::RegisterBenchmark(
                 (std::string("lookup/") + c.name).c_str(),
                 [&w, &c](benchmark::State& s) { BM_FindFirstInScope(s, *w.path, c); })
                 ->Threads(1)
                 ->Threads(2));
        each(benchmark::RegisterBenchmark(
            (std::string("baseline_map/") + c.name).c_str(),
            [&plain, &c](benchmark::State& s) { BM_PlainIndex(s, plain, c); }));
    }
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = vpath_bench::InitializeBench(argc, argv, status);
    if (!options)
        return status;
    try {
        const vpath_bench::ScratchFolder scratch(options->scratchParent);
        Workload w;
        w.tree = vpath_bench::GenerateReportedTree(scratch.path(), options->shape);
        ScanReport report;
        w.path = MainSearchPath::Scan(vpath_bench::FolderLocations(w.tree), report);
        if (!report.empty())
            throw std::runtime_error(report.Problems().front().Describe());
        w.cases = MakeCases(w.tree, w.names);
        for (const auto& c : w.cases) {
            if (const auto wrong = Check(*w.path, c); !wrong.empty())
                throw std::runtime_error(wrong);
        }
        const PlainIndex plain = MakePlainIndex(w.tree);
        Register(w, plain, options->repetitions);
        vpath_bench::SummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();
        if (!PrintSummary(w, reporter, options->repetitions)) {
            std::fprintf(stderr,
                         "bench_lookup: a benchmark that ran has no figure in the summary\n");
            return 1;
        }
        return reporter.Failed() ? 1 : 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_lookup: %s\n", e.what());
        return 1;
    }
}
