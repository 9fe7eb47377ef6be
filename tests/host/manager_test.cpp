// The main search path manager on real folders: what a change checks, keeps, saves and tells.

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>

#include "host/message_ids.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using vpath_test::IdsOf;

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::PathManagement;
using Velmora::SearchPath::MainSearchPathManager;
using Velmora::SearchPath::PathDefinitionFile;
using Velmora::SearchPath::ScanProblem;
using List = std::vector<AbsoluteIRI>;

class Manager : public vpath_test::TempTreeTest {
  protected:
#ifdef __SANITIZE_THREAD__
    // The scans' worker threads synchronise inside libtbb, which is not built for
    // ThreadSanitizer and would be reported; these tests are about the manager, not the scans.
    const tbb::global_control m_oneThread{tbb::global_control::max_allowed_parallelism, 1};
#endif
    void SetUp() override {
        for (const char* file : {"a/fa.vl", "b/fb.vl", "c/fc.vl"})
            tree.File(file);
        tree.File("file.vl");
    }
    MainSearchPathManager::Options Saved() const {
        MainSearchPathManager::Options options;
        options.pathDefinition.emplace(tree.Path("cfg/pathdef").string());
        return options;
    }
    // Marks `folder` as changed, whatever the resolution of the file system's clock.
    void Touch(const std::string& folder) const {
        const auto path = tree.Path(folder);
        std::filesystem::last_write_time(
            path, std::filesystem::last_write_time(path) + std::chrono::seconds(10));
    }
    // The locations of the snapshot's main entries.
    static List Entries(const MainSearchPathManager& manager) {
        List locations;
        for (const auto& entry : *manager.GetPath()->GetMainEntries())
            locations.push_back(entry->GetAbsoluteIRI());
        return locations;
    }
};

TEST_F(Manager, RefusesNewFoldersThatCannotBeUsedAndChangesNothing) {
    MainSearchPathManager manager({tree.IRI("a")}, Saved());
    const auto snapshot = manager.GetSnapshot();
    vpath_test::FaultSystem faults;
    faults.Fail(vpath_test::FaultSystem::Op::ListFolder, "/c", EACCES);
    Notification messages;
    manager.ApplyPathAfterAdding(
        List{tree.IRI("missing"), tree.IRI("b"), tree.IRI("file.vl"), tree.IRI("c"), tree.IRI("a")},
        messages);
    EXPECT_EQ(IdsOf(messages), (std::vector<std::string>{"VELMORA:searchpath:folderMissing",
                                                         "VELMORA:searchpath:notAFolder",
                                                         "VELMORA:searchpath:folderUnreadable"}));
    EXPECT_EQ(*manager.GetPathFolderIRIs(), List{tree.IRI("a")});
    EXPECT_EQ(manager.GetSnapshot(), snapshot);
    EXPECT_FALSE(std::filesystem::exists(tree.Path("cfg/pathdef")));
}

TEST_F(Manager, KeepsFoldersOnThePathThatHaveGoneAndReusesUnchangedEntries) {
    MainSearchPathManager manager({tree.IRI("a"), tree.IRI("b")}, Saved());
    const auto entryOfA = manager.GetSnapshot()->GetFolderEntries()[0];
    std::filesystem::remove_all(tree.Path("b"));
    Notification messages;
    manager.ApplyPathAfterAdding(List{tree.IRI("c"), tree.IRI("b"), tree.IRI("a")}, messages);
    ASSERT_TRUE(messages.empty());
    {
        // b stays on the path, and saved, with a warning; it has no entry while it is gone.
        EXPECT_EQ(*manager.GetPathFolderIRIs(),
                  (List{tree.IRI("c"), tree.IRI("b"), tree.IRI("a")}));
        EXPECT_EQ(Entries(manager), (List{tree.IRI("c"), tree.IRI("a")}));
        ASSERT_EQ(manager.GetWarnings()->Problems().size(), 1u);
        EXPECT_EQ(manager.GetWarnings()->Problems()[0].kind, ScanProblem::Kind::Missing);
        EXPECT_EQ(PathDefinitionFile(tree.Path("cfg/pathdef").string()).Load(messages).folders,
                  *manager.GetPathFolderIRIs());
    }
    {
        // An unchanged folder keeps its entry object; a changed one gets a new one.
        EXPECT_EQ(manager.GetSnapshot()->GetFolderEntries()[1], entryOfA);
        tree.File("a/new.vl");
        Touch("a");
        manager.ApplyPathAfterRemoving(List{tree.IRI("a"), tree.IRI("b")}, messages);
        EXPECT_NE(manager.GetSnapshot()->GetFolderEntries()[0], entryOfA);
    }
}

TEST_F(Manager, AFailedSaveChangesNothingAndTellsNoOne) {
    MainSearchPathManager manager({tree.IRI("a")}, Saved());
    int told = 0;
    manager.AddPathChangeObserver([&](const PathChange&) { ++told; });
    vpath_test::FaultSystem faults;
    faults.Fail(vpath_test::FaultSystem::Op::WriteAll, ".tmp", ENOSPC);
    Notification messages;
    manager.ApplyPathAfterAdding(List{tree.IRI("b"), tree.IRI("a")}, messages);
    EXPECT_EQ(IdsOf(messages), std::vector<std::string>{"VELMORA:pathdef:cannotSave"});
    EXPECT_EQ(*manager.GetPathFolderIRIs(), List{tree.IRI("a")});
    EXPECT_EQ(told, 0);
}

