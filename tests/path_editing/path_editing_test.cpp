// Folder texts and what they become, and the editing of the path done with them.

#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/core/except/message_exception.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

#include "host/current_folder_guard.hpp"
#include "host/message_ids.hpp"
#include "path_editing/editing_fakes.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PathManagement;
using foundation::core::except::IMsgIDException;
using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::current_working_folder::FailedToAbsolutizeException;
using Velmora::text::ToNative;
using Velmora::VorlanComponents::ComponentIdentifier;
using vpath_test::FakeCurrentFolder;
using vpath_test::Ids;
using vpath_test::IdsOf;
using vpath_test::RecordingManager;
using List = std::vector<AbsoluteIRI>;

// Folder texts and IRIs: what a typed folder becomes, canonical forms, the root of a path, and the
// messages for the folder texts of a command. What is shown for a location is checked with the
// messages of removing folders.

TEST(GetIRIFromString, PathsGetTheFileSchemeAndIRIsAreOnlyNormalised) {
    const std::pair<ustring, ustring> cases[] = {
        {u"/", u"file:///"},
        {u"/my dir//50%/", u"file:///my%20dir/50%25"},
        // Dot segments are not resolved; runs of separators are.
        {u"/a/./b/../c", u"file:///a/./b/../c"},
        // A text that does not start like an IRI is a path, whatever it holds.
        {u"/http://host/x", u"file:///http:/host/x"},
        // IRIs are normalised but neither decoded nor made native.
        {u"FILE://localhost/srv//tb", u"file:///srv/tb"},
        {u"file:///srv/my%20tb", u"file:///srv/my%20tb"},
        {u"http://host/a/../b", u"http://host/a/../b"},
    };
    for (const auto& [text, iri] : cases)
        EXPECT_EQ(GetIRIFromString(text).toString(), iri) << ToNative(text);
    // Texts that are neither absolute paths nor IRIs.
    for (const ustring text : {u"", u"tb", u"./tb", u"c:/x", u"file:///a?query"})
        EXPECT_THROW(GetIRIFromString(text), foundation::storage::vfs::InvalidIRIException)
            << ToNative(text);
}

TEST(RemoveRootPathFromAbsolutePath, RemovesTheRootOfAnAbsolutePathOnly) {
    const std::pair<ustring, ustring> cases[] = {
        {u"/home/ada/tb", u"home/ada/tb"},
        {u"/", u""},
        {u"/ /x", u" /x"},
        {u"tb/x", u"tb/x"},
        {u"", u""},
    };
    for (const auto& [path, rest] : cases)
        EXPECT_EQ(RemoveRootPathFromAbsolutePath(fl::filesystem::path(path)), rest)
            << ToNative(path);
}

// The argument of the cannotAbsolutizePath error that `call` raises; fails the test if it raises
// nothing or something else.
template <class Call>
ustring CannotAbsolutizeArgument(Call call) {
    try {
        call();
    } catch (const IMsgIDException& e) {
        EXPECT_EQ(e.GetMessageID(), "VORLAN:vpath:cannotAbsolutizePath");
        const auto& arguments = e.GetMessageRecord().GetArguments();
        EXPECT_EQ(arguments.size(), 1u);
        return std::get<ustring>(arguments.at(0));
    }
    ADD_FAILURE() << "no user error was raised";
    return {};
}

using CanonicalizeAgainstCurrentFolder = vpath_test::TempTreeTest;

TEST_F(CanonicalizeAgainstCurrentFolder, GivesTheRealFolderOrRaisesTheUserError) {
    tree.Folder("real/tb");
    tree.Link("link", "real");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    const Velmora::current_working_folder::CurrentWorkingFolder cwf;
    // Relative to the current folder, links and dot segments resolved.
    EXPECT_EQ(CanonicalizeRelativePathAgainstCWD(u"link/tb", cwf), tree.IRI("real/tb"));
    EXPECT_EQ(GetCanonicalIRIFromString(Velmora::text::FromNative(tree.Path("link").string()) +
                                        u"/./tb/"),
              tree.IRI("real/tb"));
    // The service refuses, or accepts a folder that cannot be resolved, or throws something
    // else: the same user error, naming the text exactly as given.
    vpath_test::FaultSystem faults;
    faults.Fail(vpath_test::FaultSystem::Op::RealPath, "/link/tb", EACCES);
    FakeCurrentFolder odd;
    odd.FailWith(u"odd", [] { throw std::logic_error("odd"); });
    EXPECT_EQ(CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"x/", cwf); }),
              u"x/");
    EXPECT_EQ(
        CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"link/tb", cwf); }),
        u"link/tb");
    EXPECT_EQ(CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"odd", odd); }),
              u"odd");
}

