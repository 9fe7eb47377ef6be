// bench_scan: how long the host takes to scan a large search path from disk, beside GNU find
// listing the same tree in the same run.
//
// Cases, each timed over whole runs and summarised by their median:
//   find ROOT -type f           the baseline: one process that lists every file of the tree
//   vpath cold scan             MainSearchPath::Scan with no EntryCache, with every core, and on
//                               one thread (find uses one)
//   vpath warm rescan           Scan again with an EntryCache filled by an earlier scan of the
//                               same, unchanged tree: every entry should be reused
//   index build                 MainSearchPath::Create alone over entries already scanned: the
//                               part of a scan that does not touch the disk
//
// Every case runs on the same tree with the OS caches warm (each case runs once before any is
// timed), so the figures compare work done on listings, not disk latency.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <velmora/searchpath/main_search_path.hpp>

#include "support/bench_main.hpp"
#include "support/summary_reporter.hpp"
#include "support/tree_locations.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::EntryCache;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;
using Clock = std::chrono::steady_clock;

struct Workload {
    vpath_bench::GeneratedTree tree;
    std::vector<AbsoluteIRI> folders;
};

// One timed run: its wall time, and the processor time (user and system, every thread) it used.
struct Sample {
    double wall = 0;
    double cpu = 0;
    double system = 0;  // the part of `cpu` spent in the kernel
};

// The timed runs of each case, for the summary.
std::map<std::string, std::vector<Sample>> g_samples;
// How many main entries the last warm rescan shared with the scan that filled its cache.
std::size_t g_reused = 0;

double Seconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

// Stopwatch: wall time and this process's processor time, which counts the scan's worker threads
// too; the wall time alone would hide work spread over cores.
class Stopwatch {
  public:
    Stopwatch() : m_wall(Clock::now()), m_usage(ProcessUsage()) {}
    Sample Stop() const {
        const rusage now = ProcessUsage();
        const double user = Seconds(now.ru_utime) - Seconds(m_usage.ru_utime);
        const double system = Seconds(now.ru_stime) - Seconds(m_usage.ru_stime);
        return {std::chrono::duration<double>(Clock::now() - m_wall).count(), user + system,
                system};
    }

  private:
    static rusage ProcessUsage() {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage;
    }
    Clock::time_point m_wall;
    rusage m_usage;
};

void Record(benchmark::State& state, const std::string& name, Sample sample) {
    state.SetIterationTime(sample.wall);
    g_samples[name].push_back(sample);
}

// RunFind: runs `find ROOT -type f` with its output thrown away; the exit status of find, or -1 if
// it could not be started. `sample` receives the processor time that find used.
int RunFind(const std::string& root, Sample& sample) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = "find", type = "-type", file = "f", where = root;
    char* argv[] = {program.data(), where.data(), type.data(), file.data(), nullptr};
    pid_t pid = 0;
    const int err = posix_spawnp(&pid, "find", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (err != 0)
        return -1;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status))
        return -1;
    sample.system = Seconds(usage.ru_stime);
    sample.cpu = Seconds(usage.ru_utime) + sample.system;
    return WEXITSTATUS(status);
}

// Checks a scan against the tree it read; the reason it is wrong, or empty.
std::string CheckScan(const MainSearchPath& path, const ScanReport& report, const Workload& w) {
    if (!report.empty())
        return "the scan reported a problem: " + report.Problems().front().Describe();
    if (path.GetFolderEntries().size() != w.folders.size())
        return "the scan lost folders";
    if (path.GetFileCount() != w.tree.fileCount) {
        return "the scan found " + std::to_string(path.GetFileCount()) + " files, the tree has " +
               std::to_string(w.tree.fileCount);
    }
    return {};
}

void BM_Find(benchmark::State& state, const Workload& w) {
    for (auto _ : state) {
        const auto start = Clock::now();
        Sample sample;
        const int status = RunFind(w.tree.root.string(), sample);
        sample.wall = std::chrono::duration<double>(Clock::now() - start).count();
        if (status != 0) {
            state.SkipWithError("find failed or could not be started");
            break;
        }
        Record(state, "find", sample);
    }
}

void BM_ColdScan(benchmark::State& state, const Workload& w, const std::string& name,
                 std::optional<std::size_t> threads) {
    std::optional<tbb::global_control> limit;
    if (threads)
        limit.emplace(tbb::global_control::max_allowed_parallelism, *threads);
    for (auto _ : state) {
        ScanReport report;
        const Stopwatch watch;
        const auto path = MainSearchPath::Scan(w.folders, report);
        Record(state, name, watch.Stop());
        if (const auto wrong = CheckScan(*path, report, w); !wrong.empty()) {
            state.SkipWithError(wrong.c_str());
            break;
        }
    }  // the snapshot is released outside the timed part
}

void BM_WarmRescan(benchmark::State& state, const Workload& w) {
    ScanReport first;
    const auto earlier = MainSearchPath::Scan(w.folders, first);
    EntryCache cache;
    cache.Retain(earlier->GetFolderEntries());
    for (auto _ : state) {
        ScanReport report;
        const Stopwatch watch;
        const auto path = MainSearchPath::Scan(w.folders, report, &cache);
        Record(state, "warm", watch.Stop());
        if (const auto wrong = CheckScan(*path, report, w); !wrong.empty()) {
            state.SkipWithError(wrong.c_str());
            break;
        }
        const auto& now = path->GetFolderEntries();
        const auto& before = earlier->GetFolderEntries();
        g_reused = 0;
        for (std::size_t i = 0; i < now.size(); ++i)
            g_reused += now[i] == before[i] ? 1 : 0;
        state.counters["reused"] = static_cast<double>(g_reused);
    }
}

