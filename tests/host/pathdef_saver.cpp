// pathdef_saver FILE MODE: saves two different paths to the path definition file FILE in turn,
// forever, for the crash test to kill at random moments. MODE "atomic" saves as the host does;
// MODE "in-place" overwrites the file where it is, as the control that shows the test can tell a
// torn file from a whole one.

#include <cstdio>
#include <cstring>
#include <string>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "host/crash_paths.hpp"

namespace {

int SaveInPlace(const std::string& file, const std::string& content) {
    auto& system = Velmora::os::System();
    system.RemoveFile(file);
    int descriptor = -1;
    if (const int err = system.CreateFileExclusive(file, descriptor); err != 0)
        return err;
    // Line by line, so that the file is incomplete for as long as possible.
    for (std::size_t start = 0; start < content.size();) {
        const std::size_t end = content.find('\n', start) + 1;
        system.WriteAll(descriptor, std::string_view(content).substr(start, end - start));
        start = end;
    }
    return system.CloseFile(descriptor);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: pathdef_saver FILE atomic|in-place\n");
        return 2;
    }
    const Velmora::SearchPath::PathDefinitionFile file(argv[1]);
    const bool atomic = std::strcmp(argv[2], "atomic") == 0;
    const auto paths = vpath_test::CrashPaths();
    const std::string contents[2] = {Velmora::SearchPath::PathDefinitionFile::Format(paths[0]),
                                     Velmora::SearchPath::PathDefinitionFile::Format(paths[1])};
    // Tells the test that saving starts now, however long starting up took.
    std::fputs("saving\n", stdout);
    std::fflush(stdout);
    for (unsigned long round = 0;; ++round) {
        // The file starts out holding the first path: the first save writes the second.
        const std::size_t next = (round + 1) % 2;
        if (atomic) {
            foundation::core::except::Notification problems;
            if (!file.Save(paths[next], problems)) {
                std::fprintf(stderr, "%s", problems.ToNativeText().c_str());
                return 1;
            }
        } else if (SaveInPlace(argv[1], contents[next]) != 0) {
            return 1;
        }
    }
}
