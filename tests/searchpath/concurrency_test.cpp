// Many readers on one path while the path is rebuilt beside them.

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/concurrency/published.hpp>
#include <velmora/searchpath/main_search_path.hpp>

#include "searchpath/path_fixture.hpp"

namespace {

using namespace Velmora::PathManagement;
using Velmora::SearchPath::EntryCache;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;
using vpath_test::kFull;
using vpath_test::kPrimary;

using ConcurrentReaders = vpath_test::TwoFolderPath;

TEST_F(ConcurrentReaders, SeeWholeSnapshotsWhileNewOnesArePublished) {
    constexpr int kGenerations = 40;
    tree.File("live/gen_0.vl");
    EntryCache cache;
    const std::vector<foundation::storage::vfs::AbsoluteIRI> folders = {
        tree.IRI("one"), tree.IRI("live"), tree.IRI("two")};
    ScanReport report;
    Velmora::concurrency::Published<MainSearchPath> current(
        MainSearchPath::Scan(folders, report, &cache));
    const auto first = current.Load();
    cache.Retain(first->GetFolderEntries());

    std::atomic<bool> done{false};
    std::atomic<int> failures{0};
    auto reader = [&] {
        const std::vector<ustring> exts = {u".vl"};
        while (!done.load()) {
            const auto snapshot = current.Load();
            // A snapshot that holds generation k holds every generation before it.
            int newest = -1;
            for (int k = kGenerations; k >= 0; --k) {
                const ustring name = u"gen_" + Velmora::text::FromNative(std::to_string(k));
                const detail::SearchTarget target(name, exts);
                if (snapshot->FindFirstInScope(SearchScope(kPrimary), target,
                                               FilenameMatchingPolicy::PlatformDefault)) {
                    newest = k;
                    break;
                }
            }
            for (int k = 0; k <= newest; ++k) {
                const ustring name = u"gen_" + Velmora::text::FromNative(std::to_string(k));
                const detail::SearchTarget target(name, exts);
                if (!snapshot->FindFirstInScope(SearchScope(kPrimary), target,
                                                FilenameMatchingPolicy::PlatformDefault)) {
                    ++failures;
                }
            }
            // Files that never change resolve the same way in every snapshot.
            const ustring pkgName = u"pkg/f";
            const detail::SearchTarget pkg(pkgName, exts);
            const auto hit = snapshot->FindFirstInScope(SearchScope(kFull), pkg,
                                                        FilenameMatchingPolicy::PlatformDefault);
            if (!hit || hit->GetPathItem()->GetName() != u"f")
                ++failures;
            // Walks see every entry of the snapshot, concurrently within themselves too.
            std::atomic<int> entries{0};
            snapshot->ConcurrentForEachEntry(SearchScope(kFull), [&](const auto&) {
                ++entries;
                return false;
            });
            if (entries.load() != static_cast<int>(snapshot->GetEntryCount()) - 1)
                ++failures;
            if (newest < 0)
                ++failures;
        }
    };

    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back(reader);
    for (int k = 1; k <= kGenerations; ++k) {
        tree.File("live/gen_" + std::to_string(k) + ".vl");
        ScanReport r;
        auto next = MainSearchPath::Scan(folders, r, &cache);
        cache.Retain(next->GetFolderEntries());
        current.Store(std::move(next));
    }
    done.store(true);
    for (auto& t : readers)
        t.join();

    EXPECT_EQ(failures.load(), 0);
    {
        // Unchanged folders kept their entry objects through all the rebuilds.
        const auto last = current.Load();
        EXPECT_EQ(last->GetFolderEntries()[0], first->GetFolderEntries()[0]);
        EXPECT_NE(last->GetFolderEntries()[1], first->GetFolderEntries()[1]);
        EXPECT_EQ(last->GetFolderEntries()[2], first->GetFolderEntries()[2]);
    }
}

}  // namespace