void BM_IndexBuild(benchmark::State& state, const Workload& w) {
    ScanReport report;
    const auto scanned = MainSearchPath::Scan(w.folders, report);
    for (auto _ : state) {
        auto entries = scanned->GetFolderEntries();
        const Stopwatch watch;
        const auto path = MainSearchPath::Create(std::move(entries));
        Record(state, "index", watch.Stop());
        benchmark::DoNotOptimize(path.get());
    }
}

double Median(std::vector<Sample> samples, double Sample::*field) {
    std::vector<double> v;
    for (const auto& sample : samples)
        v.push_back(sample.*field);
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::string Ratio(double value, double baseline) {
    if (baseline <= 0)
        return "-";
    char text[32];
    std::snprintf(text, sizeof text, value / baseline < 0.1 ? "%.3fx" : "%.2fx", value / baseline);
    return text;
}

struct Row {
    std::string label, wall, cpu, system, rate, wallRatio, cpuRatio;
};

void PrintRow(const Row& r) {
    std::printf("%-36s %10s %10s %10s %12s %12s %12s\n", r.label.c_str(), r.wall.c_str(),
                r.cpu.c_str(), r.system.c_str(), r.rate.c_str(), r.wallRatio.c_str(),
                r.cpuRatio.c_str());
}

void PrintSummary(const Workload& w, std::size_t repetitions) {
    std::printf(
        "\nSearch path scan: %zu folders, %zu files (special sub-folders included), "
        "median of %zu runs\n",
        w.folders.size(), w.tree.fileCount, repetitions);
    PrintRow({"case", "wall", "CPU", "system", "files/s", "wall / find", "CPU / find"});
    double findWall = 0, findCpu = 0;
    if (const auto it = g_samples.find("find"); it != g_samples.end()) {
        findWall = Median(it->second, &Sample::wall);
        findCpu = Median(it->second, &Sample::cpu);
    }
    const struct {
        const char* key;
        const char* label;
    } rows[] = {
        {"find", "find ROOT -type f (baseline)"},       {"cold", "vpath cold scan (all cores)"},
        {"cold1", "vpath cold scan (1 thread)"},        {"warm", "vpath warm rescan (EntryCache)"},
        {"index", "  of a scan: index build (Create)"},
    };
    for (const auto& row : rows) {
        const auto it = g_samples.find(row.key);
        if (it == g_samples.end() || it->second.empty()) {
            PrintRow({row.label, "-", "-", "-", "-", "-", "-"});
            continue;
        }
        const double wall = Median(it->second, &Sample::wall);
        const double cpu = Median(it->second, &Sample::cpu);
        PrintRow({row.label, vpath_bench::Duration(wall), vpath_bench::Duration(cpu),
                  vpath_bench::Duration(Median(it->second, &Sample::system)),
                  vpath_bench::Rate(static_cast<double>(w.tree.fileCount) / wall),
                  Ratio(wall, findWall), Ratio(cpu, findCpu)});
    }
    if (g_samples.contains("warm")) {
        std::printf("warm rescan reused %zu of %zu main entries\n", g_reused, w.folders.size());
    }
    std::printf(
        "Below 1.00x: vpath takes less than find. find is one process on one core; its wall "
        "time includes starting it.\nCPU: user and system time of every thread, the "
        "figure least disturbed by other work on the machine; system: the kernel's part.\n");
}

// Runs each case once so that the OS caches hold the tree before anything is timed, and checks
// that the scan reads the tree completely.
bool WarmUp(const Workload& w) {
    Sample ignored;
    if (RunFind(w.tree.root.string(), ignored) != 0) {
        std::fprintf(stderr, "bench_scan: find failed or could not be started\n");
        return false;
    }
    ScanReport report;
    const auto path = MainSearchPath::Scan(w.folders, report);
    if (const auto wrong = CheckScan(*path, report, w); !wrong.empty()) {
        std::fprintf(stderr, "bench_scan: %s\n", wrong.c_str());
        return false;
    }
    return true;
}

void Register(const Workload& w, std::size_t repetitions) {
    const auto each = [repetitions](benchmark::internal::Benchmark* b) {
        b->Iterations(1)
            ->Repetitions(static_cast<int>(repetitions))
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->ReportAggregatesOnly(repetitions > 1);
    };
    each(benchmark::RegisterBenchmark("find", [&w](benchmark::State& s) { BM_Find(s, w); }));
    each(benchmark::RegisterBenchmark(
        "scan/cold", [&w](benchmark::State& s) { BM_ColdScan(s, w, "cold", std::nullopt); }));
    each(benchmark::RegisterBenchmark(
        "scan/cold/1thread", [&w](benchmark::State& s) { BM_ColdScan(s, w, "cold1", 1); }));
    each(benchmark::RegisterBenchmark("scan/warm",
                                      [&w](benchmark::State& s) { BM_WarmRescan(s, w); }));
    each(benchmark::RegisterBenchmark("scan/index_build",
                                      [&w](benchmark::State& s) { BM_IndexBuild(s, w); }));
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
        w.folders = vpath_bench::FolderLocations(w.tree);
        if (!WarmUp(w))
            return 1;
        Register(w, options->repetitions);
        vpath_bench::SummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();
        PrintSummary(w, options->repetitions);
        return reporter.Failed() ? 1 : 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_scan: %s\n", e.what());
        return 1;
    }
}
