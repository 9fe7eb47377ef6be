// The manager's refresh finds the folders that change events name, and what it leaves is what a
// fresh start reads. (That a path made from the one before it answers as one made whole is the
// path change property test's.)

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/searchpath/main_search_path_manager.hpp>

#include "searchpath/path_fixture.hpp"

namespace {

using namespace Velmora::PathManagement;
using namespace Velmora::SearchPath;

class MainSearchPathUpdateTest : public vpath_test::TwoFolderPath {
  protected:
    // Makes a new file in each of `folders` and has `manager` read it again; returns the files.
    std::vector<std::string> MakeAndRefresh(MainSearchPathManager& manager,
                                            std::initializer_list<const char*> folders) {
        std::vector<std::string> files;
        for (const char* folder : folders) {
            files.push_back(std::string(folder) + "/m" + std::to_string(++m_made) + ".vl");
            tree.File(files.back());
            EXPECT_TRUE(manager.RefreshFolders({tree.IRI(files.back())})) << files.back();
        }
        return files;
    }

  private:
    int m_made = 0;
};

TEST_F(MainSearchPathUpdateTest, ARefreshReadsTheFoldersThatEventsNameAndNoOthers) {
    tree.File("one/plain/sub.vl");
    MainSearchPathManager manager({tree.IRI("one"), tree.IRI("two")}, {});
    struct Case {
        const char* what;
        std::string file;   // made before the refresh
        std::string named;  // the location that the event names
        bool refreshed;
    };
    const Case cases[] = {
        {"a file in a folder", "one/a1.vl", "one/a1.vl", true},
        {"the folder itself", "one/a2.vl", "one", true},
        {"a file two special folders down", "one/+pkg/@Cls/c.vl", "one/+pkg/@Cls/c.vl", true},
        {"a special folder", "two/@Point/p.vl", "two/@Point", true},
        // Unchanged folders are no refresh, so each case changes what the one it names holds.
        {"a folder that is no entry", "one/a5.vl", "one/plain", true},
        {"a file in a folder that is no entry", "one/a6.vl", "one/plain/sub.vl", false},
        {"a file off the path", "elsewhere/x.vl", "elsewhere/x.vl", false},
        {"the root", "one/a3.vl", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        tree.File(c.file);
        EXPECT_EQ(manager.RefreshFolders({tree.IRI(c.named)}) != nullptr, c.refreshed);
    }
    // What those refreshes left is what a fresh start reads.
    tree.File("one/a4.vl");
    EXPECT_TRUE(manager.RefreshFolders({tree.IRI("one/a4.vl")}));
    const auto refreshed = manager.GetSnapshot();
    const MainSearchPathManager fresh({tree.IRI("one"), tree.IRI("two")}, {});
    EXPECT_EQ(vpath_test::Answers(*refreshed), vpath_test::Answers(*fresh.GetSnapshot()));
}

// A refresh after a change finds each folder in its new place, whether the table of places is
// carried over from the path before the change or made anew.
TEST_F(MainSearchPathUpdateTest, ARefreshAfterAChangeFindsTheFoldersInTheirNewPlaces) {
    std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    for (const char* name : {"p0", "p1", "p2", "p3", "p4"}) {
        tree.File(std::string(name) + "/x.vl");
        folders.push_back(tree.IRI(name));
    }
    tree.File("new/n.vl");
    MainSearchPathManager manager(folders, {});
    tree.File("p4/first.vl");
    ASSERT_TRUE(manager.RefreshFolders({tree.IRI("p4/first.vl")}));
    const auto expect = [&](std::vector<foundation::storage::vfs::AbsoluteIRI> now) {
        const MainSearchPathManager fresh(now, {});
        EXPECT_EQ(vpath_test::Answers(*manager.GetSnapshot()),
                  vpath_test::Answers(*fresh.GetSnapshot()));
    };
    foundation::core::except::Notification problems;
    for (const bool keepOld : {true, false}) {
        SCOPED_TRACE(keepOld ? "carried over" : "made anew");
        // The path before each change lives on (as a watcher keeps it) or is let go.
        auto before = keepOld ? manager.GetSnapshot() : nullptr;
        auto now = *manager.GetPathFolderIRIs();
        now.insert(now.begin(), tree.IRI("new"));
        manager.ApplyPathAfterAdding(now, problems);
        MakeAndRefresh(manager, {"p4", "p0", "new"});
        expect(now);
        before = keepOld ? manager.GetSnapshot() : nullptr;
        now.erase(now.begin() + 2);  // p1
        now.erase(now.begin());      // new
        manager.ApplyPathAfterRemoving(now, problems);
        MakeAndRefresh(manager, {"p4", "p0", "p2"});
        expect(now);
        now.insert(now.begin() + 1, tree.IRI("p1"));
        manager.ApplyPathAfterAdding(now, problems);
    }
    EXPECT_TRUE(problems.empty());
}

// On a long path, a change in the middle moves the places of more folders than are looked up one
// by one: a refresh after it still finds each folder where it stands now.
TEST_F(MainSearchPathUpdateTest, ARefreshAfterAChangeInTheMiddleOfALongPathFindsEveryFolder) {
    constexpr int kFolders = 600;
    std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    for (int i = 0; i < kFolders; ++i) {
        const std::string name = "long/f" + std::to_string(i);
        tree.File(name + "/x.vl");
        folders.push_back(tree.IRI(name));
    }
    tree.File("new/n.vl");
    MainSearchPathManager manager(folders, {});
    tree.File("long/f0/first.vl");
    ASSERT_TRUE(manager.RefreshFolders({tree.IRI("long/f0/first.vl")}));
    foundation::core::except::Notification problems;
    // Each file made is in its folder's entry, and each entry in its folder's place.
    const auto refreshes = [&](std::initializer_list<const char*> changed) {
        for (const auto& file : MakeAndRefresh(manager, changed))
            EXPECT_TRUE(vpath_test::Holds(*manager.GetSnapshot(), tree, file)) << file;
        const auto& entries = manager.GetSnapshot()->GetFolderEntries();
        const auto& now = *manager.GetPathFolderIRIs();
        ASSERT_EQ(entries.size(), now.size());
        for (std::size_t i = 0; i < now.size(); ++i)
            ASSERT_EQ(entries[i]->GetLocation(), now[i]) << i;
    };
    auto now = folders;
    now.insert(now.begin() + kFolders / 2, tree.IRI("new"));
    manager.ApplyPathAfterAdding(now, problems);
    refreshes({"long/f10", "long/f550", "new"});
    now.erase(now.begin() + kFolders / 2 + 1);
    now.erase(now.begin() + 3);
    manager.ApplyPathAfterRemoving(now, problems);
    refreshes({"long/f2", "long/f450", "long/f4"});
    EXPECT_TRUE(problems.empty());
}

}  // namespace
