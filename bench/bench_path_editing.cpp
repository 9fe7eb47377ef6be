// bench_path_editing: how the cost of adding folders to and removing them from the main search
// path grows with the size of the path, beside the obvious list code run on the same lists.
//
// For each size N/M, a path of N empty folders is scanned once; then M other folders are added
// at its end and removed again, as `vpath add` and `vpath rm` do:
//
//   add, remove     AddFoldersToVorlanPath / RemoveFoldersFromVorlanPath with the folders' texts,
//                   on the host's manager: texts made absolute, the new list computed, the path
//                   rescanned (unchanged folders reused) and published. Each timed alone.
//   saved           add and remove together, the manager saving its path definition file too.
//   lists only      AddIRIsToVorlanPath and RemoveIRIsFromVorlanPath on a manager that only takes
//                   the new list: the library's own list work.
//   obvious lists   the same two new lists computed the obvious way, looking each folder up in
//                   the other list by a linear search (the baseline).
//
// The summary gives the medians and, between consecutive sizes, how much each grew: sizes double,
// so linear work grows about 2x and work that goes with N times M about 4x.
//
// Settings, from the environment and then the command line (the command line wins):
//   VPATH_BENCH_EDIT_SIZES   --sizes=N/M,N/M...  path folders / folders edited
//                                                 (2500/250,5000/500,10000/1000)
//   VPATH_BENCH_REPETITIONS  --repetitions=N     timed runs of each case  (5)
//   VPATH_BENCH_TMPDIR       --tmpdir=DIR        where the folders go ($TMPDIR, else /tmp)

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>

#include "support/summary_reporter.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::PathManagement;
using Velmora::SearchPath::MainSearchPathManager;
namespace fs = std::filesystem;

struct Size {
    std::size_t path;
    std::size_t edited;
    std::string Name() const { return std::to_string(path) + "/" + std::to_string(edited); }
};

struct Options {
    std::vector<Size> sizes = {{2500, 250}, {5000, 500}, {10000, 1000}};
    std::size_t repetitions = 5;
    fs::path tmpdir;
};

// "2500/250,5000/500" => {{2500, 250}, {5000, 500}}; nullopt unless every number is positive.
std::optional<std::vector<Size>> ParseSizes(const std::string& text) {
    std::vector<Size> sizes;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string piece = text.substr(start, end - start);
        const std::size_t slash = piece.find('/');
        const std::string a = piece.substr(0, slash);
        const std::string b = slash == std::string::npos ? "" : piece.substr(slash + 1);
        for (const std::string& n : {a, b}) {
            if (n.empty() || n.find_first_not_of("0123456789") != std::string::npos ||
                std::stoull(n) == 0) {
                return std::nullopt;
            }
        }
        sizes.push_back({std::stoull(a), std::stoull(b)});
        start = end + 1;
    }
    return sizes;
}

bool Apply(Options& options, const std::string& name, const std::string& value) {
    if (name == "sizes") {
        auto sizes = ParseSizes(value);
        if (sizes)
            options.sizes = std::move(*sizes);
        return sizes.has_value();
    }
    if (name == "repetitions") {
        const bool ok = !value.empty() &&
                        value.find_first_not_of("0123456789") == std::string::npos &&
                        std::stoull(value) > 0;
        if (ok)
            options.repetitions = std::stoull(value);
        return ok;
    }
    options.tmpdir = value;  // "tmpdir"
    return !value.empty();
}

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    const char* tmp = std::getenv("TMPDIR");
    options.tmpdir = tmp && *tmp ? tmp : "/tmp";
    const std::pair<const char*, const char*> settings[] = {
        {"sizes", "VPATH_BENCH_EDIT_SIZES"},
        {"repetitions", "VPATH_BENCH_REPETITIONS"},
        {"tmpdir", "VPATH_BENCH_TMPDIR"}};
    for (const auto& [name, variable] : settings) {
        if (const char* value = std::getenv(variable); value && !Apply(options, name, value)) {
            std::fprintf(stderr, "%s: bad value \"%s\"\n", variable, value);
            return std::nullopt;
        }
    }
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, std::min(equals, arg.size())).substr(2);
        const bool known = arg.rfind("--", 0) == 0 && equals != std::string::npos &&
                           (name == "sizes" || name == "repetitions" || name == "tmpdir");
        if (!known || !Apply(options, name, arg.substr(equals + 1))) {
            std::fprintf(stderr,
                         "usage: %s [--sizes=N/M,...] [--repetitions=N] [--tmpdir=DIR]\n"
                         "bad argument: %s\n",
                         argv[0], arg.c_str());
            return std::nullopt;
        }
    }
    return options;
}

