// The path definition file: what is written, what is read back, and what a failed or killed save
// leaves.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <velmora/searchpath/path_definition_file.hpp>

#include "host/message_ids.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::PathDefinitionFile;
using vpath_test::FaultSystem;
using vpath_test::IdsOf;
using Outcome = PathDefinitionFile::Outcome;
using vpath_test::Ids;
namespace fs = std::filesystem;

using vpath_test::ReadAll;

class PathDefinition : public vpath_test::TempTreeTest {
  protected:
    fs::path Location() const { return tree.Path("config/vpath/pathdef"); }
    PathDefinitionFile File() const { return PathDefinitionFile(Location().string()); }
    // The names in the file's folder, the file itself left out.
    std::vector<std::string> Leftovers() const {
        std::vector<std::string> names;
        for (const auto& item : fs::directory_iterator(Location().parent_path())) {
            if (item.path() != Location())
                names.push_back(item.path().filename().string());
        }
        return names;
    }
};

TEST_F(PathDefinition, KeepsEveryFolderNameByteForByte) {
    const std::vector<AbsoluteIRI> folders = {
        AbsoluteIRI(u"file:///srv/tb"), AbsoluteIRI(u"file:///my%20dir/50%25%23"),
        AbsoluteIRI(u"file:///caf%E9"), AbsoluteIRI(u"file:///\u65e5\u672c")};
    Notification problems;
    // The file's folders are made as needed.
    ASSERT_TRUE(File().Save(folders, problems));
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ(ReadAll(Location()),
              "# vpath search path: one folder per line, searched first to last\n"
              "/srv/tb\n/my dir/50%#\n/caf\xE9\n/\xE6\x97\xA5\xE6\x9C\xAC\n");
    const auto loaded = File().Load(problems);
    EXPECT_EQ(loaded.outcome, Outcome::Loaded);
    EXPECT_EQ(loaded.folders, folders);
}

TEST_F(PathDefinition, ReadsWhatPeopleWriteAndReportsBadLinesByNumber) {
    // No file: nothing was saved yet.
    Notification nothing;
    EXPECT_EQ(File().Load(nothing).outcome, Outcome::Missing);
    EXPECT_TRUE(nothing.empty());
    // Comments and blank lines are passed over, lines may end in CRLF, dot segments and
    // repeated separators are resolved, repeats taken once, the last line needs no line
    // break.
    tree.File("config/vpath/pathdef", "# mine\r\n\r\n/a//b/\r\n/c/x/..\n/a/./b\n# /x\n/d");
    Notification readProblems;
    const auto read = File().Load(readProblems);
    EXPECT_EQ(read.outcome, Outcome::Loaded);
    EXPECT_EQ(read.folders, (std::vector{AbsoluteIRI(u"file:///a/b"), AbsoluteIRI(u"file:///c"),
                                         AbsoluteIRI(u"file:///d")}));
    // Every bad line is named by its number, and the file is not used at all.
    const char bad[] = "/ok\nrelative/tb\n\n /lead\n/x\0y\n/ok2\n";
    tree.File("config/vpath/pathdef", std::string(bad, sizeof bad - 1));
    Notification badLines;
    const auto refused = File().Load(badLines);
    EXPECT_EQ(refused.outcome, Outcome::Failed);
    EXPECT_TRUE(refused.folders.empty());
    std::vector<std::int64_t> lines;
    for (const auto& message : badLines)
        lines.push_back(std::get<std::int64_t>(message->GetArguments().at(1)));
    EXPECT_EQ(lines, (std::vector<std::int64_t>{2, 4, 5}));
    EXPECT_EQ(IdsOf(badLines), Ids(3, "VELMORA:pathdef:badLine"));
    // A file that cannot be read.
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::ReadFile, "/pathdef", EACCES);
    Notification problems;
    EXPECT_EQ(File().Load(problems).outcome, Outcome::Failed);
    EXPECT_EQ(IdsOf(problems), Ids{"VELMORA:pathdef:cannotRead"});
}

// A file whose last reading is kept tells that it still holds a path without parsing it again,
// and never when the path or the file differ.
TEST_F(PathDefinition, AKeptReadingTellsWhetherTheFileStillHoldsAPath) {
    fs::create_directories(Location().parent_path());
    std::ofstream(Location()) << "/a\n/b\n";
    PathDefinitionFile file = File();
    EXPECT_FALSE(file.Holds({AbsoluteIRI(u"file:///a"), AbsoluteIRI(u"file:///b")}));
    file.KeepLastReading();
    Notification problems;
    const auto saved = file.Load(problems).folders;
    EXPECT_TRUE(file.Holds(saved));
    EXPECT_FALSE(file.Holds({saved[1], saved[0]}));
    // Written by another change, the same size: read anew.
    std::ofstream(Location(), std::ios::trunc) << "/x\n/y\n";
    EXPECT_FALSE(file.Holds(saved));
    EXPECT_EQ(file.Load(problems).folders,
              (std::vector{AbsoluteIRI(u"file:///x"), AbsoluteIRI(u"file:///y")}));
}

