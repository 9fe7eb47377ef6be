// Adding folders to and removing folders from the main search path, against a manager that records
// what it is handed.

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_messages.hpp>

#include "host/message_ids.hpp"
#include "path_editing/editing_fakes.hpp"
#include "support/temp_tree.hpp"

namespace {

using vpath_test::IdsOf;

using namespace Velmora::PathManagement;
using foundation::core::except::Notification;
using vpath_test::AbsoluteIRI;
using vpath_test::FakeCurrentFolder;
using vpath_test::RecordingManager;

const AbsoluteIRI A(u"file:///a"), B(u"file:///b"), C(u"file:///c"), D(u"file:///d"),
    E(u"file:///e"), X(u"file:///x"), Y(u"file:///y");

using List = std::vector<AbsoluteIRI>;

List Path(const RecordingManager& manager) {
    return *manager.GetPathFolderIRIs();
}

TEST(AddIRIsToVorlanPath, AddsOneBlockOfNewFoldersAtTheChosenEnd) {
    struct Case {
        const char* what;
        List path;
        List added;
        Position position;
        List result;
    };
    const Case cases[] = {
        {"a folder on the path moves to the front",
         {A, B, C, D, E},
         {C},
         Position::Front,
         {C, A, B, D, E}},
        {"or to the end", {A, B, C, D, E}, {C}, Position::End, {A, B, D, E, C}},
        {"every position but 0 is the end", {A, B, C}, {A}, static_cast<Position>(7), {B, C, A}},
        {"repeated folders count once, in input order", {}, {A, B, A}, Position::Front, {A, B}},
        {"new and moved folders form one block",
         {A, B, C},
         {X, C, Y, X},
         Position::Front,
         {X, C, Y, A, B}},
        {"at the end too", {A, B, C}, {X, A, Y}, Position::End, {B, C, X, A, Y}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        RecordingManager manager(c.path);
        EXPECT_TRUE(AddIRIsToVorlanPath(c.added, manager, c.position).empty());
        ASSERT_EQ(manager.added.size(), 1u);
        EXPECT_EQ(manager.added[0], c.result);
        EXPECT_TRUE(manager.removed.empty());
    }
}

TEST(AddIRIsToVorlanPath, AlwaysHandsTheManagerTheWholeList) {
    // Even an empty addition hands over the unchanged path.
    RecordingManager manager({A, B});
    EXPECT_TRUE(AddIRIsToVorlanPath(List{}, manager, Position::Front).empty());
    EXPECT_EQ(manager.added, std::vector<List>{(List{A, B})});
}

TEST(PathEditing, ReturnsWhatTheManagerReportsAndSwallowsOnlyRecursiveChanges) {
    {
        // The manager's messages are the result.
        RecordingManager manager({A});
        manager.onApply = [](Notification& n) { n.Add(VORLAN::rmpath::DirNotFound(u"/m")); };
        EXPECT_EQ(IdsOf(AddIRIsToVorlanPath(List{B}, manager, Position::Front)),
                  std::vector<std::string>{"VORLAN:rmpath:DirNotFound"});
        EXPECT_EQ(Path(manager), List{A});
    }
    {
        // A recursive change ends the call normally, with what the manager had reported.
        RecordingManager manager({A, B});
        manager.onApply = [](Notification& n) {
            n.Add(VORLAN::rmpath::DirNotFound(u"/m"));
            throw RecursivePathChangeException();
        };
        EXPECT_EQ(AddIRIsToVorlanPath(List{C}, manager, Position::End).size(), 1u);
        EXPECT_EQ(RemoveIRIsFromVorlanPath(List{A}, manager).size(), 1u);
        EXPECT_EQ(Path(manager), (List{A, B}));
    }
    {
        // Every other failure reaches the caller.
        RecordingManager manager({A, B});
        manager.onApply = [](Notification&) { throw std::runtime_error("disk on fire"); };
        EXPECT_THROW(AddIRIsToVorlanPath(List{C}, manager, Position::End), std::runtime_error);
        EXPECT_THROW(RemoveIRIsFromVorlanPath(List{A}, manager), std::runtime_error);
    }
}

TEST(RemoveIRIsFromVorlanPath, RemovesNothingUnlessEveryFolderIsOnThePath) {
    {
        // One folder that is not on the path blocks the others.
        RecordingManager manager({A, B, C, D});
        const auto messages =
            RemoveIRIsFromVorlanPath(List{B, AbsoluteIRI(u"file:///my%20z"), D}, manager);
        ASSERT_EQ(IdsOf(messages), std::vector<std::string>{"VORLAN:rmpath:DirNotFound"});
        // It is named by its display text.
        EXPECT_EQ(messages.GetMessages()[0]->GetArguments(),
                  std::vector<resource_core::MessageArgument>{ustring(u"/my z")});
        EXPECT_TRUE(manager.removed.empty());
    }
    {
        // Each missing folder has its message, in input order; other schemes are shown decoded.
        RecordingManager manager({A});
        const auto messages =
            RemoveIRIsFromVorlanPath(List{AbsoluteIRI(u"http://h/x%20y"), X, A}, manager);
        ASSERT_EQ(messages.size(), 2u);
        EXPECT_EQ(std::get<ustring>(messages.GetMessages()[0]->GetArguments()[0]), u"http://h/x y");
        EXPECT_EQ(std::get<ustring>(messages.GetMessages()[1]->GetArguments()[0]), u"/x");
    }
    {
        // Found folders go, repeated or not; the others keep their order.
        RecordingManager manager({A, B, C, D, E});
        EXPECT_TRUE(RemoveIRIsFromVorlanPath(List{D, B, D}, manager).empty());
        EXPECT_EQ(manager.removed, std::vector<List>{(List{A, C, E})});
        EXPECT_TRUE(manager.added.empty());
    }
}

using RemoveOnDisk = vpath_test::TempTreeTest;

TEST_F(RemoveOnDisk, FindsAFolderThroughAnotherNameOfIt) {
    tree.Folder("real");
    tree.Folder("other");
    tree.Link("link", "real");
    RecordingManager manager({tree.IRI("other"), tree.IRI("real")});
    {
        // A name of the folder that is not on the path: nothing is there by that name.
        EXPECT_EQ(RemoveIRIsFromVorlanPath(List{tree.IRI("missing")}, manager).size(), 1u);
    }
    {
        // The link's canonical form is on the path.
        EXPECT_TRUE(RemoveIRIsFromVorlanPath(List{tree.IRI("link")}, manager).empty());
        EXPECT_EQ(Path(manager), List{tree.IRI("other")});
    }
}

TEST(EditingFolderTexts, ABadTextBlocksTheWholeChangeBeforeTheManagerIsAsked) {
    FakeCurrentFolder cwf;
    cwf.FailWithCode(u"locked", 3);
    const std::vector<ustring> texts = {u"a", u"locked", u"b"};
    {
        // Adding: only the conversion's message, and the manager is never asked.
        RecordingManager manager({A});
        EXPECT_EQ(IdsOf(AddFoldersToVorlanPath(texts, cwf, manager, Position::Front)),
                  std::vector<std::string>{"VORLAN:vpath:directoryPermissionDenied"});
        EXPECT_TRUE(manager.added.empty());
    }
    {
        // Removing.
        RecordingManager manager({AbsoluteIRI(u"file:///cwd/a")});
        EXPECT_EQ(IdsOf(RemoveFoldersFromVorlanPath(texts, cwf, manager)),
                  std::vector<std::string>{"VORLAN:vpath:directoryPermissionDenied"});
        EXPECT_TRUE(manager.removed.empty());
    }
    {
        // Good texts go through to the manager as locations.
        RecordingManager manager({A, AbsoluteIRI(u"file:///cwd/b")});
        const std::vector<ustring> good = {u"b", u"c"};
        EXPECT_TRUE(AddFoldersToVorlanPath(good, cwf, manager, Position::End).empty());
        EXPECT_EQ(Path(manager),
                  (List{A, AbsoluteIRI(u"file:///cwd/b"), AbsoluteIRI(u"file:///cwd/c")}));
        EXPECT_TRUE(RemoveFoldersFromVorlanPath(good, cwf, manager).empty());
        EXPECT_EQ(Path(manager), List{A});
    }
}

}  // namespace
