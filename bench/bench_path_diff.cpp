// bench_path_diff: how long PathEntryVectorDifferentiator takes to compare the entry lists of a
// large path before and after a change, beside GNU diff on the same two lists, in the same run.
//
// The change: of n entries, about 1% each are moved elsewhere, removed, added, and refreshed (a
// new entry object with the same IRI, where the old one stood). Entries are allocated in path
// order, as a scan allocates them, and the path's folders are in no particular name order.
//
//   differentiator   Compare(before, after, EntriesOnly) on a fresh object: copying the two
//                    lists into the call, the comparison, and freeing its results.
//   gnu_diff         `diff before.txt after.txt > /dev/null` on the same lists written once as
//                    text, one IRI per line (a refreshed entry is the same line to diff).
//
// Every case is run several times and its median kept; the summary prints both and the ratio.
// The differentiator's answer is checked against the change before anything is timed.
//
// Settings, from the environment and then the command line (the command line wins):
//   VPATH_BENCH_DIFF_SIZES   --sizes=N,N...      entries per list  (100000,1000000)
//   VPATH_BENCH_REPETITIONS  --repetitions=N     timed runs of each case  (5)
//   VPATH_BENCH_SEED         --seed=N            seed of the change  (1)
//   VPATH_BENCH_TMPDIR       --tmpdir=DIR        where the text files go ($TMPDIR, else /tmp)

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/pathmanagement/path_diff.hpp>

#include "bench_path_diff_entry.hpp"
#include "support/summary_reporter.hpp"

extern char** environ;

namespace {

using Velmora::PathManagement::PathEntryVector;
using Velmora::PathManagement::PathEntryVectorDifferentiator;

struct Options {
    std::vector<std::size_t> sizes = {100000, 1000000};
    std::size_t repetitions = 5;
    std::uint64_t seed = 1;
    std::filesystem::path tmpdir;
};

// "100000,1000000" => {100000, 1000000}; nullopt unless every piece is a positive number.
std::optional<std::vector<std::size_t>> ParseSizes(const std::string& text) {
    std::vector<std::size_t> sizes;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string piece = text.substr(start, end - start);
        if (piece.empty() || piece.size() > 18 ||
            piece.find_first_not_of("0123456789") != std::string::npos)
            return std::nullopt;
        sizes.push_back(std::stoull(piece));
        if (sizes.back() == 0)
            return std::nullopt;
        start = end + 1;
    }
    return sizes;
}

// Applies one setting; false if the value is not valid.
bool Apply(Options& options, const std::string& name, const std::string& value) {
    if (name == "sizes") {
        const auto sizes = ParseSizes(value);
        if (sizes)
            options.sizes = *sizes;
        return sizes.has_value();
    }
    if (name == "tmpdir") {
        options.tmpdir = value;
        return !value.empty();
    }
    const auto number = ParseSizes(value);
    if (!number || number->size() != 1)
        return false;
    (name == "repetitions" ? options.repetitions : options.seed) = number->front();
    return true;
}

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    const char* tmp = std::getenv("TMPDIR");
    options.tmpdir = tmp && *tmp ? tmp : "/tmp";
    const std::pair<const char*, const char*> fromEnvironment[] = {
        {"VPATH_BENCH_DIFF_SIZES", "sizes"},
        {"VPATH_BENCH_REPETITIONS", "repetitions"},
        {"VPATH_BENCH_SEED", "seed"},
        {"VPATH_BENCH_TMPDIR", "tmpdir"},
    };
    for (const auto& [variable, name] : fromEnvironment) {
        const char* value = std::getenv(variable);
        if (value && *value && !Apply(options, name, value)) {
            std::fprintf(stderr, "%s: not a valid value: %s\n", variable, value);
            return std::nullopt;
        }
    }
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto eq = arg.find('=');
        const std::string name = arg.substr(0, eq);
        const bool known =
            name == "--sizes" || name == "--repetitions" || name == "--seed" || name == "--tmpdir";
        if (!known || eq == std::string::npos ||
            !Apply(options, name.substr(2), arg.substr(eq + 1))) {
            std::fprintf(stderr,
                         "usage: %s [--sizes=N,N...] [--repetitions=N] [--seed=N] [--tmpdir=DIR] "
                         "[--benchmark_...]\nnot understood: %s\n",
                         argv[0], arg.c_str());
            return std::nullopt;
        }
    }
    return options;
}

