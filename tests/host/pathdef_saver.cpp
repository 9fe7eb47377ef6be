// pathdef_saver FILE: saves two different paths to the path definition file FILE in turn,
// forever, as the host does, for the crash test to kill at random moments.

#include <cstdio>

#include <velmora/searchpath/path_definition_file.hpp>

#include "host/crash_paths.hpp"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: pathdef_saver FILE\n");
        return 2;
    }
    const Velmora::SearchPath::PathDefinitionFile file(argv[1]);
    const auto paths = vpath_test::CrashPaths();
    // Tells the test that saving starts now, however long starting up took.
    std::fputs("saving\n", stdout);
    std::fflush(stdout);
    for (unsigned long round = 0;; ++round) {
        // The file starts out holding the first path: the first save writes the second.
        foundation::core::except::Notification problems;
        if (!file.Save(paths[(round + 1) % 2], problems)) {
            std::fprintf(stderr, "%s", problems.ToNativeText().c_str());
            return 1;
        }
    }
}
