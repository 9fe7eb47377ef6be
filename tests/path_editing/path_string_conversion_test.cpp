// Folder texts and IRIs: what a typed folder becomes, what is shown for a location, canonical
// forms, and the root of a path.

#include <stdexcept>

#include <gtest/gtest.h>

#include <foundation/core/except/message_exception.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

#include "host/current_folder_guard.hpp"
#include "path_editing/editing_fakes.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PathManagement;
using foundation::core::except::IMsgIDException;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::current_working_folder::CurrentWorkingFolder;
using vpath_test::FaultSystem;
using vpath_test::TempTreeTest;
namespace vfs = foundation::storage::vfs;

using vpath_test::CurrentFolderGuard;

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

TEST(GetIRIFromString, PathsGetTheFileSchemeAndIRIsAreOnlyNormalised) {
    struct Case {
        ustring text;
        ustring iri;
    };
    const Case cases[] = {
        {u"/srv//tb/", u"file:///srv/tb"},
        {u"/", u"file:///"},
        {u"/my dir/50%", u"file:///my%20dir/50%25"},
        {u"/caf\u00e9/\xDCE9", u"file:///caf\u00e9/%E9"},
        // Dot segments are not resolved; runs of separators are.
        {u"/a/./b/../c", u"file:///a/./b/../c"},
        // A text that does not start like an IRI is a path, whatever it holds.
        {u"/http://host/x", u"file:///http:/host/x"},
        // IRIs are normalised but neither decoded nor made native.
        {u"file:/srv/tb/", u"file:///srv/tb"},
        {u"FILE://localhost/srv//tb", u"file:///srv/tb"},
        {u"file:///srv/my%20tb", u"file:///srv/my%20tb"},
        {u"http://host/a/../b", u"http://host/a/../b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        EXPECT_EQ(GetIRIFromString(c.text).toString(), c.iri);
    }
}

TEST(GetIRIFromString, TextsThatAreNeitherAbsolutePathsNorIRIsThrow) {
    for (const ustring text : {u"", u"tb", u"./tb", u"c:/x", u"file:///a?query"}) {
        SCOPED_TRACE(Velmora::text::ToNative(text));
        EXPECT_THROW(GetIRIFromString(text), vfs::InvalidIRIException);
    }
}

TEST(GetStringFromIRI, FileIRIsShowTheirPathOthersTheirDecodedText) {
    struct Case {
        ustring iri;
        ustring shown;
    };
    const Case cases[] = {
        {u"file:///srv/my%20tb", u"/srv/my tb"},
        {u"file:///caf%E9", u"/caf\xDCE9"},
        {u"file:///50%25/a%23b", u"/50%/a#b"},
        {u"http://host/my%20tb/caf%C3%A9", u"http://host/my tb/caf\u00e9"},
        {u"https://host/50%25", u"https://host/50%"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.iri));
        EXPECT_EQ(GetStringFromIRI(AbsoluteIRI(c.iri)), c.shown);
    }
}

using CanonicalizeAgainstCurrentFolder = TempTreeTest;

TEST_F(CanonicalizeAgainstCurrentFolder, GivesTheRealFolderOrRaisesTheUserError) {
    tree.Folder("real/tb");
    tree.Link("link", "real");
    const CurrentFolderGuard guard(tree.Root());
    const CurrentWorkingFolder cwf;
    {
        // Relative to the current folder, links and dot segments resolved.
        EXPECT_EQ(CanonicalizeRelativePathAgainstCWD(u"link/tb", cwf), tree.IRI("real/tb"));
        EXPECT_EQ(GetCanonicalIRIFromString(Velmora::text::FromNative(tree.Path("link").string()) +
                                            u"/./tb/"),
                  tree.IRI("real/tb"));
    }
    {
        // The service refuses: the text is named exactly as given.
        EXPECT_EQ(
            CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"nothere/", cwf); }),
            u"nothere/");
    }
    {
        // The service accepts but the folder cannot be resolved.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::RealPath, "/link/tb", EACCES);
        EXPECT_EQ(
            CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"link/tb", cwf); }),
            u"link/tb");
    }
    {
        // Whatever the service throws becomes the same user error.
        vpath_test::FakeCurrentFolder fake;
        fake.FailWith(u"odd", [] { throw std::logic_error("odd"); });
        EXPECT_EQ(
            CannotAbsolutizeArgument([&] { CanonicalizeRelativePathAgainstCWD(u"odd", fake); }),
            u"odd");
    }
}

TEST(RemoveRootPathFromAbsolutePath, RemovesTheRootOfAnAbsolutePathOnly) {
    struct Case {
        ustring path;
        ustring rest;
    };
    const Case cases[] = {
        {u"/home/ada/tb", u"home/ada/tb"},
        {u"/", u""},
        {u"/ /x", u" /x"},
        {u"tb/x", u"tb/x"},
        {u"", u""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.path));
        EXPECT_EQ(RemoveRootPathFromAbsolutePath(fl::filesystem::path(c.path)), c.rest);
    }
}

}  // namespace
