// vpath ls [--ext EXT]...: the files on the path with the given extensions.

#include <cstdio>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>

#include "commands.hpp"
#include "output/lookup_output.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct LsOptions {
    std::vector<std::string> extensions;
    bool packages = false;
    bool json = false;
    bool null = false;
};

int RunLs(const LsOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    std::vector<ustring> extensions;
    for (const auto& e : options.extensions)
        extensions.push_back(Arg(e));
    if (extensions.empty())
        extensions = Constants::LanguageExtensions;
    static const std::uint32_t kPrimary[] = {0};
    static const std::uint32_t kFull[] = {0, 1, 2, 3, 4};
    const SearchScope scope = options.packages ? SearchScope(kFull) : SearchScope(kPrimary);
    const auto found =
        FindFilesByExtensions(*path, scope, extensions, FilenameMatchingPolicy::PlatformDefault);
    if (options.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& f : found)
            list.push_back(HitJson(f));
        Print(JsonLine(list));
        return kExitOk;
    }
    std::string out;
    for (const auto& f : found) {
        out += NativePathOf(*f.GetPathItem());
        out += EndOfPath(options.null);
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return kExitOk;
}

}  // namespace

Command RegisterLs(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<LsOptions>();
    auto* ls = app.add_subcommand("ls", "List the files on the path with given extensions");
    ls->add_option("--ext", options->extensions,
                   "An extension to list, with its dot (.vl); repeatable; by default the "
                   "language's own (.vlx, .vlp, .vl)")
        ->type_name("EXT");
    ls->add_flag("--packages", options->packages, "Also list package, class and private folders");
    auto* json = ls->add_flag("--json", options->json, "One JSON array of the files, for scripts");
    AddNullFlag(*ls, options->null)->excludes(json);
    return {ls, [options, &pathOptions] { return RunLs(*options, pathOptions); }};
}

}  // namespace vpath_cli
