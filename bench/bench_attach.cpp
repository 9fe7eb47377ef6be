// bench_attach: a program attached to the path service, beside the same lookup in-process.
//
// On a generated tree kept by a path service (in this process, on a thread of its own, answering
// over its Unix socket as it does for any client):
//   attach        AttachedPath::Attach and its end: connect, greet, subscribe, map the page
//   memoized      Resolve of a name asked before: a load of the generation and a hash lookup
//   service       Resolve of a name never asked: one lookup through the service (a connection,
//                 the service's sync with the disk, the resolution, the answer)
//   snapshot      the baseline: the same resolution (ResolveOnPath) in-process, on the snapshot of
//                 a manager of the same path, as a program that read the path itself does it

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <velmora/searchpath/attached_path.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_service.hpp>
#include <velmora/searchpath/service_client.hpp>

#include "support/bench_main.hpp"
#include "support/summary_reporter.hpp"
#include "support/tree_locations.hpp"

namespace {

using Velmora::SearchPath::AttachedPath;

struct Workload {
    std::string pathDefinition;
    std::vector<std::string> names;  // held on the path, each in its first folder
    std::unique_ptr<AttachedPath> attached;
    std::shared_ptr<const Velmora::SearchPath::PathState> state;  // of a manager of its own
};

void BM_Attach(benchmark::State& state, const Workload& w) {
    for (auto _ : state) {
        std::string reason;
        auto attached = AttachedPath::Attach({.pathDefinition = w.pathDefinition}, reason);
        if (!attached) {
            state.SkipWithError(reason.c_str());
            return;
        }
        benchmark::DoNotOptimize(attached);
    }
}

void BM_Memoized(benchmark::State& state, const Workload& w) {
    for (const auto& name : w.names)
        w.attached->Resolve(name);
    std::size_t i = 0;
    for (auto _ : state) {
        auto answer = w.attached->Resolve(w.names[i++ % w.names.size()]);
        benchmark::DoNotOptimize(answer);
    }
}

void BM_ThroughService(benchmark::State& state, const Workload& w) {
    // Names never asked before (none is on the path): each is a question to the service.
    static std::atomic<std::size_t> next{0};
    for (auto _ : state) {
        auto answer = w.attached->Resolve("unasked_" + std::to_string(next++));
        if (!answer.answered) {
            state.SkipWithError("the service did not answer");
            return;
        }
        benchmark::DoNotOptimize(answer);
    }
}

void BM_Snapshot(benchmark::State& state, const Workload& w) {
    std::size_t i = 0;
    for (auto _ : state) {
        auto file =
            Velmora::SearchPath::ResolveOnPath(*w.state->path, w.names[i++ % w.names.size()]);
        benchmark::DoNotOptimize(file);
    }
}

void PrintSummary(const vpath_bench::SummaryReporter& reporter) {
    std::printf("\nAn attached program (medians):\n");
    const auto row = [&](const char* name, const char* what, const char* target) {
        const auto seconds = reporter.Seconds(name);
        std::printf("  %-26s %12s  %s\n", what,
                    seconds ? vpath_bench::Duration(*seconds).c_str() : "-", target);
    };
    row("attach", "attach", "target <= 5 ms");
    row("memoized", "memoized lookup", "target <= 300 ns");
    row("service", "lookup through the service", "");
    row("snapshot", "in-process, on a snapshot", "baseline");
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = vpath_bench::InitializeBench(argc, argv, status);
    if (!options)
        return status;
    try {
        const vpath_bench::ScratchFolder scratch(options->scratchParent);
        std::filesystem::create_directories(scratch.path() / "tree");
        const auto tree =
            vpath_bench::GenerateReportedTree(scratch.path() / "tree", options->shape);
        // Folders an hour old: their stamps are trusted, so that the service does not read the
        // whole fresh tree again on a thread of its own while the figures are taken.
        const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        for (const auto& item :
             std::filesystem::recursive_directory_iterator(scratch.path() / "tree")) {
            if (item.is_directory())
                std::filesystem::last_write_time(item.path(), old);
        }
        for (const auto& folder : tree.folders)
            std::filesystem::last_write_time(folder, old);
        Workload w;
        w.pathDefinition = (scratch.path() / "pathdef").string();
        {
            std::ofstream pathdef(w.pathDefinition);
            for (const auto& folder : tree.folders)
                pathdef << folder.string() << "\n";
        }
        for (const auto& record : tree.singleNames) {
            if (w.names.size() < 1024)
                w.names.push_back(record.base);
        }
        std::filesystem::create_directories(scratch.path() / "run");
        ::setenv("XDG_RUNTIME_DIR", (scratch.path() / "run").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (scratch.path() / "cache").c_str(), 1);
        std::string problem;
        auto error = Velmora::SearchPath::PathService::OpenError::None;
        auto service = Velmora::SearchPath::PathService::Open(
            {.pathDefinition = w.pathDefinition, .answer = {}, .log = {}}, problem, error);
        if (!service)
            throw std::runtime_error(problem);
        std::thread serving([&] { service->Serve(); });
        std::string reason;
        w.attached = AttachedPath::Attach({.pathDefinition = w.pathDefinition}, reason);
        if (!w.attached)
            throw std::runtime_error(reason);
        foundation::core::except::Notification problems;
        Velmora::SearchPath::MainSearchPathManager::Options managerOptions;
        managerOptions.pathDefinition.emplace(w.pathDefinition);
        const auto manager =
            Velmora::SearchPath::MainSearchPathManager::Open(std::move(managerOptions), problems);
        if (!manager)
            throw std::runtime_error(problems.ToNativeText());
        w.state = manager->GetState();
        // Both answer every name alike before either is timed.
        for (const auto& name : w.names) {
            const auto served = w.attached->Resolve(name);
            const auto own = Velmora::SearchPath::ResolveOnPath(*w.state->path, name);
            if (!served.file || !own || *served.file != *own)
                throw std::runtime_error("the service and the snapshot differ on " + name);
        }

        const auto each = [&](benchmark::internal::Benchmark* b) {
            b->UseRealTime()
                ->Repetitions(static_cast<int>(options->repetitions))
                ->ReportAggregatesOnly(options->repetitions > 1);
        };
        each(benchmark::RegisterBenchmark("attach", [&](auto& s) { BM_Attach(s, w); }));
        each(benchmark::RegisterBenchmark("memoized", [&](auto& s) { BM_Memoized(s, w); }));
        each(benchmark::RegisterBenchmark("service", [&](auto& s) { BM_ThroughService(s, w); }));
        each(benchmark::RegisterBenchmark("snapshot", [&](auto& s) { BM_Snapshot(s, w); }));
        vpath_bench::SummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::Shutdown();
        PrintSummary(reporter);

        w.attached.reset();
        Velmora::SearchPath::ServiceRequest stop;
        stop.operation = Velmora::SearchPath::ServiceOperation::Stop;
        stop.pathDefinition = service->Place().pathDefinition;
        Velmora::SearchPath::AskPathService(service->Place(), stop, {});
        serving.join();
        return reporter.Failed() ? 1 : 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_attach: %s\n", e.what());
        return 1;
    }
}
