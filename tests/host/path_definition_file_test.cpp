// The path definition file: what is written, what is read back, and what a failed save leaves.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include <velmora/searchpath/path_definition_file.hpp>

#include "host/message_ids.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using vpath_test::IdsOf;

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::PathDefinitionFile;
using vpath_test::FaultSystem;
using Outcome = PathDefinitionFile::Outcome;
namespace fs = std::filesystem;

std::string Read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

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
    EXPECT_EQ(Read(Location()),
              "# vpath search path: one folder per line, searched first to last\n"
              "/srv/tb\n/my dir/50%#\n/caf\xE9\n/\xE6\x97\xA5\xE6\x9C\xAC\n");
    const auto loaded = File().Load(problems);
    EXPECT_EQ(loaded.outcome, Outcome::Loaded);
    EXPECT_EQ(loaded.folders, folders);
    EXPECT_TRUE(Leftovers().empty());
}

TEST_F(PathDefinition, ReadsWhatPeopleWriteAndReportsBadLinesByNumber) {
    {
        // No file: nothing was saved yet.
        Notification problems;
        EXPECT_EQ(File().Load(problems).outcome, Outcome::Missing);
        EXPECT_TRUE(problems.empty());
    }
    tree.File("config/vpath/pathdef", "# mine\n\n/a//b/\n/c\n/a/b\n# /x\n/d");
    {
        // Comments and blank lines are passed over, repeats taken once, the last line needs no
        // line break.
        Notification problems;
        const auto loaded = File().Load(problems);
        EXPECT_EQ(loaded.outcome, Outcome::Loaded);
        EXPECT_EQ(loaded.folders,
                  (std::vector{AbsoluteIRI(u"file:///a/b"), AbsoluteIRI(u"file:///c"),
                               AbsoluteIRI(u"file:///d")}));
    }
    const char bad[] = "/ok\nrelative/tb\n\n /lead\n/x\0y\n/ok2\n";
    tree.File("config/vpath/pathdef", std::string(bad, sizeof bad - 1));
    {
        // Every bad line is named by its number, and the file is not used at all.
        Notification problems;
        const auto loaded = File().Load(problems);
        EXPECT_EQ(loaded.outcome, Outcome::Failed);
        EXPECT_TRUE(loaded.folders.empty());
        std::vector<std::int64_t> lines;
        for (const auto& message : problems)
            lines.push_back(std::get<std::int64_t>(message->GetArguments().at(1)));
        EXPECT_EQ(lines, (std::vector<std::int64_t>{2, 4, 5}));
        EXPECT_EQ(IdsOf(problems)[0], "VELMORA:pathdef:badLine");
    }
    {
        // A file that cannot be read.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::ReadFile, "/pathdef", EACCES);
        Notification problems;
        EXPECT_EQ(File().Load(problems).outcome, Outcome::Failed);
        EXPECT_EQ(IdsOf(problems), std::vector<std::string>{"VELMORA:pathdef:cannotRead"});
    }
}

TEST_F(PathDefinition, AFailedSaveLeavesTheOldFileAndNoTemporaryFile) {
    const std::vector<AbsoluteIRI> before = {AbsoluteIRI(u"file:///old")};
    const std::vector<AbsoluteIRI> after = {AbsoluteIRI(u"file:///new")};
    Notification ignored;
    ASSERT_TRUE(File().Save(before, ignored));
    const std::string old = Read(Location());
    struct Case {
        FaultSystem::Op op;
        std::string suffix;
        int error;
    };
    const Case cases[] = {
        {FaultSystem::Op::MakeFolders, "/vpath", EACCES},
        {FaultSystem::Op::CreateFileExclusive, ".tmp", EROFS},
        {FaultSystem::Op::WriteAll, ".tmp", ENOSPC},
        {FaultSystem::Op::SyncFile, ".tmp", EIO},
        {FaultSystem::Op::CloseFile, ".tmp", EDQUOT},
        {FaultSystem::Op::Rename, "/pathdef", EXDEV},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::os::ErrorText(c.error));
        FaultSystem faults;
        faults.Fail(c.op, c.suffix, c.error);
        Notification problems;
        EXPECT_FALSE(File().Save(after, problems));
        ASSERT_EQ(IdsOf(problems), std::vector<std::string>{"VELMORA:pathdef:cannotSave"});
        EXPECT_EQ(std::get<std::string>(problems.GetMessages()[0]->GetArguments()[1]),
                  Velmora::os::ErrorText(c.error));
        EXPECT_EQ(Read(Location()), old);
        EXPECT_TRUE(Leftovers().empty());
    }
    {
        // Once the new file is in place, failing to flush its folder does not undo the save.
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::SyncFolder, "/vpath", EIO);
        Notification problems;
        EXPECT_TRUE(File().Save(after, problems));
        EXPECT_EQ(File().Load(problems).folders, after);
    }
}

}  // namespace
