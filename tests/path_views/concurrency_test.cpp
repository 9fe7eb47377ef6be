// Views shared by many threads: racing first fills of the cache, and lookups through views of a
// real path.

#include <atomic>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/path_views.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "path_views/view_helpers.hpp"
#include "support/temp_tree.hpp"

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

class ViewsOfARealPath : public TempTreeTest {};

TEST_F(ViewsOfARealPath, ConcurrentLookupsAgreeWithSequentialOnes) {
    std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    for (int f = 0; f < 30; ++f) {
        const std::string folder = "f" + std::to_string(f);
        for (int k = 0; k < 10; ++k)
            tree.File(folder + "/n" + std::to_string((f * 7 + k) % 40) + ".vl");
        if (f % 5 == 0)
            tree.File(folder + "/@n" + std::to_string(f) + "/n" + std::to_string(f) + ".vl");
        folders.push_back(tree.IRI(folder));
    }
    Velmora::SearchPath::ScanReport report;
    const auto all = Velmora::SearchPath::MainSearchPath::Scan(folders, report);
    const auto half = Velmora::SearchPath::MainSearchPath::Scan(
        std::vector(folders.begin() + 15, folders.end()), report);
    const std::shared_ptr<const IPath> views[] = {
        all,
        std::make_shared<DeduplicatedPath>(Paths{half, all}),
        std::make_shared<MultiMaskedPath>(
            all, std::vector<std::shared_ptr<const IPathEntry>>{(*all->GetMainEntries())[3]}),
    };
    std::vector<ustring> names;
    for (int k = 0; k < 45; ++k)
        names.push_back(u"n" + Velmora::text::FromNative(std::to_string(k)));
    auto answers = [&](const IPath& view) {
        std::vector<const PathItem*> out;
        for (const auto& name : names) {
            const detail::SearchTarget target(name, kVl);
            const auto hit =
                FindFirstFileVisibleOnPath(view, target, FilenameMatchingPolicy::PlatformDefault);
            out.push_back(hit ? hit->GetPathItem().get() : nullptr);
        }
        return out;
    };
    for (const auto& view : views) {
        const auto expected = answers(*view);
        std::atomic<int> mismatches{0};
        RunTogether(4, [&](int) {
            for (int repeat = 0; repeat < 20; ++repeat) {
                if (answers(*view) != expected)
                    ++mismatches;
            }
        });
        EXPECT_EQ(mismatches.load(), 0);
    }
}

}  // namespace
