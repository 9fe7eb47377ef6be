// Readers of the main search path on other threads while the manager changes it.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <velmora/searchpath/main_search_path_manager.hpp>

#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::MainSearchPathManager;

using ManagerReaders = vpath_test::TempTreeTest;

TEST_F(ManagerReaders, SeeWholeStatesWhileChangesArePublished) {
    constexpr int kFolders = 24;
    std::vector<AbsoluteIRI> folders;
    for (int k = 0; k < kFolders; ++k) {
        tree.File("f" + std::to_string(k) + "/x.vl");
        folders.push_back(tree.IRI("f" + std::to_string(k)));
    }
    // Scans run on the writer's thread alone: the test is about what readers see, and a
    // scheduler built without ThreadSanitizer's instrumentation would only add noise under it.
    const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    MainSearchPathManager manager({folders[0]}, {});
    std::atomic<bool> done{false};
    std::atomic<int> failures{0};
    std::atomic<long> reads{0};
    // The writer only ever grows a prefix of `folders` or shrinks it: every state a reader sees
    // must be such a prefix, and its snapshot must hold exactly those folders.
    const auto reader = [&] {
        while (!done.load()) {
            const auto list = manager.GetPathFolderIRIs();
            const auto path = manager.GetPath();
            const auto again = manager.GetPathFolderIRIs();
            bool prefix = !list->empty() && list->size() <= folders.size();
            for (std::size_t k = 0; prefix && k < list->size(); ++k)
                prefix = (*list)[k] == folders[k];
            // The snapshot read between two reads of the same list belongs to that list.
            const bool consistent = list != again || path->GetMainEntries()->size() == list->size();
            if (!prefix || !consistent)
                ++failures;
            ++reads;
        }
    };
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back(reader);
    Notification messages;
    for (int round = 0; round < 3; ++round) {
        for (int k = 2; k <= kFolders; ++k) {
            manager.ApplyPathAfterAdding(
                std::vector<AbsoluteIRI>(folders.begin(), folders.begin() + k), messages);
        }
        for (int k = kFolders - 1; k >= 1; --k) {
            manager.ApplyPathAfterRemoving(
                std::vector<AbsoluteIRI>(folders.begin(), folders.begin() + k), messages);
        }
    }
    done = true;
    for (auto& t : readers)
        t.join();
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(failures.load(), 0);
    EXPECT_GT(reads.load(), 0);
}

}  // namespace
