// The cached start a manager takes from one option: the cache read at the start, written after a
// start or a change worth it, in the background for a program that runs on.

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>

#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::SearchPath;

class CachedStart : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* file : {"a/fa.vl", "b/fb.vl", "c/fc.vl"})
            tree.File(file);
        slot = PathCacheSlot{tree.IRI("cache/path.cache"), tree.IRI("cache/path.cache")};
    }

    // A manager of `folders` on the cache at `slot`; `known` hears how many entries it read.
    std::unique_ptr<MainSearchPathManager> Start(const std::vector<AbsoluteIRI>& folders,
                                                 bool inBackground, std::size_t* known) {
        MainSearchPathManager::Options options;
        options.pathCache = {
            .at = slot,
            .inBackground = inBackground,
            .warn = {},
            .loaded = [known](const FolderEntryList& loaded) { *known = loaded.size(); }};
        return std::make_unique<MainSearchPathManager>(folders, std::move(options));
    }

    // The folders the cache holds for `folders`.
    std::size_t Cached(const std::vector<AbsoluteIRI>& folders) const {
        return LoadCachedEntries(slot, folders).size();
    }

    PathCacheSlot slot;
};

TEST_F(CachedStart, AStartReadsWhatTheLastOneWroteAndAChangeIsWritten) {
    const std::vector<AbsoluteIRI> ab = {tree.IRI("a"), tree.IRI("b")};
    const std::vector<AbsoluteIRI> cab = {tree.IRI("c"), tree.IRI("a"), tree.IRI("b")};
    for (const bool inBackground : {false, true}) {
        SCOPED_TRACE(inBackground ? "in the background" : "at once");
        std::filesystem::remove_all(tree.Path("cache"));
        std::size_t known = 99;
        Start(ab, inBackground, &known);
        EXPECT_EQ(known, 0u);  // no cache yet: the start wrote one
        EXPECT_EQ(Cached(ab), 2u);
        auto manager = Start(ab, inBackground, &known);
        EXPECT_EQ(known, 2u);
        Notification messages;
        manager->ApplyPathAfterAdding(cab, messages);
        ASSERT_TRUE(messages.empty());
        manager.reset();  // a background write is finished before the manager goes
        EXPECT_EQ(Cached(cab), 3u);
    }
}

TEST_F(CachedStart, TheDefaultOneIsThePathDefinitionFilesUnderTheCacheHome) {
    ::setenv("XDG_CACHE_HOME", tree.Path("xdg").c_str(), 1);
    const std::string pathdef = tree.File("pathdef", tree.Path("a").native() + "\n").native();
    MainSearchPathManager::Options options;
    options.pathDefinition.emplace(pathdef);
    options.pathCache.emplace();
    Notification problems;
    ASSERT_TRUE(MainSearchPathManager::Open(std::move(options), problems));
    const auto defaultSlot = PathCacheForPathDefinition(pathdef);
    ::unsetenv("XDG_CACHE_HOME");
    ASSERT_TRUE(defaultSlot);
    EXPECT_EQ(LoadCachedEntries(*defaultSlot, {tree.IRI("a")}).size(), 1u);
    EXPECT_TRUE(std::filesystem::is_directory(tree.Path("xdg/vpath")));
}

}  // namespace
