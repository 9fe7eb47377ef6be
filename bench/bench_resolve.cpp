// bench_resolve: how long resolving a name takes, on the main search path and through a
// DeduplicatedPath of two overlapping paths, beside Python's importlib FileFinder resolving the
// same names over the same folders in the same run.
//
// Cases (time per lookup):
//   main path        FindFirstFileVisibleOnPath on the MainSearchPath of every folder
//   deduplicated     the same through DeduplicatedPath{first 60% of the folders, last 60%}: the
//                    middle fifth is on both sub-paths and shows once
//   Python           a FileFinder per folder, asked in path order as sys.path does
// each for names that resolve (hits) and names that resolve nowhere (misses). All three must give
// the same answers; the program checks that before it reports a figure.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/path_views.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "support/bench_main.hpp"
#include "support/summary_reporter.hpp"
#include "support/tree_locations.hpp"

namespace {

using namespace Velmora::PathManagement;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;

struct Workload {
    vpath_bench::GeneratedTree tree;
    std::shared_ptr<const IPath> main;
    std::shared_ptr<const IPath> deduplicated;
    std::vector<ustring> hits;           // names that resolve, a sample of the tree's names
    std::vector<ustring> misses;         // names that resolve nowhere
    std::vector<std::int64_t> expected;  // the folder each hit resolves to
    std::map<std::u16string, std::int64_t> folderIndex;  // folder location text -> path position
};

// The position on the path of the folder that holds a found file's main entry, or -1.
std::int64_t FolderOf(const Workload& w, const IPath& path, const OptionalFoundItem& hit) {
    if (!hit)
        return -1;
    const auto main = path.GetMainEntryForEntry(*hit->GetPathEntry());
    const auto it = w.folderIndex.find(main->GetAbsoluteIRI().toString());
    return it == w.folderIndex.end() ? -1 : it->second;
}

OptionalFoundItem Resolve(const IPath& path, const ustring& name) {
    const auto target =
        CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
    return FindFirstFileVisibleOnPath(path, target, FilenameMatchingPolicy::PlatformDefault);
}

// Checks that `path` gives the tree's answers; the first wrong one, or empty.
std::string Check(const Workload& w, const IPath& path) {
    for (std::size_t i = 0; i < w.hits.size(); ++i) {
        const auto got = FolderOf(w, path, Resolve(path, w.hits[i]));
        if (got != w.expected[i]) {
            return "name " + Velmora::text::ToNative(w.hits[i]) + " resolved to folder " +
                   std::to_string(got) + ", expected " + std::to_string(w.expected[i]);
        }
    }
    for (const auto& name : w.misses) {
        if (Resolve(path, name))
            return "a missing name resolved";
    }
    return {};
}

void BM_Resolve(benchmark::State& state, const IPath& path, const std::vector<ustring>& names) {
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Resolve(path, names[i]));
        if (++i == names.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

struct PythonFigures {
    double hitNs = -1;
    double missNs = -1;
    std::string error;
};

// Runs the Python baseline on the same folders and names and reads its JSON answer.
PythonFigures RunPython(const Workload& w, const std::filesystem::path& scratch,
                        std::size_t repetitions) {
    PythonFigures figures;
    const auto write = [&](const char* file, const auto& lines) {
        std::ofstream out(scratch / file, std::ios::binary);
        for (const auto& line : lines) {
            if constexpr (std::is_same_v<std::decay_t<decltype(line)>, ustring>) {
                out << Velmora::text::ToNative(line) << '\n';
            } else {
                out << line.native() << '\n';
            }
        }
    };
    write("folders.txt", w.tree.folders);
    write("hits.txt", w.hits);
    write("misses.txt", w.misses);
    const std::string script = std::string(VPATH_BENCH_SOURCE_DIR) + "/filefinder_baseline.py";
    const std::string command =
        "python3 '" + script + "' --folders '" + (scratch / "folders.txt").string() + "' --hits '" +
        (scratch / "hits.txt").string() + "' --misses '" + (scratch / "misses.txt").string() +
        "' --repetitions " + std::to_string(repetitions) + " > '" +
        (scratch / "python.json").string() + "'";
    if (std::system(command.c_str()) != 0) {
        figures.error = "the Python baseline failed";
        return figures;
    }
    std::ifstream in(scratch / "python.json");
    const std::string json((std::istreambuf_iterator<char>(in)), {});
    // The answer is small and of a fixed shape: {"hit_ns": x, "miss_ns": y, "answers": [...]}.
    const auto number = [&](const char* key) {
        const auto at = json.find(key);
        return at == std::string::npos ? -1.0 : std::stod(json.substr(json.find(':', at) + 1));
    };
    figures.hitNs = number("\"hit_ns\"");
    figures.missNs = number("\"miss_ns\"");
    const auto open = json.find('[', json.find("\"answers\""));
    std::vector<std::int64_t> answers;
    for (std::size_t at = open + 1; at < json.size() && json[at] != ']';) {
        std::size_t used = 0;
        answers.push_back(std::stoll(json.substr(at), &used));
        at += used;
        while (at < json.size() && (json[at] == ',' || json[at] == ' '))
            ++at;
    }
    if (answers != w.expected)
        figures.error = "Python resolved the names differently";
    return figures;
}

std::string Ns(double ns) {
    char text[32];
    if (ns >= 1e6) {
        std::snprintf(text, sizeof text, "%.2f ms", ns / 1e6);
    } else if (ns >= 1e3) {
        std::snprintf(text, sizeof text, "%.2f us", ns / 1e3);
    } else {
        std::snprintf(text, sizeof text, "%.0f ns", ns);
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = vpath_bench::InitializeBench(argc, argv, status);
    if (!options)
        return status;
    const vpath_bench::ScratchFolder scratch(options->scratchParent);
    Workload w;
    std::filesystem::create_directory(scratch.path() / "tree");
    w.tree = vpath_bench::GenerateReportedTree(scratch.path() / "tree", options->shape);
    const auto folders = vpath_bench::FolderLocations(w.tree);
    for (std::size_t i = 0; i < folders.size(); ++i) {
        w.folderIndex[folders[i].toString()] = static_cast<std::int64_t>(i);
    }

    ScanReport report;
    w.main = MainSearchPath::Scan(folders, report);
    const std::size_t n = folders.size();
    const auto firstEnd = folders.begin() + static_cast<std::ptrdiff_t>((n * 3 + 4) / 5);
    const auto secondBegin = folders.begin() + static_cast<std::ptrdiff_t>(n * 2 / 5);
    std::vector<std::shared_ptr<const IPath>> parts = {
        MainSearchPath::Scan({folders.begin(), firstEnd}, report),
        MainSearchPath::Scan({secondBegin, folders.end()}, report)};
    w.deduplicated = std::make_shared<DeduplicatedPath>(std::move(parts));

    // A fixed sample of the tree's names, shared and single alike.
    std::vector<const vpath_bench::NameRecord*> records;
    for (const auto& r : w.tree.sharedNames)
        records.push_back(&r);
    for (const auto& r : w.tree.singleNames)
        records.push_back(&r);
    std::mt19937_64 random(options->shape.seed);
    std::shuffle(records.begin(), records.end(), random);
    const std::size_t sample = std::min<std::size_t>(records.size(), 400);
    for (std::size_t i = 0; i < sample; ++i) {
        w.hits.push_back(Velmora::text::FromNative(records[i]->base));
        w.expected.push_back(records[i]->FirstFolder());
    }
    for (std::size_t k = 0; k < sample; ++k) {
        w.misses.push_back(Velmora::text::FromNative(vpath_bench::MissingName(k)));
    }
    for (const auto* path : {w.main.get(), w.deduplicated.get()}) {
        if (const auto wrong = Check(w, *path); !wrong.empty()) {
            std::fprintf(stderr, "bench_resolve: wrong answer: %s\n", wrong.c_str());
            return 1;
        }
    }

    benchmark::RegisterBenchmark("resolve/main/hit", BM_Resolve, std::cref(*w.main),
                                 std::cref(w.hits));
    benchmark::RegisterBenchmark("resolve/main/miss", BM_Resolve, std::cref(*w.main),
                                 std::cref(w.misses));
    benchmark::RegisterBenchmark("resolve/deduplicated/hit", BM_Resolve, std::cref(*w.deduplicated),
                                 std::cref(w.hits));
    benchmark::RegisterBenchmark("resolve/deduplicated/miss", BM_Resolve,
                                 std::cref(*w.deduplicated), std::cref(w.misses));
    vpath_bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::fprintf(stderr, "bench_resolve: running the Python baseline...\n");
    const auto python = RunPython(w, scratch.path(), options->repetitions);
    if (!python.error.empty()) {
        std::fprintf(stderr, "bench_resolve: %s\n", python.error.c_str());
        return 1;
    }

    std::printf(
        "\nName resolution: %zu folders, %zu files, %zu names that resolve and %zu that do "
        "not; time per lookup\n",
        n, w.tree.fileCount, w.hits.size(), w.misses.size());
    std::printf("%-34s %12s %18s %12s\n", "case", "vpath", "Python FileFinder", "Python/vpath");
    const struct {
        const char* name;
        const char* label;
        double python;
    } rows[] = {
        {"resolve/main/hit", "main search path, hits", python.hitNs},
        {"resolve/main/miss", "main search path, misses", python.missNs},
        {"resolve/deduplicated/hit", "DeduplicatedPath, hits", python.hitNs},
        {"resolve/deduplicated/miss", "DeduplicatedPath, misses", python.missNs},
    };
    for (const auto& row : rows) {
        const auto* run = reporter.Find(row.name, 1, "");
        if (run == nullptr)
            continue;
        const double ns = run->GetAdjustedRealTime();  // the default unit is nanoseconds
        char ratio[32];
        std::snprintf(ratio, sizeof ratio, "%.0fx", row.python / ns);
        std::printf("%-34s %12s %18s %12s\n", row.label, Ns(ns).c_str(), Ns(row.python).c_str(),
                    ratio);
    }
    std::printf(
        "(Python resolves on the folders in path order, each once; both views show the same "
        "folders.)\n");
    return reporter.Failed() ? 1 : 0;
}
