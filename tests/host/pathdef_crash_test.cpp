// A saving process killed at random moments leaves the old or the new path definition file,
// never a torn one.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <velmora/searchpath/path_definition_file.hpp>

#include "host/crash_paths.hpp"
#include "support/temp_tree.hpp"

namespace {

using Velmora::SearchPath::PathDefinitionFile;
namespace fs = std::filesystem;

struct Outcomes {
    int first = 0;
    int second = 0;
    int torn = 0;
    int duringSave = 0;  // kills that left the saver's temporary file behind
};

std::string Read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// Starts the saver on `file` in `mode`, kills it `kills` times at random moments, and sorts what
// each kill left.
Outcomes KillRepeatedly(const fs::path& file, const char* mode, int kills) {
    const auto paths = vpath_test::CrashPaths();
    const std::string first = PathDefinitionFile::Format(paths[0]);
    const std::string second = PathDefinitionFile::Format(paths[1]);
    std::mt19937 random(12345);
    std::uniform_int_distribution<int> delayUs(0, 25000);
    Outcomes outcomes;
    for (int k = 0; k < kills; ++k) {
        int ready[2];
        if (::pipe(ready) != 0) {
            ADD_FAILURE() << "no pipe";
            return outcomes;
        }
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(ready[1], STDOUT_FILENO);
            ::execl(VPATH_PATHDEF_SAVER, VPATH_PATHDEF_SAVER, file.c_str(), mode, nullptr);
            ::_exit(127);
        }
        ::close(ready[1]);
        // The kill comes at a random moment after the saver has started saving.
        char signal = 0;
        EXPECT_EQ(::read(ready[0], &signal, 1), 1) << "the saver did not start";
        ::close(ready[0]);
        std::this_thread::sleep_for(std::chrono::microseconds(delayUs(random)));
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the saver stopped by itself: " << status;
        const std::string content = Read(file);
        outcomes.first += content == first;
        outcomes.second += content == second;
        outcomes.torn += content != first && content != second;
        for (const auto& item : fs::directory_iterator(file.parent_path())) {
            if (item.path().extension() == ".tmp") {
                ++outcomes.duringSave;
                fs::remove(item.path());
            }
        }
    }
    std::printf("%s saver, %d kills: %d first path, %d second path, %d torn, %d during a save\n",
                mode, kills, outcomes.first, outcomes.second, outcomes.torn, outcomes.duringSave);
    return outcomes;
}

class PathDefinitionCrash : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        foundation::core::except::Notification problems;
        ASSERT_TRUE(
            PathDefinitionFile(File().string()).Save(vpath_test::CrashPaths()[0], problems));
    }
    fs::path File() const { return tree.Path("pathdef"); }
};

TEST_F(PathDefinitionCrash, LeavesTheOldOrTheNewFileWheneverTheSaverIsKilled) {
    const Outcomes outcomes = KillRepeatedly(File(), "atomic", 300);
    EXPECT_EQ(outcomes.torn, 0);
    // The saver did get to save, both paths, and was often killed in the middle of a save.
    EXPECT_GT(outcomes.first, 0);
    EXPECT_GT(outcomes.second, 0);
    EXPECT_GT(outcomes.duringSave, 0);
}

TEST_F(PathDefinitionCrash, WouldSeeATornFileIfSavesOverwroteInPlace) {
    EXPECT_GT(KillRepeatedly(File(), "in-place", 60).torn, 0);
}

}  // namespace
