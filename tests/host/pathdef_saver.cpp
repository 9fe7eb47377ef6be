// pathdef_saver FILE MODE: saves two different paths to the path definition file FILE in turn,
// forever, for the crash test to kill at random moments. MODE "atomic" saves as the host does;
// MODE "in-place" overwrites the file where it is, as the control that shows the test can tell a
// torn file from a whole one.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include <velmora/searchpath/path_definition_file.hpp>

#include "host/crash_paths.hpp"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: pathdef_saver FILE atomic|in-place\n");
        return 2;
    }
    const Velmora::SearchPath::PathDefinitionFile file(argv[1]);
    const bool atomic = std::strcmp(argv[2], "atomic") == 0;
    const auto paths = vpath_test::CrashPaths();
    // Tells the test that saving starts now, however long starting up took.
    std::fputs("saving\n", stdout);
    std::fflush(stdout);
    for (unsigned long round = 0;; ++round) {
        // The file starts out holding the first path: the first save writes the second.
        const auto& next = paths[(round + 1) % 2];
        if (atomic) {
            foundation::core::except::Notification problems;
            if (!file.Save(next, problems)) {
                std::fprintf(stderr, "%s", problems.ToNativeText().c_str());
                return 1;
            }
            continue;
        }
        // Line by line, flushed, so that the file is incomplete for as long as possible.
        const std::string content = Velmora::SearchPath::PathDefinitionFile::Format(next);
        std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
        for (std::size_t start = 0; out && start < content.size();) {
            const std::size_t end = content.find('\n', start) + 1;
            out.write(content.data() + start, static_cast<std::streamsize>(end - start)).flush();
            start = end;
        }
        if (!out)
            return 1;
    }
}
