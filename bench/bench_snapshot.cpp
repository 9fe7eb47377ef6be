// bench_snapshot: what a change of the path costs the thread that makes it and the readers of the
// snapshot it publishes, on a large path scanned from a generated tree.
//
// Cases, each over many snapshots:
//   refresh     one folder gains a file and is read anew; MainSearchPath::Update publishes the
//               next snapshot (the folder's scan is not timed: only what follows it)
//   rearrange   a folder in the middle of the path is taken off, then put back; each step
//               publishes through MainSearchPath::Rearrange
//   reverse     the whole path in reverse order, through Rearrange: every folder moves
// The first change after the scan is timed apart: it is the one that builds the tables a scan
// leaves for first use.
// For each new snapshot: the time to publish it, and the time of each of its first lookups
// (FindFirstInScope of names held somewhere on the path), one by one. Beside them, in the same
// run and interleaved with them, the same number of lookups on a snapshot that has answered
// many already: the used snapshot a reader would otherwise hold. Every lookup of the name a
// refresh added is checked to answer that folder.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "support/bench_main.hpp"
#include "support/tree_locations.hpp"

namespace {

using Velmora::PathManagement::FilenameMatchingPolicy;
using Velmora::PathManagement::SearchScope;
using Velmora::PathManagement::detail::SearchTarget;
using Velmora::SearchPath::FolderEntry;
using Velmora::SearchPath::FolderScanner;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;
namespace Constants = Velmora::PathManagement::Constants;
using Clock = std::chrono::steady_clock;

const std::uint32_t kPrimary[] = {0};
// The lookups timed on each new snapshot, and as many on the used one.
constexpr std::size_t kFirstLookups = 16;

double Microseconds(Clock::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
}

// One name resolved on the path, timed; a name of the folder a rearrangement took off is missed.
double TimedLookup(const MainSearchPath& path, const SearchTarget& target) {
    const auto start = Clock::now();
    auto found = path.FindFirstInScope(SearchScope(kPrimary), target,
                                       FilenameMatchingPolicy::PlatformDefault);
    const auto elapsed = Clock::now() - start;
    benchmark::DoNotOptimize(found);
    return Microseconds(elapsed);
}

double Percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const auto at = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[at];
}

struct Figures {
    std::vector<double> publish;  // us per snapshot
    std::vector<double> first;    // us per lookup, on new snapshots
    std::vector<double> used;     // us per lookup, on the used snapshot
};

void PrintRow(const char* name, const std::vector<double>& v) {
    std::printf("  %-34s p50 %10.1f us   p99 %10.1f us   max %10.1f us   (%zu)\n", name,
                Percentile(v, 0.5), Percentile(v, 0.99), Percentile(v, 1.0), v.size());
}

void Print(const char* what, const Figures& f) {
    std::printf("%s\n", what);
    PrintRow("publish", f.publish);
    PrintRow("first lookups on a new snapshot", f.first);
    PrintRow("lookups on a used snapshot", f.used);
    const double used99 = Percentile(f.used, 0.99);
    std::printf("  first / used at p99: %.2fx\n",
                used99 > 0 ? Percentile(f.first, 0.99) / used99 : 0);
}

class Run {
  public:
    Run(const vpath_bench::GeneratedTree& tree, std::shared_ptr<const MainSearchPath> path)
        : m_tree(tree), m_path(std::move(path)), m_used(m_path) {
        for (const auto* records : {&tree.singleNames, &tree.sharedNames}) {
            for (std::size_t i = 0; i < records->size(); i += 1 + records->size() / 2048) {
                const auto& base = (*records)[i].base;
                m_names.emplace_back(base.begin(), base.end());
                m_targets.emplace_back(m_names.back(), Constants::LanguageExtensions);
            }
        }
        // The used snapshot answers each name once before anything is timed.
        for (const auto& target : m_targets)
            TimedLookup(*m_used, target);
    }