// A change saved with a kept reading keeps the reading of what it wrote, so that the next reading
// parses nothing; what it keeps reads as a fresh reading of the file does, a name that ends in a
// carriage return included. (Comments, blank lines, repeats and either line ending are the layout
// property's.)
TEST_F(PathDefinition, ASavedChangeIsKeptAsTheReadingOfWhatItWrote) {
    const AbsoluteIRI a(u"file:///a"), b(u"file:///b"), n(u"file:///n");
    const std::vector<AbsoluteIRI> after = {n, AbsoluteIRI(u"file:///r%0D")};
    tree.File("config/vpath/pathdef", "/r\r\r\n/a\n");
    {
        PathDefinitionFile file = File();
        file.KeepLastReading();
        Notification problems;
        const auto base = file.Load(problems).folders;
        ASSERT_EQ(file.SaveChange(base, after, problems), PathDefinitionFile::SaveResult::Saved);
        EXPECT_TRUE(file.Holds(after));
        EXPECT_EQ(file.Load(problems).folders, after);
        EXPECT_EQ(File().Load(problems).folders, after);
        // The next change lays the file out from the kept reading as from a fresh one.
        const std::string saved = ReadAll(Location());
        std::vector<AbsoluteIRI> next(after.rbegin(), after.rend());
        ASSERT_EQ(file.SaveChange(after, next, problems), PathDefinitionFile::SaveResult::Saved);
        const std::string fromKept = ReadAll(Location());
        tree.File("config/vpath/pathdef", saved);
        ASSERT_EQ(File().SaveChange(after, next, problems), PathDefinitionFile::SaveResult::Saved);
        EXPECT_EQ(fromKept, ReadAll(Location()));
        EXPECT_TRUE(problems.empty());
    }
    // The folders that the kept reading holds are written back as they were read; a new one is
    // still looked at.
    tree.File("config/vpath/pathdef", "/a\n/b\n");
    PathDefinitionFile file = File();
    file.KeepLastReading();
    Notification problems;
    const auto base = file.Load(problems).folders;
    EXPECT_EQ(file.SaveChange(base, {a, AbsoluteIRI(u"file:///x%0Ay"), b}, problems),
              PathDefinitionFile::SaveResult::Failed);
    EXPECT_EQ(IdsOf(problems), Ids{"VELMORA:pathdef:lineBreakInName"});
}

// A change laid out from the kept reading of the last one writes exactly what a layout of the
// whole file writes, and keeps a reading that reads as a fresh one, whatever the file held around
// the folders that changed: comments, blank lines, a folder named twice, either line ending.
RC_GTEST_PROP(PathDefinitionLayout, AChangeLaidOutFromAKeptReadingIsTheWholeFileLaidOut, ()) {
    const vpath_test::TempTree tree;
    const std::string location = tree.Path("pathdef").string();
    const auto folder = [](int i) { return AbsoluteIRI(u"file:///f" + ustring(1, u'0' + i)); };
    const auto randomPath = [&] {
        auto places = *rc::gen::unique<std::vector<int>>(rc::gen::inRange(0, 10));
        std::vector<AbsoluteIRI> path;
        for (const int i : places)
            path.push_back(folder(i));
        return path;
    };
    std::string content;
    for (const int kind : *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 9))) {
        content += kind == 0 ? "# note" : kind == 1 ? "" : "/f" + std::to_string(kind % 10);
        content += *rc::gen::element<std::string>("\n", "\r\n");
    }
    if (*rc::gen::arbitrary<bool>() && !content.empty())
        content.pop_back();
    std::ofstream(location, std::ios::binary) << content;

    PathDefinitionFile kept(location);
    kept.KeepLastReading();
    Notification problems;
    auto base = kept.Load(problems).folders;
    RC_PRE(problems.empty());
    // A few changes in a row, each laid out from the reading that the one before kept.
    for (int change = 0; change < 3; ++change) {
        std::vector<AbsoluteIRI> after = base;
        const int edits = *rc::gen::inRange(1, 4);
        for (int e = 0; e < edits; ++e) {
            const auto added = folder(*rc::gen::inRange(0, 10));
            after.erase(std::remove(after.begin(), after.end(), added), after.end());
            if (*rc::gen::arbitrary<bool>())
                after.insert(after.begin() + *rc::gen::inRange<std::ptrdiff_t>(
                                                 0, static_cast<std::ptrdiff_t>(after.size()) + 1),
                             added);
        }
        if (*rc::gen::inRange(0, 8) == 0)
            after = randomPath();
        const std::string before = ReadAll(location);
        RC_ASSERT(kept.SaveChange(base, after, problems) == PathDefinitionFile::SaveResult::Saved);
        const std::string fromKept = ReadAll(location);
        std::ofstream(location, std::ios::binary | std::ios::trunc) << before;
        RC_ASSERT(PathDefinitionFile(location).SaveChange(base, after, problems) ==
                  PathDefinitionFile::SaveResult::Saved);
        RC_ASSERT(fromKept == ReadAll(location));
        RC_ASSERT(kept.Holds(after));
        RC_ASSERT(kept.Load(problems).folders == after);
        RC_ASSERT(PathDefinitionFile(location).Load(problems).folders == after);
        RC_ASSERT(problems.empty());
        base = after;
    }
}

