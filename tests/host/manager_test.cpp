// The main search path manager on real folders: what a change checks, keeps, saves and tells, and
// what its observers hear, and the cached start it takes from one option. (What readers on other
// threads see is the path state stress test's.)

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>

#include "host/message_ids.hpp"
#include "searchpath/path_fixture.hpp"
#include "support/fault_system.hpp"
#include "support/scoped_env.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using namespace Velmora::PathManagement;
using namespace Velmora::SearchPath;
using vpath_test::FaultSystem;
using vpath_test::IdsOf;
using List = std::vector<AbsoluteIRI>;
using vpath_test::Ids;

class Manager : public vpath_test::TempTreeTest {
  protected:
    // Scans run on the calling thread alone: these tests are about the manager, not the scans,
    // and libtbb's own synchronisation, not built for ThreadSanitizer, would only add noise.
    const tbb::global_control m_oneThread{tbb::global_control::max_allowed_parallelism, 1};

    void SetUp() override {
        for (const char* file : {"a/fa.vl", "b/fb.vl", "c/fc.vl", "file.vl"})
            tree.File(file);
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
    List I(std::initializer_list<const char*> folders) const {
        List list;
        for (const char* folder : folders)
            list.push_back(tree.IRI(folder));
        return list;
    }
};

TEST_F(Manager, ChangesByOthersSinceThePathWasReadAreKept) {
    // Two managers stand for two processes that read the saved path before either changed it.
    {
        MainSearchPathManager first({}, Saved());
        Notification messages;
        first.ApplyPathAfterAdding(I({"a", "b"}), messages);
        ASSERT_TRUE(messages.empty());
    }
    Notification messages;
    auto one = MainSearchPathManager::Open(Saved(), messages);
    auto two = MainSearchPathManager::Open(Saved(), messages);
    const auto saved = [&] {
        return MainSearchPathManager::Open(Saved(), messages)->GetPathFolderIRIs();
    };
    EXPECT_TRUE(AddIRIsToVorlanPath(I({"c"}), *one, Position::Front).empty());
    EXPECT_EQ(*saved(), I({"c", "a", "b"}));
    // Two still sees a, b: its removal is made on what is saved, and it then sees c too.
    EXPECT_TRUE(RemoveIRIsFromVorlanPath(I({"a"}), *two).empty());
    EXPECT_EQ(*saved(), I({"c", "b"}));
    EXPECT_EQ(*two->GetPathFolderIRIs(), I({"c", "b"}));
    // One moves b to the end and puts a back there after it, though it never saw a go.
    EXPECT_TRUE(AddIRIsToVorlanPath(I({"b", "a"}), *one, Position::End).empty());
    EXPECT_EQ(*saved(), I({"c", "b", "a"}));
    EXPECT_TRUE(messages.empty());
}

// A new path that names a folder twice holds it once, in its first place, wherever the other
// name stands: among the folders that kept their places or among those that changed.
TEST_F(Manager, ANewPathHoldsEachFolderOnceInItsFirstPlace) {
    tree.File("d/fd.vl");
    const AbsoluteIRI a = tree.IRI("a"), b = tree.IRI("b"), c = tree.IRI("c"), d = tree.IRI("d");
    // The same folder as another object, as a caller that reads it again would give it.
    const auto again = [](const AbsoluteIRI& folder) { return AbsoluteIRI(folder.toString()); };
    const std::pair<List, List> cases[] = {
        {{a, b, c, again(a)}, {a, b, c}},       {{again(c), a, b, c}, {c, a, b}},
        {{a, d, again(d), b, c}, {a, d, b, c}}, {{a, again(b), d, c}, {a, b, d, c}},
        {{a, d, b, c, d}, {a, d, b, c}},
    };
    for (const auto& [given, held] : cases) {
        // Lent as a range, or given up as a list the manager keeps.
        for (const bool givenUp : {false, true}) {
            MainSearchPathManager manager(I({"a", "b", "c"}), {});
            IMainSearchPathManager& asInterface = manager;
            Notification messages;
            if (givenUp)
                asInterface.ApplyPathAfterAdding(List(given), messages);
            else
                asInterface.ApplyPathAfterAdding(given, messages);
            EXPECT_TRUE(messages.empty());
            EXPECT_EQ(*manager.GetPathFolderIRIs(), held);
            EXPECT_EQ(manager.GetSnapshot()->GetFolderEntries().size(), held.size());
        }
    }
}

// A folder added under another name (a symbolic link) moves it: its old name leaves the path,
// whether the folder came by a change or was read again after it was replaced on disk.
TEST_F(Manager, AFolderAddedUnderAnotherNameLeavesItsOldName) {
    namespace fs = std::filesystem;
    MainSearchPathManager manager(I({"a", "b"}), {});
    Notification messages;
    // c comes by a change; b is replaced by another folder of its name and read again.
    manager.ApplyPathAfterAdding(I({"c", "a", "b"}), messages);
    fs::rename(tree.Path("b"), tree.Path("b-before"));
    tree.File("b/fb2.vl");
    ASSERT_TRUE(manager.RefreshFolders({tree.IRI("b")}));
    fs::create_directory_symlink(tree.Path("c"), tree.Path("to-c"));
    fs::create_directory_symlink(tree.Path("b"), tree.Path("to-b"));
    manager.ApplyPathAfterAdding(I({"to-c", "c", "a", "b"}), messages);
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"to-c", "a", "b"}));
    manager.ApplyPathAfterAdding(I({"to-b", "to-c", "a", "b"}), messages);
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"to-b", "to-c", "a"}));
    EXPECT_TRUE(messages.empty());
}

