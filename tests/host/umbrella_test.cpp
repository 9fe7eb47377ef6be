// What an embedder writes with the umbrella header alone: a manager started from a path cache, a
// watcher keeping it fresh, and a thread that waits for the watcher to take up its own changes.

#include <velmora/path_management.hpp>  // the library's only header here: all an embedder needs

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_tree.hpp"

namespace {

namespace pm = Velmora::PathManagement;
namespace sp = Velmora::SearchPath;

TEST(WatcherSettles, TheStateItReturnsShowsEveryFileMadeOrRemovedBefore) {
    vpath_test::TempTree tree;
    tree.File("one/a.vl");
    tree.Folder("two");
    sp::MainSearchPathManager::Options options;
    options.pathCache.emplace();
    options.pathCache->at = sp::PathCacheSlot{tree.IRI("cache/path"), tree.IRI()};
    sp::MainSearchPathManager manager({tree.IRI("one"), tree.IRI("two")}, std::move(options));
    sp::PathWatcher watcher(manager, {});
    std::uint64_t generation = manager.GetState()->generation;
    for (int round = 0; round < 3; ++round) {
        const std::string name = "n" + std::to_string(round);
        const auto file = tree.Path("two/" + name + ".vl");
        for (const bool exists : {true, false}) {
            SCOPED_TRACE(name + (exists ? " made" : " removed"));
            if (exists)
                std::ofstream(file) << "x";
            else
                std::filesystem::remove(file);
            const auto state = watcher.WaitUntilSettled(std::chrono::seconds(10));
            ASSERT_TRUE(state);
            EXPECT_GT(state->generation, generation);
            generation = state->generation;
            const ustring base = Velmora::text::FromNative(name);
            const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
                base, pm::Constants::LanguageExtensions);
            EXPECT_EQ(pm::FindFirstFileVisibleOnPath(*state->path, target,
                                                     pm::FilenameMatchingPolicy::Exact)
                          .has_value(),
                      exists);
        }
    }
}

}  // namespace