// The two lists of one size, what the differentiator must find, and the same lists as text.
struct Workload {
    PathEntryVector before, after;
    std::size_t moved = 0, removed = 0, added = 0, refreshed = 0;
    std::filesystem::path beforeText, afterText;
};

std::string FolderIRI(std::size_t k, const char* kind) {
    return "file:///home/ada/toolbox/group_" + std::to_string(k % 997) + "/" + kind + "_" +
           std::to_string(k);
}

// Inserts `items` into `list` at uniformly random places, in one pass.
void InsertAtRandom(PathEntryVector& list, PathEntryVector items, std::mt19937_64& rng) {
    std::vector<std::pair<std::size_t, vpath_bench::BenchEntryPtr>> placed;
    for (auto& item : items)
        placed.emplace_back(std::uniform_int_distribution<std::size_t>(0, list.size())(rng), item);
    std::sort(placed.begin(), placed.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    PathEntryVector merged;
    merged.reserve(list.size() + placed.size());
    auto next = placed.begin();
    for (std::size_t i = 0; i <= list.size(); ++i) {
        for (; next != placed.end() && next->first == i; ++next)
            merged.push_back(next->second);
        if (i < list.size())
            merged.push_back(list[i]);
    }
    list = std::move(merged);
}

void WriteLines(const std::filesystem::path& file, const PathEntryVector& list) {
    std::ofstream out(file, std::ios::binary);
    std::string text;
    for (const auto& entry : list) {
        const auto iri = entry->GetAbsoluteIRI();
        text.assign(iri.toString().begin(), iri.toString().end());  // the IRIs made here are ASCII
        text += '\n';
        out << text;
    }
    if (!out.flush())
        throw std::runtime_error("cannot write " + file.string());
}

Workload MakeWorkload(std::size_t n, std::uint64_t seed, const std::filesystem::path& folder) {
    std::mt19937_64 rng(seed);
    Workload w;
    // Folder numbers in a random path order; entries allocated in that order.
    std::vector<std::size_t> order(n);
    for (std::size_t k = 0; k < n; ++k)
        order[k] = k;
    std::shuffle(order.begin(), order.end(), rng);
    for (const std::size_t k : order)
        w.before.push_back(vpath_bench::MakeBenchEntry(FolderIRI(k, "folder")));

    // Disjoint 1% choices of positions: the first third moved, then removed, then refreshed.
    const std::size_t share = std::max<std::size_t>(1, n / 100);
    std::vector<std::size_t> positions(n);
    for (std::size_t i = 0; i < n; ++i)
        positions[i] = i;
    std::shuffle(positions.begin(), positions.end(), rng);
    const std::size_t picked = std::min(n, 3 * share);
    std::vector<char> fate(n, 0);  // 0 kept, 1 moved, 2 removed, 3 refreshed
    for (std::size_t i = 0; i < picked; ++i)
        fate[positions[i]] = static_cast<char>(1 + i / share);

    PathEntryVector inserted;
    for (std::size_t i = 0; i < n; ++i) {
        if (fate[i] == 0) {
            w.after.push_back(w.before[i]);
        } else if (fate[i] == 1) {
            inserted.push_back(w.before[i]);
            ++w.moved;
        } else if (fate[i] == 2) {
            ++w.removed;
        } else {
            const auto iri = w.before[i]->GetAbsoluteIRI();
            w.after.push_back(vpath_bench::MakeBenchEntry(
                std::string(iri.toString().begin(), iri.toString().end())));
            ++w.refreshed;
        }
    }
    for (std::size_t k = 0; k < share; ++k, ++w.added)
        inserted.push_back(vpath_bench::MakeBenchEntry(FolderIRI(k, "added")));
    std::shuffle(inserted.begin(), inserted.end(), rng);
    InsertAtRandom(w.after, std::move(inserted), rng);

    w.beforeText = folder / ("before_" + std::to_string(n) + ".txt");
    w.afterText = folder / ("after_" + std::to_string(n) + ".txt");
    WriteLines(w.beforeText, w.before);
    WriteLines(w.afterText, w.after);
    return w;
}

// The first way the differentiator's answer departs from the change made; empty if none.
std::string Check(const Workload& w) {
    PathEntryVectorDifferentiator d;
    d.Compare(w.before, w.after, PathEntryVectorDifferentiator::EntriesOnly);
    if (d.GetAdded()->size() != w.added)
        return "added " + std::to_string(d.GetAdded()->size());
    if (d.GetRemoved()->size() != w.removed)
        return "removed " + std::to_string(d.GetRemoved()->size());
    if (d.GetRefreshedBefore()->size() != w.refreshed ||
        d.GetRefreshedAfter()->size() != w.refreshed)
        return "refreshed " + std::to_string(d.GetRefreshedBefore()->size());
    // The fewest moves that explain the new order; a moved entry may land where it changes none.
    if (d.GetReordered()->size() > w.moved)
        return "reordered " + std::to_string(d.GetReordered()->size());
    return {};
}

// `diff before after > /dev/null`: its exit status, or -1 if it could not be run.
int RunDiff(const Workload& w) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = "diff", before = w.beforeText.string(), after = w.afterText.string();
    char* args[] = {program.data(), before.data(), after.data(), nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, "diff", &actions, nullptr, args, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BM_Differentiator(benchmark::State& state, const Workload* w) {
    for (auto _ : state) {
        PathEntryVectorDifferentiator d;
        d.Compare(w->before, w->after, PathEntryVectorDifferentiator::EntriesOnly);
        benchmark::DoNotOptimize(d.GetReordered()->size());
    }
    state.counters["entries"] = static_cast<double>(w->before.size());
}

void BM_GnuDiff(benchmark::State& state, const Workload* w) {
    for (auto _ : state) {
        // Exit status 1: the files differ, as they do.
        if (RunDiff(*w) != 1) {
            state.SkipWithError("diff did not run or did not find the lists different");
            break;
        }
    }
    state.counters["entries"] = static_cast<double>(w->before.size());
}

std::string Millis(std::optional<double> seconds) {
    char text[32] = "-";
    if (seconds)
        std::snprintf(text, sizeof text, "%.1f ms", *seconds * 1e3);
    return text;
}

// A fresh folder for the text files, removed with them when the program ends.
struct ScratchFolder {
    explicit ScratchFolder(const std::filesystem::path& parent) {
        std::string pattern = (parent / "vpath_bench_diff_XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
        path = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path path;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const auto options = ParseOptions(argc, argv);
    if (!options)
        return 2;
    const ScratchFolder scratch(options->tmpdir);

    std::vector<std::unique_ptr<Workload>> workloads;
    for (const std::size_t n : options->sizes) {
        workloads.push_back(
            std::make_unique<Workload>(MakeWorkload(n, options->seed, scratch.path)));
        const Workload& w = *workloads.back();
        if (const std::string wrong = Check(w); !wrong.empty()) {
            std::fprintf(stderr, "differentiator answer wrong at n=%zu: %s\n", n, wrong.c_str());
            return 1;
        }
        std::fprintf(stderr, "n=%zu: %zu moved, %zu removed, %zu added, %zu refreshed\n", n,
                     w.moved, w.removed, w.added, w.refreshed);
        const auto reps = static_cast<int>(options->repetitions);
        const std::string size = "/" + std::to_string(n);
        for (auto* b :
             {benchmark::RegisterBenchmark(("differentiator" + size).c_str(), BM_Differentiator,
                                           &w),
              benchmark::RegisterBenchmark(("gnu_diff" + size).c_str(), BM_GnuDiff, &w)}) {
            b->Iterations(1)
                ->Repetitions(reps)
                ->ReportAggregatesOnly(reps > 1)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        }
    }

    vpath_bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf(
        "\npath change analysis, median of %zu runs (1%% each moved, removed, added, "
        "refreshed)\n",
        options->repetitions);
    std::printf("%12s %18s %14s %20s\n", "entries", "differentiator", "GNU diff",
                "diff / differentiator");
    for (const std::size_t n : options->sizes) {
        const std::string size = "/" + std::to_string(n);
        const auto ours = reporter.Seconds("differentiator" + size);
        const auto theirs = reporter.Seconds("gnu_diff" + size);
        char ratio[32] = "-";
        if (ours && theirs && *ours > 0)
            std::snprintf(ratio, sizeof ratio, "%.2fx", *theirs / *ours);
        std::printf("%12zu %18s %14s %20s\n", n, Millis(ours).c_str(), Millis(theirs).c_str(),
                    ratio);
    }
    benchmark::Shutdown();
    return reporter.Failed() ? 1 : 0;
}