// A manager that takes any new list as it is: what is left is the library's list work.
class ListOnlyManager final : public IMainSearchPathManager {
  public:
    explicit ListOnlyManager(FolderList folders)
        : m_folders(std::make_shared<const FolderList>(std::move(folders))) {}
    void ApplyPathAfterAdding(const FolderRange& path, Notification&) override { Take(path); }
    void ApplyPathAfterRemoving(const FolderRange& path, Notification&) override { Take(path); }
    std::shared_ptr<const IPath> GetPath() const override { return nullptr; }
    std::shared_ptr<const std::vector<Velmora::VorlanComponents::ComponentIdentifier>>
    GetPackagesOnPath() const override {
        return nullptr;
    }
    std::uint64_t AddPathChangeObserver(PathChangeObserver) override { return 0; }
    void RemovePathChangeObserver(std::uint64_t) override {}
    std::shared_ptr<const FolderList> GetPathFolderIRIs() const override { return m_folders; }

  private:
    void Take(const FolderRange& path) {
        m_folders = std::make_shared<const FolderList>(path.begin(), path.end());
    }
    std::shared_ptr<const FolderList> m_folders;
};

// The folders of one size: the path's, and the ones added and removed, as texts and IRIs.
struct Workload {
    Size size;
    std::vector<AbsoluteIRI> path;
    std::vector<ustring> editedTexts;
    std::vector<AbsoluteIRI> edited;
    fs::path pathdef;
};

void Check(const Notification& messages, benchmark::State& state) {
    if (!messages.empty())
        state.SkipWithError(messages.ToNativeText().c_str());
}

// Times `timed` alone, after `untimed` has set the stage.
template <class Untimed, class Timed>
void TimeOne(benchmark::State& state, Untimed untimed, Timed timed) {
    for (auto _ : state) {
        untimed();
        const auto start = std::chrono::steady_clock::now();
        timed();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
    }
}

std::unique_ptr<MainSearchPathManager> ManagerOf(const Workload& w, bool saved) {
    MainSearchPathManager::Options options;
    if (saved)
        options.pathDefinition.emplace(w.pathdef.string());
    return std::make_unique<MainSearchPathManager>(w.path, std::move(options));
}

// Puts the path back to the workload's own folders.
void Reset(const Workload& w, MainSearchPathManager& manager, benchmark::State& state) {
    Notification messages;
    manager.ApplyPathAfterRemoving(w.path, messages);
    Check(messages, state);
}

void BM_Add(benchmark::State& state, const Workload* w, MainSearchPathManager* manager) {
    const Velmora::current_working_folder::CurrentWorkingFolder cwf;
    TimeOne(
        state, [&] { Reset(*w, *manager, state); },
        [&] {
            Check(AddFoldersToVorlanPath(w->editedTexts, cwf, *manager, Position::End), state);
        });
    Reset(*w, *manager, state);
}

void BM_Remove(benchmark::State& state, const Workload* w, MainSearchPathManager* manager) {
    const Velmora::current_working_folder::CurrentWorkingFolder cwf;
    TimeOne(
        state, [&] { Check(AddIRIsToVorlanPath(w->edited, *manager, Position::End), state); },
        [&] { Check(RemoveFoldersFromVorlanPath(w->editedTexts, cwf, *manager), state); });
}

void BM_Saved(benchmark::State& state, const Workload* w, MainSearchPathManager* manager) {
    const Velmora::current_working_folder::CurrentWorkingFolder cwf;
    TimeOne(
        state, [] {},
        [&] {
            Check(AddFoldersToVorlanPath(w->editedTexts, cwf, *manager, Position::End), state);
            Check(RemoveFoldersFromVorlanPath(w->editedTexts, cwf, *manager), state);
        });
}

void BM_ListsOnly(benchmark::State& state, const Workload* w) {
    ListOnlyManager manager(w->path);
    TimeOne(
        state, [] {},
        [&] {
            Check(AddIRIsToVorlanPath(w->edited, manager, Position::End), state);
            Check(RemoveIRIsFromVorlanPath(w->edited, manager), state);
        });
}

// The baseline: the same new lists, each folder looked up by a linear search.
void BM_ObviousLists(benchmark::State& state, const Workload* w) {
    TimeOne(
        state, [] {},
        [&] {
            const auto has = [](const std::vector<AbsoluteIRI>& list, const AbsoluteIRI& iri) {
                return std::find(list.begin(), list.end(), iri) != list.end();
            };
            std::vector<AbsoluteIRI> block;
            for (const auto& iri : w->edited) {
                if (!has(block, iri))
                    block.push_back(iri);
            }
            std::vector<AbsoluteIRI> added;
            for (const auto& iri : w->path) {
                if (!has(block, iri))
                    added.push_back(iri);
            }
            added.insert(added.end(), block.begin(), block.end());
            for (const auto& iri : w->edited) {
                if (!has(added, iri))
                    state.SkipWithError("not on the path");
            }
            std::vector<AbsoluteIRI> removed;
            for (const auto& iri : added) {
                if (!has(w->edited, iri))
                    removed.push_back(iri);
            }
            benchmark::DoNotOptimize(removed.data());
        });
}

