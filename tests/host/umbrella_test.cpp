// What an embedder writes with the umbrella header alone: a manager started from a path cache, a
// watcher keeping it fresh, and a thread that waits for the watcher to take up its own change.

#include <velmora/path_management.hpp>  // the library's only header here: all an embedder needs

#include <chrono>
#include <fstream>

#include <gtest/gtest.h>

#include "support/temp_tree.hpp"

namespace {

namespace pm = Velmora::PathManagement;
namespace sp = Velmora::SearchPath;

TEST(Umbrella, AManagerFromACacheKeptFreshByAWatcher) {
    vpath_test::TempTree tree;
    tree.Folder("one");
    sp::MainSearchPathManager::Options options;
    options.pathCache.emplace();
    options.pathCache->at = sp::PathCacheSlot{tree.IRI("cache/path"), tree.IRI()};
    sp::MainSearchPathManager manager({tree.IRI("one")}, std::move(options));
    sp::PathWatcher watcher(manager, {});

    std::ofstream(tree.Path("one/area.vl")) << "x";
    const auto state = watcher.WaitUntilSettled(std::chrono::seconds(10));
    ASSERT_TRUE(state);
    EXPECT_EQ(state->generation, 1u);
    const ustring name = u"area";
    const auto target = pm::CreateSearchTargetWithExtensionInFilenamePreferred(
        name, pm::Constants::LanguageExtensions);
    EXPECT_TRUE(
        pm::FindFirstFileVisibleOnPath(*state->path, target, pm::FilenameMatchingPolicy::Exact));
}

}  // namespace