TEST(ConvertUstringRangeToAbsoluteIRIs, ReportsEachFolderTheUserMustFixAndConvertsTheRest) {
    const std::pair<int, std::string> cases[] = {
        {0, "VORLAN:vpath:invalidLocation"},
        {3, "VORLAN:vpath:directoryPermissionDenied"},
        {4, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {5, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {6, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {7, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {9, "VORLAN:vpath:directoryNameTooLong"},
    };
    const AbsoluteIRI one(u"file:///cwd/one"), two(u"file:///cwd/two");
    for (const auto& [code, id] : cases) {
        SCOPED_TRACE(code);
        FakeCurrentFolder cwf;
        cwf.FailWithCode(u" bad/", code);
        // Each bad folder reported, duplicates kept, after messages already in the notification.
        Notification notification;
        notification.Add(VORLAN::rmpath::DirNotFound(u"/before"));
        const std::vector<ustring> folders = {u"one", u" bad/", u"two", u"one", u" bad/"};
        EXPECT_EQ(ConvertUstringRangeToAbsoluteIRIs(folders, cwf, notification),
                  (std::vector{one, two, one}));
        ASSERT_EQ(IdsOf(notification), (Ids{"VORLAN:rmpath:DirNotFound", id, id}));
        // The message names the folder exactly as the caller wrote it.
        EXPECT_EQ(notification.GetMessages()[1]->GetArguments(),
                  std::vector<resource_core::MessageArgument>{ustring(u" bad/")});
    }
}

// A failure of the service of a type of its own, to tell the thrown object from a copy.
class DistinctFailure : public FailedToAbsolutizeException {
  public:
    using FailedToAbsolutizeException::FailedToAbsolutizeException;
};

TEST(ConvertUstringRangeToAbsoluteIRIs, FailuresOfTheSystemReachTheCallerAsThrown) {
    for (const int code : {1, 2, 8, 10, -1}) {
        SCOPED_TRACE(code);
        FakeCurrentFolder cwf;
        cwf.FailWithCode(u"missing", 4);
        cwf.FailWith(u"broken", [code] { throw DistinctFailure(u"broken", code, EIO); });
        Notification notification;
        const std::vector<ustring> folders = {u"missing", u"broken", u"after"};
        try {
            ConvertUstringRangeToAbsoluteIRIs(folders, cwf, notification);
            ADD_FAILURE() << "nothing thrown";
        } catch (const DistinctFailure& e) {
            EXPECT_EQ(e.GetErrorCode(), code);
        }
        // Messages of the folders before stay; the folders after are not looked at.
        EXPECT_EQ(IdsOf(notification), Ids{"VORLAN:vpath:nameNonexistentOrNotADirectory"});
        EXPECT_EQ(cwf.Calls(), 2);
    }
    // Exceptions of other kinds pass unchanged too.
    FakeCurrentFolder cwf;
    cwf.FailWith(u"odd", [] { throw std::length_error("odd"); });
    Notification notification;
    EXPECT_THROW(ConvertUstringRangeToAbsoluteIRIs(std::vector<ustring>{u"odd"}, cwf, notification),
                 std::length_error);
}

// Adding folders to and removing folders from the main search path, against a manager that records
// what it is handed; which packages are on the path and which folders packages put on it.

// Folders named by letters: L("AB") => {file:///a, file:///b}.
List L(std::string_view letters) {
    List list;
    for (const char c : letters)
        list.emplace_back(u"file:///" + ustring(1, static_cast<char16_t>(std::tolower(c))));
    return list;
}

List Path(const RecordingManager& manager) {
    return *manager.GetPathFolderIRIs();
}

TEST(AddIRIsToVorlanPath, HandsTheManagerThePathWithOneBlockOfNewFoldersAtTheChosenEnd) {
    struct Case {
        const char *what, *path, *added;
        Position position;
        const char* result;
    };
    const Case cases[] = {
        {"a folder on the path moves to the front", "ABCDE", "C", Position::Front, "CABDE"},
        {"or to the end", "ABCDE", "C", Position::End, "ABDEC"},
        {"every position but 0 is the end", "ABC", "A", static_cast<Position>(7), "BCA"},
        {"repeated folders count once, in input order", "", "ABA", Position::Front, "AB"},
        {"new and moved folders form one block", "ABC", "XCYX", Position::Front, "XCYAB"},
        {"at the end too", "ABC", "XAY", Position::End, "BCXAY"},
        {"an empty addition hands over the path unchanged", "AB", "", Position::Front, "AB"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        RecordingManager manager(L(c.path));
        EXPECT_TRUE(AddIRIsToVorlanPath(L(c.added), manager, c.position).empty());
        EXPECT_EQ(manager.added, std::vector<List>{L(c.result)});
        EXPECT_TRUE(manager.removed.empty());
    }
}

TEST(PathEditing, ReturnsWhatTheManagerReportsAndSwallowsOnlyRecursiveChanges) {
    // The manager's messages are the result.
    RecordingManager reporting(L("A"));
    reporting.onApply = [](Notification& n) { n.Add(VORLAN::rmpath::DirNotFound(u"/m")); };
    EXPECT_EQ(IdsOf(AddIRIsToVorlanPath(L("B"), reporting, Position::Front)),
              Ids{"VORLAN:rmpath:DirNotFound"});
    EXPECT_EQ(Path(reporting), L("A"));
    // A recursive change ends the call normally, with what the manager had reported.
    RecordingManager recursive(L("AB"));
    recursive.onApply = [](Notification& n) {
        n.Add(VORLAN::rmpath::DirNotFound(u"/m"));
        throw RecursivePathChangeException();
    };
    EXPECT_EQ(AddIRIsToVorlanPath(L("C"), recursive, Position::End).size(), 1u);
    EXPECT_EQ(RemoveIRIsFromVorlanPath(L("A"), recursive).size(), 1u);
    EXPECT_EQ(Path(recursive), L("AB"));
    // Every other failure reaches the caller.
    RecordingManager failing(L("AB"));
    failing.onApply = [](Notification&) { throw std::runtime_error("disk on fire"); };
    EXPECT_THROW(AddIRIsToVorlanPath(L("C"), failing, Position::End), std::runtime_error);
    EXPECT_THROW(RemoveIRIsFromVorlanPath(L("A"), failing), std::runtime_error);
}

TEST(RemoveIRIsFromVorlanPath, RemovesNothingUnlessEveryFolderIsOnThePath) {
    // Each folder not on the path has its message, in input order, named by its display text;
    // the others are not removed either.
    RecordingManager partly(L("ABCD"));
    const List folders = {L("B")[0], AbsoluteIRI(u"http://h/x%20y"), L("D")[0],
                          AbsoluteIRI(u"file:///my%20z")};
    const auto messages = RemoveIRIsFromVorlanPath(folders, partly);
    ASSERT_EQ(IdsOf(messages), Ids(2, "VORLAN:rmpath:DirNotFound"));
    EXPECT_EQ(std::get<ustring>(messages.GetMessages()[0]->GetArguments().at(0)), u"http://h/x y");
    EXPECT_EQ(std::get<ustring>(messages.GetMessages()[1]->GetArguments().at(0)), u"/my z");
    EXPECT_TRUE(partly.removed.empty());
    // Found folders go, repeated or not; the others keep their order.
    RecordingManager wholly(L("ABCDE"));
    EXPECT_TRUE(RemoveIRIsFromVorlanPath(L("DBD"), wholly).empty());
    EXPECT_EQ(wholly.removed, std::vector<List>{L("ACE")});
    EXPECT_TRUE(wholly.added.empty());
}

using RemoveOnDisk = vpath_test::TempTreeTest;

TEST_F(RemoveOnDisk, FindsAFolderThroughAnotherNameOfIt) {
    tree.Folder("real");
    tree.Folder("other");
    tree.Link("link", "real");
    RecordingManager manager({tree.IRI("other"), tree.IRI("real")});
    // A name of no folder on the path.
    EXPECT_EQ(RemoveIRIsFromVorlanPath(List{tree.IRI("missing")}, manager).size(), 1u);
    // The link's canonical form is on the path.
    EXPECT_TRUE(RemoveIRIsFromVorlanPath(List{tree.IRI("link")}, manager).empty());
    EXPECT_EQ(Path(manager), List{tree.IRI("other")});
}

TEST(EditingFolderTexts, ABadTextBlocksTheWholeChangeBeforeTheManagerIsAsked) {
    vpath_test::FakeCurrentFolder cwf;
    cwf.FailWithCode(u"locked", 3);
    const std::vector<ustring> texts = {u"a", u"locked", u"b"};
    const AbsoluteIRI cwdA(u"file:///cwd/a"), cwdB(u"file:///cwd/b"), cwdC(u"file:///cwd/c");
    // Adding or removing: only the conversion's message, and the manager is never asked.
    RecordingManager refused({cwdA, cwdB});
    const Ids denied = {"VORLAN:vpath:directoryPermissionDenied"};
    EXPECT_EQ(IdsOf(AddFoldersToVorlanPath(texts, cwf, refused, Position::Front)), denied);
    EXPECT_EQ(IdsOf(RemoveFoldersFromVorlanPath(texts, cwf, refused)), denied);
    EXPECT_TRUE(refused.added.empty() && refused.removed.empty());
    // Good texts go through to the manager as locations.
    RecordingManager accepted({L("A")[0], cwdB});
    const std::vector<ustring> good = {u"b", u"c"};
    EXPECT_TRUE(AddFoldersToVorlanPath(good, cwf, accepted, Position::End).empty());
    EXPECT_EQ(Path(accepted), (List{L("A")[0], cwdB, cwdC}));
    EXPECT_TRUE(RemoveFoldersFromVorlanPath(good, cwf, accepted).empty());
    EXPECT_EQ(Path(accepted), L("A"));
}

ComponentIdentifier Id(std::uint8_t n, std::uint32_t major) {
    Velmora::VorlanComponents::UniqueID id;
    id.bytes[15] = n;
    return ComponentIdentifier(id, Velmora::VorlanComponents::ComponentVersion{major, 0, 0});
}

TEST(PackageIsOnPath, MatchesUniqueIdAndVersion) {
    RecordingManager manager;
    EXPECT_FALSE(PackageIsOnPath(Id(1, 1), manager));
    manager.packages = std::make_shared<const RecordingManager::Components>(
        RecordingManager::Components{Id(1, 1), Id(2, 3)});
    EXPECT_TRUE(PackageIsOnPath(Id(1, 1), manager));
    EXPECT_TRUE(PackageIsOnPath(Id(2, 3), manager));
    // Another version of a package on the path, or another package of that version, is not on it.
    EXPECT_FALSE(PackageIsOnPath(Id(1, 3), manager));
    EXPECT_FALSE(PackageIsOnPath(Id(3, 1), manager));
}

TEST(GetPathFoldersForPackages, CollectsTheFoldersEachKindOfPackagePutsOnThePath) {
    using namespace Velmora::PackageRegistry;
    const auto make = [](std::uint8_t n, bool usable, bool manual,
                         std::vector<PackageFolder> folders,
                         std::optional<PropertyValue> manualInstall = {}) {
        Package::Parts parts{Id(n, 1), usable, manual, std::move(folders), {}, {}};
        if (manualInstall)
            parts.properties.emplace("ManualInstall", *manualInstall);
        parts.root = AbsoluteIRI(u"file:///pkgs/" + ustring(1, static_cast<char16_t>(u'0' + n)));
        return std::make_shared<const Package>(std::move(parts));
    };
    const AbsoluteIRI p1a(u"file:///p1/a"), p1b(u"file:///p1/b");
    const PackageRegistry registry({
        make(1, true, false, {{p1a, {0}}, {AbsoluteIRI(u"file:///p1/doc"), {3}}, {p1b, {2, 0, 5}}}),
        make(2, false, false, {{AbsoluteIRI(u"file:///p2/a"), {0}}}),  // unusable
        make(3, true, true, {{AbsoluteIRI(u"file:///p3/a"), {0}}}, PropertyValue(true)),
        make(4, true, true, {}, PropertyValue(false)), make(5, true, true, {}),  // no property
        make(6, true, false, {{AbsoluteIRI(u"file:///p6/doc"), {1, 3}}}),        // no tag 0
        make(7, true, true, {}, PropertyValue(std::int64_t{1})),                 // not a boolean
    });
    // Package by package, folders in manifest order, duplicates kept; unknown ones skipped.
    const std::vector components = {Id(1, 1), Id(9, 1), Id(1, 2), Id(2, 1), Id(3, 1),
                                    Id(4, 1), Id(5, 1), Id(6, 1), Id(1, 1)};
    EXPECT_EQ(GetPathFoldersForPackages(registry, components),
              (List{p1a, p1b, AbsoluteIRI(u"file:///pkgs/3"), p1a, p1b}));
    EXPECT_TRUE(GetPathFoldersForPackages(registry, {}).empty());
    // A "ManualInstall" that is not a boolean is an error.
    const ComponentIdentifier notABoolean[] = {Id(7, 1)};
    EXPECT_THROW(GetPathFoldersForPackages(registry, notABoolean), std::bad_variant_access);
}

}  // namespace