TEST_F(Manager, ChangesNothingWhenAFolderCannotBeUsedOrThePathCannotBeSaved) {
    MainSearchPathManager manager(I({"a"}), Saved());
    const auto snapshot = manager.GetSnapshot();
    int told = 0;
    manager.AddPathChangeObserver([&](const PathChange&) { ++told; });
    {
        // Every new folder that cannot be used is reported, in order.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::ListFolder, "/c", EACCES);
        Notification messages;
        manager.ApplyPathAfterAdding(I({"missing", "b", "file.vl", "c", "a"}), messages);
        EXPECT_EQ(IdsOf(messages),
                  (Ids{"VELMORA:searchpath:folderMissing", "VELMORA:searchpath:notAFolder",
                       "VELMORA:searchpath:folderUnreadable"}));
        EXPECT_FALSE(std::filesystem::exists(tree.Path("cfg/pathdef")));
    }
    {
        // A save that fails.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::WriteAll, ".tmp", ENOSPC);
        Notification messages;
        manager.ApplyPathAfterAdding(I({"b", "a"}), messages);
        EXPECT_EQ(IdsOf(messages), Ids{"VELMORA:pathdef:cannotSave"});
    }
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"a"}));
    EXPECT_EQ(manager.GetSnapshot(), snapshot);
    EXPECT_EQ(told, 0);
}

TEST_F(Manager, KeepsFoldersOnThePathThatHaveGoneAndReusesUnchangedEntries) {
    std::filesystem::remove_all(tree.Path("b"));
    MainSearchPathManager manager(I({"a", "b"}), Saved());
    const auto entryOfA = manager.GetSnapshot()->GetFolderEntries()[0];
    Notification messages;
    manager.ApplyPathAfterAdding(I({"c", "b", "a"}), messages);
    ASSERT_TRUE(messages.empty());
    // b stays on the path, and saved, with a warning; it has no entry while it is gone.
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"c", "b", "a"}));
    List entries;
    for (const auto& entry : *manager.GetPath()->GetMainEntries())
        entries.push_back(entry->GetAbsoluteIRI());
    EXPECT_EQ(entries, I({"c", "a"}));
    ASSERT_EQ(manager.GetWarnings()->Problems().size(), 1u);
    EXPECT_EQ(manager.GetWarnings()->Problems()[0].kind, ScanProblem::Kind::Missing);
    EXPECT_EQ(PathDefinitionFile(tree.Path("cfg/pathdef").string()).Load(messages).folders,
              I({"c", "b", "a"}));
    // A change keeps the entries of the folders that stay; a refresh gives a changed folder a
    // new one.
    tree.File("a/new.vl");
    Touch("a");
    manager.ApplyPathAfterRemoving(I({"a", "b"}), messages);
    EXPECT_EQ(manager.GetSnapshot()->GetFolderEntries()[0], entryOfA);
    manager.Refresh();
    EXPECT_NE(manager.GetSnapshot()->GetFolderEntries()[0], entryOfA);
}

// A change makes its path from the one before it, without reading the folders that stay: each
// path it makes holds what a scan of its folders holds, a special subfolder put on the path beside
// its folder included.
TEST_F(Manager, EachChangeHoldsWhatAScanOfItsFoldersHolds) {
    tree.File("a/+pkg/fp.vl");
    tree.File("a/private/fq.vl");
    MainSearchPathManager manager(I({"a", "b"}), Saved());
    const std::vector<List> paths = {
        I({"c", "a", "b"}), I({"c", "a", "b", "a/+pkg"}), I({"b", "a"}), I({"b", "a", "a/private"}),
        I({"a"}),
    };
    for (const auto& folders : paths) {
        SCOPED_TRACE(::testing::PrintToString(folders.size()));
        Notification messages;
        if (folders.size() > manager.GetPathFolderIRIs()->size())
            manager.ApplyPathAfterAdding(folders, messages);
        else
            manager.ApplyPathAfterRemoving(folders, messages);
        ASSERT_TRUE(messages.empty());
        ScanReport report;
        EXPECT_EQ(vpath_test::Answers(*manager.GetSnapshot()),
                  vpath_test::Answers(*MainSearchPath::Scan(folders, report)));
    }
}