TEST_F(PathDefinition, AFailedSaveLeavesTheOldFileAndNoTemporaryFile) {
    const std::vector<AbsoluteIRI> after = {AbsoluteIRI(u"file:///new")};
    Notification ignored;
    ASSERT_TRUE(File().Save({AbsoluteIRI(u"file:///old")}, ignored));
    const std::string old = ReadAll(Location());
    const std::tuple<FaultSystem::Op, std::string, int> cases[] = {
        {FaultSystem::Op::MakeFolders, "/vpath", EACCES},
        {FaultSystem::Op::CreateFileExclusive, ".tmp", EROFS},
        {FaultSystem::Op::WriteAll, ".tmp", ENOSPC},
        {FaultSystem::Op::SyncFile, ".tmp", EIO},
        {FaultSystem::Op::CloseFile, ".tmp", EDQUOT},
        {FaultSystem::Op::Rename, "/pathdef", EXDEV},
    };
    for (const auto& [op, suffix, error] : cases) {
        SCOPED_TRACE(Velmora::os::ErrorText(error));
        FaultSystem faults;
        faults.Fail(op, suffix, error);
        Notification problems;
        EXPECT_FALSE(File().Save(after, problems));
        ASSERT_EQ(IdsOf(problems), Ids{"VELMORA:pathdef:cannotSave"});
        EXPECT_EQ(std::get<std::string>(problems.GetMessages()[0]->GetArguments()[1]),
                  Velmora::os::ErrorText(error));
        EXPECT_EQ(ReadAll(Location()), old);
        EXPECT_TRUE(Leftovers().empty());
    }
    // Once the new file is in place its folder is flushed; failing to do so does not undo
    // the save.
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::SyncFolder, "/vpath", EIO);
    Notification problems;
    EXPECT_TRUE(File().Save(after, problems));
    EXPECT_TRUE(faults.CalledAfter(FaultSystem::Op::SyncFolder, FaultSystem::Op::Rename));
    EXPECT_EQ(File().Load(problems).folders, after);
}

