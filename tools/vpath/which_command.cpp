// vpath which NAME...: the file each name resolves to on the path.

#include <cstdio>

#include <fmt/format.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "commands.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct WhichOptions {
    std::vector<std::string> names;
};

int RunWhich(const WhichOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    // Names with folders in them ("shapes/circle") are looked for in package and class folders
    // too; plain names in the folders on the path.
    static const std::uint32_t kPrimary[] = {0};
    static const std::uint32_t kFull[] = {0, 1, 2, 3, 4};
    int status = kExitOk;
    for (const std::string& arg : options.names) {
        const ustring name = Arg(arg);
        const auto target =
            CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
        const bool qualified = target.baseName->find(u'/') != ustring::npos;
        const auto found =
            path->FindFirstInScope(qualified ? SearchScope(kFull) : SearchScope(kPrimary), target,
                                   FilenameMatchingPolicy::PlatformDefault);
        if (found) {
            std::printf("%s\n", NativePathOf(*found->GetPathItem()).c_str());
        } else {
            Fail(fmt::format("{}: not found on the path", arg));
            status = kExitNotFound;
        }
    }
    return status;
}

}  // namespace

Command RegisterWhich(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<WhichOptions>();
    auto* which = app.add_subcommand("which", "Print the file each name resolves to on the path");
    which->add_option("names", options->names, "Names to resolve (area, shapes/circle, mean.vlp)")
        ->required();
    return {which, [options, &pathOptions] { return RunWhich(*options, pathOptions); }};
}

}  // namespace vpath_cli
