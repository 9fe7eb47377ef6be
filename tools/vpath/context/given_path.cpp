#include "given_path.hpp"

#include <cerrno>
#include <iostream>
#include <stdexcept>

#include <fmt/format.h>

#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "build_info.hpp"

namespace vpath_cli {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

// Standard input, which may be a pipe or a terminal, up to the cap of a saved path.
std::string ReadStandardInput() {
    constexpr auto kMax = Velmora::SearchPath::PathDefinitionFile::kMaxBytes;
    std::string content;
    char buffer[65536];
    for (;;) {
        const auto n = std::cin.rdbuf()->sgetn(buffer, sizeof buffer);
        if (n <= 0)
            return content;
        if (content.size() + static_cast<std::size_t>(n) > kMax) {
            throw std::runtime_error(
                fmt::format("--path-file -: standard input is larger than {} MiB", kMax >> 20));
        }
        content.append(buffer, static_cast<std::size_t>(n));
    }
}

// A --path-file other than standard input: a regular file of at most the cap of a saved path. A
// FIFO or a device is refused before it is read, since it may never end.
std::string ReadPathFile(const std::string& file) {
    if (file == "-")
        return ReadStandardInput();
    constexpr auto kMax = Velmora::SearchPath::PathDefinitionFile::kMaxBytes;
    std::string content;
    switch (const int error = Velmora::os::System().ReadRegularFile(file, kMax, content)) {
        case 0:
            return content;
        case ENODEV:
            throw std::runtime_error(fmt::format(
                "--path-file {}: it is not a regular file (a FIFO or a device may never end); "
                "give its content on standard input with '--path-file -'",
                file));
        case EFBIG:
            throw std::runtime_error(
                fmt::format("--path-file {}: it is larger than {} MiB", file, kMax >> 20));
        default:
            throw std::runtime_error(
                fmt::format("--path-file {}: {}", file, Velmora::os::ErrorText(error)));
    }
}

std::vector<AbsoluteIRI> ExampleToolboxFolders() {
    const auto root = ExampleToolboxRoot();
    if (!root) {
        throw std::runtime_error(
            "the example toolbox is not installed beside this vpath; give a path with --path");
    }
    return Velmora::SearchPath::ListOrdinarySubfolders(
        Velmora::PathManagement::GetIRIFromString(Arg(*root)));
}

std::optional<std::string> ExistingFolder(const std::string& path) {
    std::string real;
    Velmora::os::FileStatus status;
    if (Velmora::os::System().RealPath(path, real) != 0 ||
        Velmora::os::System().Stat(real, status) != 0 || !status.IsFolder()) {
        return std::nullopt;
    }
    return real;
}

}  // namespace

std::optional<std::string> ExampleToolboxRoot() {
    std::string program;
    if (Velmora::os::System().RealPath("/proc/self/exe", program) != 0)
        return std::nullopt;
    const std::string folder = program.substr(0, program.rfind('/'));
    if (auto installed = ExistingFolder(folder + "/" + kInstalledToolbox))
        return installed;
    if (ExistingFolder(kBuildTreeProgramFolder) == folder)
        return ExistingFolder(kSourceTreeToolbox);
    return std::nullopt;
}

std::optional<std::vector<AbsoluteIRI>> GivenFolders(const PathOptions& options) {
    const int given = int(options.pathList.has_value()) + int(options.pathFile.has_value()) +
                      int(options.example);
    if (given == 0)
        return std::nullopt;
    if (given > 1)
        throw std::runtime_error("give one of --path, --path-file and --example, not several");
    if (options.example)
        return ExampleToolboxFolders();
    const std::vector<ustring> texts =
        options.pathList ? SplitPathArgument(Arg(*options.pathList))
                         : PathFileLines(*options.pathFile, ReadPathFile(*options.pathFile));
    std::vector<AbsoluteIRI> folders;
    folders.reserve(texts.size());
    for (const ustring& text : texts)
        folders.push_back(ToFolderIRI(text));
    return folders;
}

}  // namespace vpath_cli