TEST_F(PathDefinition, ASaveChangesOnlyTheFolderLinesAndKeepsTheFileItsLinkAndItsMode) {
    // The file is reached through a symbolic link, written with CRLF, commented, private to a
    // user who is not the one saving.
    const fs::path real = tree.File("dotfiles/pathdef",
                                    "# mine\r\n/keep/1\r\n\r\n# second\r\n/gone\r\n/keep/2\r\n"
                                    "/move\r\n# last\r\n/keep/3");
    fs::create_directories(Location().parent_path());
    fs::create_symlink(real, Location());
    fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(::chown(real.c_str(), 4321, 4322), 0);
    const std::vector<AbsoluteIRI> folders = {
        AbsoluteIRI(u"file:///move"), AbsoluteIRI(u"file:///keep/1"),
        AbsoluteIRI(u"file:///keep/2"), AbsoluteIRI(u"file:///new"),
        AbsoluteIRI(u"file:///keep/3")};
    Notification problems;
    ASSERT_TRUE(File().Save(folders, problems));
    EXPECT_TRUE(fs::is_symlink(Location()));
    EXPECT_EQ(ReadAll(real),
              "# mine\r\n/move\r\n/keep/1\r\n\r\n# second\r\n/keep/2\r\n/new\r\n# last\r\n"
              "/keep/3");
    EXPECT_EQ(fs::status(real).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    struct stat st {};
    ASSERT_EQ(::stat(real.c_str(), &st), 0);
    EXPECT_EQ(std::pair(st.st_uid, st.st_gid), std::pair(uid_t{4321}, gid_t{4322}));
    EXPECT_EQ(File().Load(problems).folders, folders);
    EXPECT_TRUE(problems.empty());
    // Appending after a last line without a line break ends that line first.
    ASSERT_TRUE(File().Save({folders[4], AbsoluteIRI(u"file:///end")}, problems));
    EXPECT_EQ(ReadAll(real), "# mine\r\n\r\n# second\r\n# last\r\n/keep/3\r\n/end\r\n");
    // The folders that stay at the front keep their lines as written, and what lies between.
    std::ofstream(real, std::ios::trunc) << "/a/./x\n# between\n/b\n";
    ASSERT_TRUE(File().Save(
        {AbsoluteIRI(u"file:///a/x"), AbsoluteIRI(u"file:///b"), AbsoluteIRI(u"file:///c")},
        problems));
    EXPECT_EQ(ReadAll(real), "/a/./x\n# between\n/b\n/c\n");
}

TEST_F(PathDefinition, WhatIsNotASmallRegularFileIsRefusedAtOnce) {
    fs::create_directories(Location().parent_path());
    const std::function<void()> makers[] = {
        [&] { ASSERT_EQ(::mkfifo(Location().c_str(), 0600), 0); },
        [&] { fs::create_symlink("/dev/zero", Location()); },
        [&] { fs::create_directory(Location()); },
        [&] {
            std::ofstream(Location()) << "/x\n";
            fs::resize_file(Location(), PathDefinitionFile::kMaxBytes + 1);
        },
    };
    for (const auto& make : makers) {
        fs::remove_all(Location());
        make();
        SCOPED_TRACE(Location().string() + " as " +
                     std::to_string(static_cast<int>(fs::symlink_status(Location()).type())));
        Notification problems;
        EXPECT_EQ(File().Load(problems).outcome, Outcome::Failed);
        EXPECT_EQ(IdsOf(problems), Ids{"VELMORA:pathdef:cannotRead"});
    }
}

// The lock belongs to the file, whatever name it is reached by: here a symbolic link and its
// target.
TEST_F(PathDefinition, AChangeWaitsForTheLockAndSaysSoAfterASecond) {
    const fs::path real = tree.File("dotfiles/pathdef", "/a\n");
    fs::create_directories(Location().parent_path());
    fs::create_symlink(real, Location());
    Notification problems;
    auto held = File().LockForChange(problems);
    ASSERT_TRUE(held.IsHeld());
    std::atomic<int> notices = 0;
    std::atomic<bool> locked = false;
    PathDefinitionFile waiting(real.string());
    waiting.SetSlowLockNotice([&] { ++notices; });
    std::thread writer([&] {
        Notification ignored;
        const auto lock = waiting.LockForChange(ignored);
        locked = lock.IsHeld();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    EXPECT_FALSE(locked);
    EXPECT_EQ(notices, 1);
    held = {};
    writer.join();
    EXPECT_TRUE(locked);
    EXPECT_EQ(notices, 1);
}

// A save killed before its rename leaves its temporary file behind: the next save removes it, and
// only what a save of this file would have left.
TEST_F(PathDefinition, TheNextSaveRemovesTheTemporaryFilesOfAKilledOne) {
    const std::vector<AbsoluteIRI> path = {AbsoluteIRI(u"file:///a"), AbsoluteIRI(u"file:///b")};
    Notification problems;
    ASSERT_TRUE(File().Save({path[1]}, problems));
    tree.File("config/vpath/.pathdef.00112233445566ff.tmp", "torn");
    tree.File("config/vpath/.other.00112233445566ff.tmp");
    ASSERT_TRUE(File().Save(path, problems));
    EXPECT_EQ(Leftovers(), std::vector<std::string>{".other.00112233445566ff.tmp"});
    EXPECT_EQ(File().Load(problems).folders, path);
}

TEST_F(PathDefinition, AFolderEndingInACarriageReturnIsKeptButNeverAdded) {
    fs::create_directories(Location().parent_path());
    std::ofstream(Location()) << "# h\n/a\r";
    Notification problems;
    const auto cr = File().Load(problems).folders;
    ASSERT_EQ(cr.size(), 1U);
    const AbsoluteIRI x(u"file:///x");
    // The last line gains the line ending that keeps its carriage return.
    ASSERT_TRUE(File().Save({cr[0], x}, problems));
    EXPECT_EQ(ReadAll(Location()), "# h\n/a\r\r\n/x\n");
    EXPECT_EQ(File().Load(problems).folders, (std::vector<AbsoluteIRI>{cr[0], x}));
    // Moved, it is written so too.
    ASSERT_TRUE(File().Save({x, cr[0]}, problems));
    EXPECT_EQ(File().Load(problems).folders, (std::vector<AbsoluteIRI>{x, cr[0]}));
    EXPECT_TRUE(problems.empty());
    // Once gone from the file, it cannot be written again: its line would name "/a".
    ASSERT_TRUE(File().Save({x}, problems));
    EXPECT_FALSE(File().Save({x, cr[0]}, problems));
    EXPECT_EQ(IdsOf(problems), Ids{"VELMORA:pathdef:lineBreakInName"});
    EXPECT_EQ(ReadAll(Location()), "# h\n/x\n");
}

}  // namespace