TEST_F(Manager, TellsObserversOfEachChangeWithThePathBeforeAndAfter) {
    MainSearchPathManager manager({tree.IRI("a")}, {});
    std::vector<std::pair<PathChangeKind, std::size_t>> heard;
    const auto id = manager.AddPathChangeObserver([&](const PathChange& change) {
        EXPECT_EQ(change.after, manager.GetPath());  // already in place
        heard.emplace_back(change.kind, change.before->GetMainEntries()->size());
    });
    Notification messages;
    manager.ApplyPathAfterAdding(List{tree.IRI("a"), tree.IRI("b")}, messages);
    manager.ApplyPathAfterRemoving(List{tree.IRI("b")}, messages);
    manager.Refresh();  // nothing changed on disk: nothing to tell
    tree.File("b/new.vl");
    Touch("b");
    manager.Refresh();
    manager.RemovePathChangeObserver(id);
    manager.ApplyPathAfterAdding(List{tree.IRI("c")}, messages);
    EXPECT_EQ(heard, (std::vector<std::pair<PathChangeKind, std::size_t>>{
                         {PathChangeKind::Added, 1},
                         {PathChangeKind::Removed, 2},
                         {PathChangeKind::Refreshed, 1}}));
}

TEST_F(Manager, RefusesAChangeMadeWhileObserversAreTold) {
    MainSearchPathManager manager({tree.IRI("a")}, {});
    bool refused = false;
    bool libraryReturned = false;
    manager.AddPathChangeObserver([&](const PathChange&) {
        Notification inner;
        try {
            manager.ApplyPathAfterAdding(List{tree.IRI("c")}, inner);
        } catch (const RecursivePathChangeException&) {
            refused = true;
        }
        // Through the library the refusal is silent.
        AddIRIsToVorlanPath(List{tree.IRI("c")}, manager, Position::Front);
        libraryReturned = true;
    });
    // An observer that lets the refusal escape: the others are told all the same, and the library
    // call that made the change returns normally.
    manager.AddPathChangeObserver([&](const PathChange&) {
        Notification inner;
        manager.ApplyPathAfterRemoving(List{}, inner);
    });
    int lastTold = 0;
    manager.AddPathChangeObserver([&](const PathChange&) { ++lastTold; });
    EXPECT_TRUE(AddIRIsToVorlanPath(List{tree.IRI("b")}, manager, Position::End).empty());
    EXPECT_TRUE(refused);
    EXPECT_TRUE(libraryReturned);
    EXPECT_EQ(lastTold, 1);
    EXPECT_EQ(*manager.GetPathFolderIRIs(), (List{tree.IRI("a"), tree.IRI("b")}));
    {
        // Called directly, the manager passes the observer's exception on after the change.
        Notification messages;
        EXPECT_THROW(manager.ApplyPathAfterAdding(List{tree.IRI("c")}, messages),
                     RecursivePathChangeException);
        EXPECT_EQ(*manager.GetPathFolderIRIs(), List{tree.IRI("c")});
        EXPECT_EQ(lastTold, 2);
    }
}

TEST_F(Manager, ReportsThePackagesWhoseFoldersAreAllOnThePath) {
    using namespace Velmora::PackageRegistry;
    using Velmora::VorlanComponents::ComponentIdentifier;
    const auto package = [&](std::uint8_t n, std::vector<PackageFolder> folders) {
        Package::Parts parts;
        parts.identifier = ComponentIdentifier({}, {n, 0, 0});
        parts.folders = std::move(folders);
        return std::make_shared<const Package>(std::move(parts));
    };
    auto options = Saved();
    options.packages =
        std::make_shared<const PackageRegistry>(std::vector<std::shared_ptr<const IPackage>>{
            package(1, {{tree.IRI("a"), {0}}, {tree.IRI("b"), {3}}}),
            package(2, {{tree.IRI("a"), {0}}, {tree.IRI("c"), {0, 1}}}),
            package(3, {{tree.IRI("a"), {2}}}),
        });
    MainSearchPathManager manager({tree.IRI("a")}, options);
    const auto versions = [&] {
        std::vector<std::uint32_t> found;
        for (const auto& id : *manager.GetPackagesOnPath())
            found.push_back(id.GetVersion().major);
        return found;
    };
    EXPECT_EQ(versions(), std::vector<std::uint32_t>{1});
    EXPECT_TRUE(PackageIsOnPath(ComponentIdentifier({}, {1, 0, 0}), manager));
    Notification messages;
    manager.ApplyPathAfterAdding(List{tree.IRI("c"), tree.IRI("a")}, messages);
    EXPECT_EQ(versions(), (std::vector<std::uint32_t>{1, 2}));
}

}  // namespace
