// Folder texts and IRIs: what a typed folder becomes, canonical forms, the root of a path, and the
// messages for the folder texts of a command. What is shown for a location is checked with the
// messages of removing folders.

#include <cerrno>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/core/except/message_exception.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
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
using vpath_test::FakeCurrentFolder;
using vpath_test::Ids;
using vpath_test::IdsOf;

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

}  // namespace
