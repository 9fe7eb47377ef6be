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

// The code and error number that absolutize(text) fails with, or {-100, 0} if it does not fail.
std::pair<int, int> FailureOf(const ustring& text) {
    try {
        CurrentWorkingFolder().absolutize(text);
    } catch (const FailedToAbsolutizeException& e) {
        EXPECT_EQ(e.GetText(), text);
        return {e.GetErrorCode(), e.GetErrorNumber()};
    }
    return {-100, 0};
}

using Absolutize = vpath_test::TempTreeTest;

TEST_F(Absolutize, ResolvesTextsAgainstTheCurrentFolder) {
    tree.Folder("tb");
    tree.Folder("d\xFF");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    const ustring root = FromNative(tree.Root().string());
    const CurrentWorkingFolder cwf;
    const std::pair<ustring, std::string> cases[] = {
        {u"tb", "tb"}, {u"./tb/", "tb"},       {u"tb/../d\xDCFF", "d\xFF"},
        {u".", ""},    {root + u"//tb", "tb"}, {u"file://" + root + u"/tb/../tb", "tb"},
    };
    for (const auto& [text, folder] : cases)
        EXPECT_EQ(cwf.absolutize(text), tree.IRI(folder)) << Velmora::text::ToNative(text);
    // resolve does not look beyond the current folder.
    EXPECT_EQ(cwf.resolve(u"missing/..//x"), tree.IRI("x"));
}

TEST_F(Absolutize, EveryFailureHasItsCode) {
    tree.File("file.vl");
    tree.Folder("target");
    tree.Link("loop_a", "loop_b");
    tree.Link("loop_b", "loop_a");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    // Texts that name no folder on disk; "%2F" is a name that no local path can hold.
    const std::pair<ustring, int> texts[] = {
        {u"", 0},        {ustring(u"a\0b", 3), 0}, {u"http://host/tb", 0}, {u"file:///a?query", 0},
        {u"missing", 4}, {u"file:///a%2Fb", 4},    {u"file.vl/x", 5},      {u"loop_a", 6},
        {u"file.vl", 7}, {ustring(300, u'n'), 9},
    };
    for (const auto& [text, code] : texts)
        EXPECT_EQ(FailureOf(text).first, code) << Velmora::text::ToNative(text);
    const ustring target = FromNative(tree.Path("target").string());
    // Errors of the system, by their number.
    const std::pair<int, int> errors[] = {{EACCES, 3},  {EPERM, 3},     {ENOENT, 4},
                                          {ENOTDIR, 5}, {ELOOP, 6},     {ENAMETOOLONG, 9},
                                          {EIO, 1},     {EOVERFLOW, 8}, {ENOMEM, 8}};
    for (const auto& [error, code] : errors) {
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::Stat, "/target", error);
        EXPECT_EQ(FailureOf(target), std::make_pair(code, error));
    }
    // An unreadable current folder fails relative texts only.
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::CurrentFolder, "", ENOENT);
    EXPECT_EQ(FailureOf(u"target"), std::make_pair(2, ENOENT));
    EXPECT_EQ(FailureOf(target).first, -100);
}

}  // namespace