TEST_F(Manager, TellsObserversOfEachChangeWithThePathBeforeAndAfter) {
    MainSearchPathManager manager(I({"a"}), {});
    std::vector<std::pair<PathChangeKind, std::size_t>> heard;
    const auto id = manager.AddPathChangeObserver([&](const PathChange& change) {
        EXPECT_EQ(change.after, manager.GetPath());  // already in place
        heard.emplace_back(change.kind, change.before->GetMainEntries()->size());
    });
    Notification messages;
    manager.ApplyPathAfterAdding(I({"a", "b"}), messages);
    manager.ApplyPathAfterRemoving(I({"b"}), messages);
    manager.Refresh();  // nothing changed on disk: nothing to tell
    tree.File("b/new.vl");
    Touch("b");
    manager.Refresh();
    manager.RemovePathChangeObserver(id);
    manager.ApplyPathAfterAdding(I({"c"}), messages);
    EXPECT_EQ(heard, (std::vector<std::pair<PathChangeKind, std::size_t>>{
                         {PathChangeKind::Added, 1},
                         {PathChangeKind::Removed, 2},
                         {PathChangeKind::Refreshed, 1}}));
}

TEST_F(Manager, RefusesAChangeMadeWhileObserversAreTold) {
    MainSearchPathManager manager(I({"a"}), {});
    bool refused = false;
    manager.AddPathChangeObserver([&](const PathChange&) {
        Notification inner;
        try {
            manager.ApplyPathAfterAdding(I({"c"}), inner);
        } catch (const RecursivePathChangeException&) {
            refused = true;
        }
    });
    // An observer that lets the refusal escape: the others are told all the same, and the library
    // call that made the change returns normally.
    manager.AddPathChangeObserver([&](const PathChange&) {
        Notification inner;
        manager.ApplyPathAfterRemoving(List{}, inner);
    });
    int lastTold = 0;
    manager.AddPathChangeObserver([&](const PathChange&) { ++lastTold; });
    EXPECT_TRUE(AddIRIsToVorlanPath(I({"b"}), manager, Position::End).empty());
    EXPECT_TRUE(refused);
    EXPECT_EQ(lastTold, 1);
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"a", "b"}));
    // Called directly, the manager passes the observer's exception on after the change.
    Notification messages;
    EXPECT_THROW(manager.ApplyPathAfterAdding(I({"c"}), messages), RecursivePathChangeException);
    EXPECT_EQ(*manager.GetPathFolderIRIs(), I({"c"}));
    EXPECT_EQ(lastTold, 2);
}

