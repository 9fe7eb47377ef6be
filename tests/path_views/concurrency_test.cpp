// Views shared by many threads: racing first fills of the main-entry cache.

#include <atomic>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_views.hpp>

#include "path_views/view_helpers.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace vpath_test;

using Paths = std::vector<std::shared_ptr<const IPath>>;

// Runs `body(thread index)` on `count` threads released at the same moment.
void RunTogether(int count, const std::function<void(int)>& body) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            while (!go.load())
                std::this_thread::yield();
            body(i);
        });
    }
    go.store(true);
    for (auto& t : threads)
        t.join();
}

TEST(ViewConcurrency, FirstCallsOfGetMainEntriesRaceToOneFill) {
    for (int round = 0; round < 10; ++round) {
        const auto a = Entry("a");
        const auto b = Entry("b");
        const auto sub = FakePath::Make({a, b, Entry("a")});
        const std::shared_ptr<const IPath> views[] = {
            std::make_shared<ConcatenatedPath>(sub, sub),
            std::make_shared<DeduplicatedPath>(Paths{sub, sub}),
            std::make_shared<MultiMaskedPath>(sub,
                                              std::vector<std::shared_ptr<const IPathEntry>>{b}),
        };
        const std::size_t expected[] = {6, 2, 2};
        for (std::size_t v = 0; v < 3; ++v) {
            SCOPED_TRACE(v);
            std::vector<SharedPathEntryVector> seen(4);
            // Walks of the deduplicated view look at the cache while it is being filled.
            RunTogether(4, [&](int i) {
                seen[i] = views[v]->GetMainEntries();
                Walk(*views[v]);
            });
            for (const auto& s : seen)
                EXPECT_EQ(s, seen[0]);
            EXPECT_EQ(seen[0]->size(), expected[v]);
        }
        // One fill for all threads: the sub-path was asked once per occurrence in each view.
        EXPECT_EQ(sub->MainEntriesCalls(), 2 + 2 + 1);
    }
}

}  // namespace
