#include "cli_context.hpp"

#include <cstdio>

#include <fmt/format.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "example_toolbox.hpp"

namespace vpath_cli {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;
using Velmora::text::FromNative;
using Velmora::text::ToNative;

AbsoluteIRI ToFolderIRI(const ustring& text) {
    namespace vfs = foundation::storage::vfs;
    if (vfs::hasIRIPrefix(text))
        return AbsoluteIRI(text);
    ustring native = text;
    if (native.empty() || native.front() != u'/') {
        std::string cwd;
        if (const int err = Velmora::os::System().CurrentFolder(cwd); err != 0) {
            throw vfs::Exception("cannot read the current folder: " + Velmora::os::ErrorText(err),
                                 err);
        }
        native = FromNative(cwd) + u"/" + native;
    }
    return vfs::toAbsoluteIRI(u"file", fl::filesystem::path(native)).getResolvedIRI();
}

namespace {

std::vector<AbsoluteIRI> ExampleToolboxFolders() {
    for (const char* candidate : kExampleToolboxCandidates) {
        const AbsoluteIRI root = ToFolderIRI(FromNative(candidate));
        foundation::storage::vfs::Folder folder(
            root, Velmora::VorlanStorageSystem::GetStorageSystemReference());
        if (folder.exists())
            return Velmora::SearchPath::ListOrdinarySubfolders(root);
    }
    throw foundation::storage::vfs::Exception(
        "the bundled example toolbox is missing; give the path with --path");
}

}  // namespace

std::shared_ptr<const MainSearchPath> LoadPath(const PathOptions& options) {
    std::vector<AbsoluteIRI> folders;
    if (options.pathList) {
        for (const ustring& text :
             Velmora::PathManagement::SplitVorlanPath(Arg(*options.pathList))) {
            folders.push_back(ToFolderIRI(text));
        }
    } else {
        folders = ExampleToolboxFolders();
    }
    ScanReport report;
    auto path = MainSearchPath::Scan(folders, report);
    for (const auto& problem : report.Problems())
        Warn(problem.Describe());
    return path;
}

std::string NativePathOf(const Velmora::PathManagement::PathItem& item) {
    return ToNative(foundation::storage::vfs::fromAbsoluteIRI(item.GetLocation()) + u"/" +
                    item.GetFileName());
}

void Warn(const std::string& message) {
    std::fprintf(stderr, "vpath: warning: %s\n", message.c_str());
}

void Fail(const std::string& message) {
    std::fprintf(stderr, "vpath: %s\n", message.c_str());
}

}  // namespace vpath_cli
