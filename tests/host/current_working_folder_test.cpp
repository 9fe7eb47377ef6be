// The current-folder service: what a typed folder resolves to, and the code of every failure.

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include <velmora/cwf/current_working_folder.hpp>

#include "host/current_folder_guard.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using Velmora::current_working_folder::CurrentWorkingFolder;
using Velmora::current_working_folder::FailedToAbsolutizeException;
using Velmora::text::FromNative;
using vpath_test::FaultSystem;

// The code that absolutize(text) fails with, or -100 if it does not fail.
int CodeOf(const ustring& text) {
    try {
        CurrentWorkingFolder().absolutize(text);
    } catch (const FailedToAbsolutizeException& e) {
        EXPECT_EQ(e.GetText(), text);
        return e.GetErrorCode();
    }
    return -100;
}

using Absolutize = vpath_test::TempTreeTest;

TEST_F(Absolutize, ResolvesTextsAgainstTheCurrentFolder) {
    tree.Folder("tb");
    tree.Folder("d\xFF");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    const ustring root = FromNative(tree.Root().string());
    const CurrentWorkingFolder cwf;
    struct Case {
        ustring text;
        std::string folder;
    };
    const Case cases[] = {
        {u"tb", "tb"}, {u"./tb/", "tb"},       {u"tb/../d\xDCFF", "d\xFF"},
        {u".", ""},    {root + u"//tb", "tb"}, {u"file://" + root + u"/tb/../tb", "tb"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        EXPECT_EQ(cwf.absolutize(c.text), tree.IRI(c.folder));
    }
    // resolve does not look beyond the current folder.
    EXPECT_EQ(cwf.resolve(u"missing/..//x"), tree.IRI("x"));
}

TEST_F(Absolutize, TellsWhyATextNamesNoFolder) {
    tree.File("file.vl");
    tree.Link("loop_a", "loop_b");
    tree.Link("loop_b", "loop_a");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    struct Case {
        ustring text;
        int code;
    };
    const Case cases[] = {
        {u"", 0},
        {ustring(u"a\0b", 3), 0},
        {u"http://host/tb", 0},
        {u"file:///a?query", 0},
        {u"missing", 4},
        {u"file:///a%2Fb", 4},  // no local path can hold the name
        {u"file.vl/x", 5},
        {u"loop_a", 6},
        {u"file.vl", 7},
        {ustring(300, u'n'), 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        EXPECT_EQ(CodeOf(c.text), c.code);
    }
}

TEST_F(Absolutize, EveryErrorOfTheSystemHasItsCode) {
    tree.Folder("target");
    const ustring target = FromNative(tree.Path("target").string());
    struct Case {
        int error;
        int code;
    };
    const Case cases[] = {{EACCES, 3},       {EPERM, 3}, {ENOENT, 4},    {ENOTDIR, 5}, {ELOOP, 6},
                          {ENAMETOOLONG, 9}, {EIO, 1},   {EOVERFLOW, 8}, {ENOMEM, 8}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::Stat, "/target", c.error);
        try {
            CurrentWorkingFolder().absolutize(target);
            ADD_FAILURE() << "no failure";
        } catch (const FailedToAbsolutizeException& e) {
            EXPECT_EQ(e.GetErrorCode(), c.code);
            EXPECT_EQ(e.GetErrorNumber(), c.error);
        }
    }
    {
        // An unreadable current folder fails relative texts only.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::CurrentFolder, "", ENOENT);
        EXPECT_EQ(CodeOf(u"target"), 2);
        EXPECT_EQ(CodeOf(target), -100);
    }
}

}  // namespace