TEST_F(Manager, ReportsThePackagesWhoseFoldersAreAllOnThePath) {
    using namespace Velmora::PackageRegistry;
    using Velmora::VorlanComponents::ComponentIdentifier;
    const auto package = [&](std::uint8_t n, std::vector<PackageFolder> folders) {
        return std::make_shared<const Package>(Package::Parts{
            ComponentIdentifier({}, {n, 0, 0}), true, false, std::move(folders), {}, {}});
    };
    auto options = Saved();
    options.packages =
        std::make_shared<const PackageRegistry>(std::vector<std::shared_ptr<const IPackage>>{
            package(1, {{tree.IRI("a"), {0}}, {tree.IRI("b"), {3}}}),
            package(2, {{tree.IRI("a"), {0}}, {tree.IRI("c"), {0, 1}}}),
            package(3, {{tree.IRI("a"), {2}}}),
        });
    MainSearchPathManager manager(I({"a"}), options);
    const auto versions = [&] {
        std::vector<std::uint32_t> found;
        for (const auto& id : *manager.GetPackagesOnPath())
            found.push_back(id.GetVersion().major);
        return found;
    };
    EXPECT_EQ(versions(), std::vector<std::uint32_t>{1});
    Notification messages;
    manager.ApplyPathAfterAdding(I({"c", "a"}), messages);
    EXPECT_EQ(versions(), (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(Manager, AHandEditThatLandsWhileAChangeIsUnderWayIsKept) {
    // An editor writes the file anew and renames it into place, taking no lock, at each moment of
    // a change between its reading of the file and its save.
    const struct {
        const char* moment;
        FaultSystem::Op op;
        const char* suffix;
    } cases[] = {
        {"while the added folder is read", FaultSystem::Op::ListFolder, "/c"},
        {"after the save read the file, before its rename", FaultSystem::Op::CreateFileExclusive,
         ".tmp"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.moment);
        auto options = Saved();
        options.pathDefinition->KeepLastReading();
        {
            Notification messages;
            MainSearchPathManager({}, Saved()).ApplyPathAfterAdding(I({"a"}), messages);
        }
        Notification messages;
        auto manager = MainSearchPathManager::Open(std::move(options), messages);
        const auto file = tree.Path("cfg/pathdef");
        const auto line = [&](const char* folder) { return tree.Path(folder).string() + "\n"; };
        const std::string edited = "# mine\n" + line("a") + line("b");
        FaultSystem faults;
        faults.Before(c.op, c.suffix, [&] {
            std::ofstream(tree.Path("cfg/pathdef~")) << edited;
            std::filesystem::rename(tree.Path("cfg/pathdef~"), file);
        });
        manager->ApplyPathAfterAdding(I({"c", "a"}), messages);
        EXPECT_TRUE(messages.empty());
        EXPECT_EQ(*manager->GetPathFolderIRIs(), I({"c", "a", "b"}));
        std::ostringstream saved;
        saved << std::ifstream(file).rdbuf();
        EXPECT_EQ(saved.str(), "# mine\n" + line("c") + line("a") + line("b"));
        std::filesystem::remove(file);
    }
}

// The cached start a manager takes from one option: the cache read at the start, written after a
// start or a change worth it, in the background for a program that runs on.
class CachedStart : public Manager {
  protected:
    // A manager of `folders` on the cache at `slot`; `known` hears how many entries it read.
    std::unique_ptr<MainSearchPathManager> Start(const List& folders, bool inBackground,
                                                 std::size_t* known) {
        MainSearchPathManager::Options options;
        options.pathCache = {
            .at = slot,
            .inBackground = inBackground,
            .warn = {},
            .loaded = [known](const FolderEntryList& loaded) { *known = loaded.size(); }};
        return std::make_unique<MainSearchPathManager>(folders, std::move(options));
    }
    // The folders the cache holds for `folders`.
    std::size_t Cached(const List& folders) const {
        return LoadCachedEntries(slot, folders).size();
    }

    const PathCacheSlot slot{tree.IRI("cache/path.cache"), tree.IRI("cache/path.cache")};
};

TEST_F(CachedStart, AStartReadsWhatTheLastOneWroteAndAChangeIsWritten) {
    for (const bool inBackground : {false, true}) {
        SCOPED_TRACE(inBackground ? "in the background" : "at once");
        std::filesystem::remove_all(tree.Path("cache"));
        std::size_t known = 99;
        Start(I({"a", "b"}), inBackground, &known);
        EXPECT_EQ(known, 0u);  // no cache yet: the start wrote one
        EXPECT_EQ(Cached(I({"a", "b"})), 2u);
        auto manager = Start(I({"a", "b"}), inBackground, &known);
        EXPECT_EQ(known, 2u);
        Notification messages;
        manager->ApplyPathAfterAdding(I({"c", "a", "b"}), messages);
        ASSERT_TRUE(messages.empty());
        manager.reset();  // a background write is finished before the manager goes
        EXPECT_EQ(Cached(I({"c", "a", "b"})), 3u);
    }
}

TEST_F(CachedStart, TheDefaultOneIsThePathDefinitionFilesUnderTheCacheHome) {
    const vpath_test::ScopedEnv cacheHome("XDG_CACHE_HOME", tree.Path("xdg").string());
    const std::string pathdef = tree.File("pathdef", tree.Path("a").native() + "\n").native();
    MainSearchPathManager::Options options;
    options.pathDefinition.emplace(pathdef);
    options.pathCache.emplace();
    Notification problems;
    ASSERT_TRUE(MainSearchPathManager::Open(std::move(options), problems));
    const auto defaultSlot = PathCacheForPathDefinition(pathdef);
    ASSERT_TRUE(defaultSlot);
    EXPECT_EQ(LoadCachedEntries(*defaultSlot, {tree.IRI("a")}).size(), 1u);
    EXPECT_TRUE(std::filesystem::is_directory(tree.Path("xdg/vpath")));
    // Read whole, it is read while the path definition file is, and started from all the same.
    auto whole = *defaultSlot;
    whole.inMemory = true;
    std::size_t known = 0;
    MainSearchPathManager::Options again;
    again.pathDefinition.emplace(pathdef);
    again.pathCache = {
        .at = whole,
        .inBackground = false,
        .warn = {},
        .loaded = [&known](const FolderEntryList& loaded) { known = loaded.size(); }};
    ASSERT_TRUE(MainSearchPathManager::Open(std::move(again), problems));
    EXPECT_EQ(known, 1u);
}

}  // namespace