    // Lookups on a snapshot just published, and as many on the used one.
    void Lookups(const MainSearchPath& fresh, Figures& f) {
        // Names apart, so that neither lookup finds the other's tables in the processor's caches.
        for (std::size_t k = 0; k < kFirstLookups; ++k, ++m_next) {
            f.first.push_back(TimedLookup(fresh, m_targets[m_next % m_targets.size()]));
            f.used.push_back(TimedLookup(
                *m_used, m_targets[(m_next + m_targets.size() / 2) % m_targets.size()]));
        }
    }

    Figures Refreshes(std::size_t count) {
        Figures f;
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t folder = (m_refreshes * 7919) % m_tree.folders.size();
            const std::string base = "added_" + std::to_string(m_refreshes++);
            std::ofstream(m_tree.folders[folder] / (base + ".vl")) << "";
            ScanReport report;
            auto entry = FolderScanner().ScanMainEntry(
                m_path->GetFolderEntries()[folder]->GetLocation(), report);
            const auto start = Clock::now();
            auto next = MainSearchPath::Update(*m_path, {{folder, std::move(entry)}});
            f.publish.push_back(Microseconds(Clock::now() - start));
            Lookups(*next, f);
            const ustring name(base.begin(), base.end());
            const auto found = next->FindFirstInScope(
                SearchScope(kPrimary), SearchTarget(name, Constants::LanguageExtensions),
                FilenameMatchingPolicy::PlatformDefault);
            if (!found || found->GetPathEntry() != next->GetFolderEntries()[folder])
                throw std::runtime_error("a refresh lost the file it added");
            m_path = std::move(next);
        }
        return f;
    }

    Figures Rearranges(std::size_t count, bool reverse) {
        Figures f;
        for (std::size_t k = 0; k < count; ++k) {
            auto entries = m_path->GetFolderEntries();
            const std::size_t at = entries.size() / 2;
            if (reverse) {
                std::reverse(entries.begin(), entries.end());
            } else if (k % 2 == 0) {
                m_away = entries[at];
                entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(at));
            } else {
                entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(at), m_away);
            }
            const auto start = Clock::now();
            auto next = MainSearchPath::Rearrange(*m_path, std::move(entries));
            f.publish.push_back(Microseconds(Clock::now() - start));
            Lookups(*next, f);
            m_path = std::move(next);
        }
        return f;
    }

  private:
    const vpath_bench::GeneratedTree& m_tree;
    std::shared_ptr<const MainSearchPath> m_path;
    std::shared_ptr<const MainSearchPath> m_used;
    std::shared_ptr<const FolderEntry> m_away;
    std::deque<ustring> m_names;  // borrowed by the targets
    std::vector<SearchTarget> m_targets;
    std::size_t m_next = 0;
    std::size_t m_refreshes = 0;
};

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = vpath_bench::InitializeBench(argc, argv, status);
    if (!options)
        return status;
    try {
        const vpath_bench::ScratchFolder scratch(options->scratchParent);
        const auto tree = vpath_bench::GenerateReportedTree(scratch.path(), options->shape);
        ScanReport report;
        auto path = MainSearchPath::Scan(vpath_bench::FolderLocations(tree), report);
        if (!report.empty())
            throw std::runtime_error(report.Problems().front().Describe());
        std::printf("%zu folders, %zu files; %zu lookups timed on each new snapshot\n",
                    path->GetFolderEntries().size(), tree.fileCount, kFirstLookups);
        Run run(tree, std::move(path));
        const std::size_t count = 10 * options->repetitions;
        Print("first change after the scan (Update)", run.Refreshes(1));
        Print("refresh: one folder read anew (Update)", run.Refreshes(count));
        Print("rearrange: a folder taken off or put back (Rearrange)",
              run.Rearranges(count, false));
        Print("reverse: every folder moved (Rearrange)", run.Rearranges(2, true));
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_snapshot: %s\n", e.what());
        return 1;
    }
}
