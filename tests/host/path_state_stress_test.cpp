// Everything at once on a real tree: readers resolving names, a writer changing the folder list,
// files coming and going under the watcher and through refreshes, and an observer. Every answer a
// reader gets must be the one that its own state's folder list calls for.
//
// It runs for VPATH_STRESS_SECONDS (2 by default); give it minutes to soak.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_watcher.hpp>

#include "support/temp_tree.hpp"

namespace {

namespace pm = Velmora::PathManagement;
using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;
using namespace std::chrono_literals;

constexpr int kFolders = 200;
constexpr int kFilesPerFolder = 5;
constexpr int kNames = 40;
constexpr int kReaders = 4;

// The files that never change: folder i holds s<n>.vl for n = 7i, 7i + 1, ... (mod kNames), so
// that each name is in many folders and the answer depends on their order. Only c<i>.vl, made in
// folder i alone, comes and goes.
bool Holds(int folder, int name) {
    return (name - 7 * folder % kNames + kNames) % kNames < kFilesPerFolder;
}

// The folder that `name` resolves to on `state`, or -1: looked up by the library.
int Resolve(const PathState& state, const std::string& name, const std::vector<AbsoluteIRI>& pool) {
    const ustring base = Velmora::text::FromNative(name);
    const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
        base, pm::Constants::LanguageExtensions);
    const auto found =
        pm::FindFirstFileVisibleOnPath(*state.path, target, pm::FilenameMatchingPolicy::Exact);
    if (!found)
        return -1;
    const auto at = std::find(pool.begin(), pool.end(), found->GetPathEntry()->GetAbsoluteIRI());
    return at == pool.end() ? -2 : static_cast<int>(at - pool.begin());
}

TEST(PathStateStress, EveryAnswerComesFromOneWholeState) {
    // Scans on the calling thread: libtbb's own synchronisation would only add noise under
    // ThreadSanitizer, and the question here is the manager's.
    const tbb::global_control oneThread{tbb::global_control::max_allowed_parallelism, 1};
    const char* seconds = std::getenv("VPATH_STRESS_SECONDS");
    const auto duration = std::chrono::seconds(seconds ? std::atoi(seconds) : 2);
    vpath_test::TempTree tree;
    std::vector<AbsoluteIRI> pool;
    for (int i = 0; i < kFolders; ++i) {
        for (int n = 0; n < kNames; ++n) {
            if (Holds(i, n))
                tree.File(fmt::format("f{}/s{}.vl", i, n));
        }
        pool.push_back(tree.IRI(fmt::format("f{}", i)));
    }
    const auto number = [&](const AbsoluteIRI& folder) {
        return static_cast<int>(std::find(pool.begin(), pool.end(), folder) - pool.begin());
    };
    MainSearchPathManager manager(pool, {});
    std::mutex faultsMutex;
    std::vector<std::string> faults;
    const auto fault = [&](std::string what) {
        std::lock_guard lock(faultsMutex);
        faults.push_back(std::move(what));
    };
    std::uint64_t told = 0;  // changes are told one at a time, whichever thread makes them
    manager.AddPathChangeObserver([&](const pm::PathChange& change) {
        const auto state = manager.GetState();
        if (change.generation != told + 1 || state->generation != change.generation ||
            state->path != change.after) {
            fault(fmt::format("told of generation {} after {}, while {} is current",
                              change.generation, told, state->generation));
        }
        told = change.generation;
    });
    auto watcher = std::make_unique<PathWatcher>(manager, PathWatcher::Options{});

    std::atomic<bool> done{false};
    std::atomic<long> lookups{0}, changes{0}, churns{0};
    std::vector<std::thread> threads;
    for (int r = 0; r < kReaders; ++r) {
        threads.emplace_back([&, r] {
            std::minstd_rand random(r + 1);
            for (; !done.load(); ++lookups) {
                const auto state = manager.GetState();
                const int name = static_cast<int>(random() % kNames);
                int expected = -1;
                for (const auto& folder : *state->folders) {
                    if (Holds(number(folder), name)) {
                        expected = number(folder);
                        break;
                    }
                }
                const int got = Resolve(*state, fmt::format("s{}", name), pool);
                if (got != expected) {
                    fault(fmt::format("s{} in f{} on generation {}, not in f{}", name, got,
                                      state->generation, expected));
                }
            }
        });
    }
    threads.emplace_back([&] {
        std::minstd_rand random(42);
        for (; !done.load(); ++changes) {
            auto folders = *manager.GetPathFolderIRIs();
            const AbsoluteIRI& folder = pool[random() % kFolders];
            foundation::core::except::Notification problems;
            if (const auto at = std::find(folders.begin(), folders.end(), folder);
                at != folders.end()) {
                folders.erase(at);
                manager.ApplyPathAfterRemoving(folders, problems);
            } else {
                folders.insert(folders.begin() + random() % (folders.size() + 1), folder);
                manager.ApplyPathAfterAdding(folders, problems);
            }
            if (!problems.empty())
                fault(problems.ToNativeText());
        }
    });
    threads.emplace_back([&] {
        // Folder i's own file is made and removed, then taken up by the watcher or by a refresh
        // in turn; the state that follows must show it on the path exactly when it exists.
        for (int round = 0; !done.load(); ++round, ++churns) {
            const int i = round % kFolders;
            const auto file = tree.Path(fmt::format("f{}/c{}.vl", i, i));
            for (const bool exists : {true, false}) {
                if (exists)
                    std::ofstream(file).put('x');
                else
                    std::filesystem::remove(file);
                auto state =
                    round % 2 ? manager.RefreshFolders({pool[i]}) : watcher->WaitUntilSettled(10s);
                if (!state && round % 2)
                    state = manager.GetState();  // the watcher took it up first
                if (!state) {
                    fault("the watcher did not settle");
                    continue;
                }
                const bool onPath = std::find(state->folders->begin(), state->folders->end(),
                                              pool[i]) != state->folders->end();
                const int got = Resolve(*state, fmt::format("c{}", i), pool);
                if (got != (exists && onPath ? i : -1)) {
                    fault(fmt::format("c{} {} in f{} on generation {}", i,
                                      exists ? "made" : "removed", got, state->generation));
                }
            }
        }
    });
    std::this_thread::sleep_for(duration);
    done.store(true);
    for (auto& thread : threads)
        thread.join();
    watcher.reset();  // its refreshes tell the observer too

    EXPECT_TRUE(faults.empty()) << faults.size() << " faults, the first: " << faults.front();
    EXPECT_EQ(manager.GetState()->generation, told);
    EXPECT_GT(std::min({lookups.load(), changes.load(), churns.load()}), 0);  // all of them ran
}

}  // namespace
