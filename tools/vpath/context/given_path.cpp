#include "given_path.hpp"

#include <cerrno>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include <fmt/format.h>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "build_info.hpp"

namespace vpath_cli {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

bool IsSchemeText(std::u16string_view text) {
    if (text.empty() ||
        !((text[0] >= u'a' && text[0] <= u'z') || (text[0] >= u'A' && text[0] <= u'Z')))
        return false;
    for (const char16_t c : text) {
        const bool ok = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
                        (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
        if (!ok)
            return false;
    }
    return true;
}

// Whether the colon at `colon` ends an IRI's scheme rather than separating two folders: the
// storage layer's own test, asked of the scheme and the few characters after it that it looks at,
// so that what it takes for an IRI is never split.
bool IsSchemeColon(const ustring& text, std::size_t start, std::size_t colon) {
    if (!IsSchemeText(std::u16string_view(text.data() + start, colon - start)))
        return false;
    return foundation::storage::vfs::hasIRIPrefix(text.substr(start, colon - start + 3));
}

// A line of a --path-file as a message shows it: its bytes whole, a NUL (which no name can hold
// and that would cut the message short) written \0, and a backslash written \\ so that the
// text stays unambiguous.
std::string ShownLine(std::string_view line) {
    std::string shown;
    for (const char c : line) {
        if (c == '\0')
            shown += "\\0";
        else if (c == '\\')
            shown += "\\\\";
        else
            shown += c;
    }
    return shown;
}

// The lines of a --path-file, without comment and empty lines.
std::vector<ustring> FolderLines(const std::string& file, const std::string& content) {
    std::vector<ustring> lines;
    std::size_t start = 0;
    for (std::int64_t number = 1; start < content.size(); ++number) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos)
            end = content.size();
        std::string line = content.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line.front() == '#')
            continue;
        if (line.find('\0') != std::string::npos) {
            throw std::runtime_error(
                fmt::format("--path-file {}: line {} (\"{}\") is not a folder: it holds a NUL",
                            file, number, ShownLine(line)));
        }
        lines.push_back(Arg(line));
    }
    return lines;
}

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

std::vector<ustring> SplitPathArgument(const ustring& text) {
    std::vector<ustring> folders;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] != u';' && text[i] != u':')
            continue;
        if (i < text.size() && text[i] == u':' && IsSchemeColon(text, start, i))
            continue;
        if (i > start)
            folders.push_back(text.substr(start, i - start));
        start = i + 1;
    }
    return folders;
}

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
                         : FolderLines(*options.pathFile, ReadPathFile(*options.pathFile));
    std::vector<AbsoluteIRI> folders;
    folders.reserve(texts.size());
    for (const ustring& text : texts)
        folders.push_back(ToFolderIRI(text));
    return folders;
}

}  // namespace vpath_cli