// A fresh folder for the workloads' folders, removed with them when the program ends.
struct ScratchFolder {
    explicit ScratchFolder(const fs::path& parent) {
        std::string pattern = (parent / "vpath_bench_edit_XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("cannot make a folder in " + parent.string());
        path = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    fs::path path;
};

Workload MakeWorkload(const Size& size, const fs::path& scratch) {
    Workload w{size, {}, {}, {}, scratch / ("pathdef-" + std::to_string(size.path))};
    const auto folder = [&](const char* group, std::size_t k) {
        const fs::path path = scratch / group / std::to_string(k);
        fs::create_directories(path);
        return path;
    };
    for (std::size_t k = 0; k < size.path; ++k) {
        const auto path = folder("path", k);
        w.path.push_back(GetIRIFromString(Velmora::text::FromNative(path.string())));
    }
    for (std::size_t k = 0; k < size.edited; ++k) {
        w.editedTexts.push_back(Velmora::text::FromNative(folder("edited", k).string()));
        w.edited.push_back(GetIRIFromString(w.editedTexts.back()));
    }
    return w;
}

std::string Millis(std::optional<double> seconds) {
    char text[32] = "-";
    if (seconds)
        std::snprintf(text, sizeof text, "%.2f ms", *seconds * 1e3);
    return text;
}

std::string Growth(std::optional<double> now, std::optional<double> before) {
    char text[32] = "";
    if (now && before && *before > 0)
        std::snprintf(text, sizeof text, " (x%.2f)", *now / *before);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const auto options = ParseOptions(argc, argv);
    if (!options)
        return 2;
    const ScratchFolder scratch(options->tmpdir);

    std::vector<std::unique_ptr<Workload>> workloads;
    std::vector<std::unique_ptr<MainSearchPathManager>> managers;
    const auto reps = static_cast<int>(options->repetitions);
    for (const Size& size : options->sizes) {
        workloads.push_back(std::make_unique<Workload>(MakeWorkload(size, scratch.path)));
        const Workload* w = workloads.back().get();
        // Each manager scans its path once, here, before anything is timed.
        managers.push_back(ManagerOf(*w, false));
        auto* inMemory = managers.back().get();
        managers.push_back(ManagerOf(*w, true));
        auto* saved = managers.back().get();
        const std::string name = "/" + size.Name();
        for (auto* b : {
                 benchmark::RegisterBenchmark(("add" + name).c_str(), BM_Add, w, inMemory),
                 benchmark::RegisterBenchmark(("remove" + name).c_str(), BM_Remove, w, inMemory),
                 benchmark::RegisterBenchmark(("saved" + name).c_str(), BM_Saved, w, saved),
                 benchmark::RegisterBenchmark(("lists_only" + name).c_str(), BM_ListsOnly, w),
                 benchmark::RegisterBenchmark(("obvious_lists" + name).c_str(), BM_ObviousLists, w),
             }) {
            b->Iterations(1)
                ->Repetitions(reps)
                ->ReportAggregatesOnly(reps > 1)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }

    vpath_bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf(
        "\npath editing, median of %zu runs; in brackets the growth from the size above\n"
        "(sizes double: linear work grows about x2, work that goes with N times M x4)\n",
        options->repetitions);
    const char* const cases[] = {"add", "remove", "saved", "lists_only", "obvious_lists"};
    std::printf("%12s", "N/M");
    for (const char* c : cases)
        std::printf(" %20s", c);
    std::printf("\n");
    for (std::size_t i = 0; i < options->sizes.size(); ++i) {
        std::printf("%12s", options->sizes[i].Name().c_str());
        for (const char* c : cases) {
            const auto now = reporter.Seconds(std::string(c) + "/" + options->sizes[i].Name());
            const auto before =
                i == 0 ? std::nullopt
                       : reporter.Seconds(std::string(c) + "/" + options->sizes[i - 1].Name());
            std::printf(" %20s", (Millis(now) + Growth(now, before)).c_str());
        }
        std::printf("\n");
    }
    std::printf("%12s", "per folder");
    const Size& last = options->sizes.back();
    for (const char* c : cases) {
        const auto s = reporter.Seconds(std::string(c) + "/" + last.Name());
        char text[32] = "-";
        if (s)
            std::snprintf(text, sizeof text, "%.2f us", *s * 1e6 / static_cast<double>(last.path));
        std::printf(" %20s", text);
    }
    std::printf("   (of the path, at the largest size)\n");
    benchmark::Shutdown();
    return reporter.Failed() ? 1 : 0;
}
