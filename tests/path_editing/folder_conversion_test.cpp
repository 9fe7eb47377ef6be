// Turning the folder texts of a command into locations, and its bad folders into messages.

#include <cerrno>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

#include "host/message_ids.hpp"
#include "path_editing/editing_fakes.hpp"

namespace {

using vpath_test::IdsOf;

using namespace Velmora::PathManagement;
using foundation::core::except::Notification;
using Velmora::current_working_folder::FailedToAbsolutizeException;
using vpath_test::FakeCurrentFolder;
using vpath_test::IRI;

// A failure of the service of a type of its own, to tell the thrown object from a copy.
class DistinctFailure : public FailedToAbsolutizeException {
  public:
    using FailedToAbsolutizeException::FailedToAbsolutizeException;
};

TEST(ConvertUstringRangeToAbsoluteIRIs, ReportsEachFolderTheUserMustFixAndConvertsTheRest) {
    struct Case {
        int code;
        std::string id;
    };
    const Case cases[] = {
        {0, "VORLAN:vpath:invalidLocation"},
        {3, "VORLAN:vpath:directoryPermissionDenied"},
        {4, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {5, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {6, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {7, "VORLAN:vpath:nameNonexistentOrNotADirectory"},
        {9, "VORLAN:vpath:directoryNameTooLong"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        FakeCurrentFolder cwf;
        cwf.FailWithCode(u" bad/", c.code);
        Notification notification;
        const std::vector<ustring> folders = {u"one", u" bad/", u"two"};
        const auto iris = ConvertUstringRangeToAbsoluteIRIs(folders, cwf, notification);
        EXPECT_EQ(iris, (std::vector{IRI(u"file:///cwd/one"), IRI(u"file:///cwd/two")}));
        ASSERT_EQ(IdsOf(notification), std::vector{c.id});
        // The message names the folder exactly as the caller wrote it.
        EXPECT_EQ(notification.GetMessages()[0]->GetArguments(),
                  std::vector<resource_core::MessageArgument>{ustring(u" bad/")});
    }
}

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
        EXPECT_EQ(IdsOf(notification),
                  std::vector<std::string>{"VORLAN:vpath:nameNonexistentOrNotADirectory"});
        EXPECT_EQ(cwf.Calls(), 2);
    }
    {
        // Exceptions of other kinds pass unchanged too.
        FakeCurrentFolder cwf;
        cwf.FailWith(u"odd", [] { throw std::length_error("odd"); });
        Notification notification;
        const std::vector<ustring> folders = {u"odd"};
        EXPECT_THROW(ConvertUstringRangeToAbsoluteIRIs(folders, cwf, notification),
                     std::length_error);
    }
}

TEST(ConvertUstringRangeToAbsoluteIRIs, KeepsOrderDuplicatesAndEarlierMessages) {
    FakeCurrentFolder cwf;
    cwf.FailWithCode(u"x", 4);
    {
        // An empty list gives nothing and adds nothing.
        Notification notification;
        EXPECT_TRUE(
            ConvertUstringRangeToAbsoluteIRIs(std::vector<ustring>{}, cwf, notification).empty());
        EXPECT_TRUE(notification.empty());
    }
    {
        // Duplicates stay, and messages already in the notification come first.
        Notification notification;
        notification.Add(VORLAN::rmpath::DirNotFound(u"/before"));
        const std::vector<ustring> folders = {u"b", u"x", u"a", u"b", u"x"};
        EXPECT_EQ(
            ConvertUstringRangeToAbsoluteIRIs(folders, cwf, notification),
            (std::vector{IRI(u"file:///cwd/b"), IRI(u"file:///cwd/a"), IRI(u"file:///cwd/b")}));
        EXPECT_EQ(IdsOf(notification),
                  (std::vector<std::string>{"VORLAN:rmpath:DirNotFound",
                                            "VORLAN:vpath:nameNonexistentOrNotADirectory",
                                            "VORLAN:vpath:nameNonexistentOrNotADirectory"}));
    }
}

}  // namespace
