// vpath entries PARTIAL...: the path entries, main and special, that a partial pathname names.
//
//   vpath entries shapes           .../geometry/+shapes  ("+" and "@" may be left out)
//   vpath entries --strict +shapes/@Polygon
//   vpath entries --json stats

#include <fmt/format.h>

#include <velmora/pathmanagement/partial_pathname.hpp>

#include "commands.hpp"
#include "output/lookup_output.hpp"
#include "resolver.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct EntriesOptions {
    std::vector<std::string> partials;
    bool strict = false;
    bool json = false;
    bool null = false;
};

// The entries that `partial` names, in path order. The strict form names a subset of what the
// lenient one does, so the path's index of folder names finds the candidates for both.
PathEntryVector Named(const IPath& path, const ustring& partial, bool strict) {
    static const std::uint32_t kEverything[] = {0, 1, 2, 3, 4, 5};
    auto entries = path.GetPartiallyMatchingEntries(SearchScope(kEverything), partial, kPolicy);
    if (!strict)
        return entries;
    const auto parts = SplitPartialPathname(partial);
    std::erase_if(entries, [&](const PathEntryPtr& entry) {
        return !DoesPartialPathnameStrictlyMatchPathEntryIRI(parts, *entry, kPolicy);
    });
    return entries;
}

int RunEntries(const EntriesOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    int status = kExitOk;
    std::string out;
    for (const std::string& partial : options.partials) {
        const auto entries = Named(*path, Arg(partial), options.strict);
        if (entries.empty()) {
            Fail(fmt::format("{}: names no folder on the path", partial));
            status = kExitNotFound;
        }
        if (options.json) {
            nlohmann::json list = nlohmann::json::array();
            for (const auto& entry : entries) {
                auto folder = FolderJson(entry->GetAbsoluteIRI());
                folder["kind"] = KindName(entry->GetPathEntryType());
                list.push_back(std::move(folder));
            }
            out += JsonLine({{"partial", partial}, {"entries", std::move(list)}});
            continue;
        }
        for (const auto& entry : entries) {
            out += DisplayBytes(entry->GetAbsoluteIRI());
            out += EndOfPath(options.null);
        }
    }
    Print(out);
    return status;
}

}  // namespace

Command RegisterEntries(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<EntriesOptions>();
    auto* entries =
        app.add_subcommand("entries",
                           "Print the folders of the path, special ones included, that a partial "
                           "pathname names (shapes, geometry/+shapes, shapes/@Polygon)");
    entries->add_option("partials", options->partials, "Partial pathnames")->required();
    entries->add_flag("--strict", options->strict,
                      "\"+\", \"@\" and private folders exactly as written, and no special "
                      "folder left unnamed above the match");
    auto* json = entries->add_flag("--json", options->json, "One JSON object per partial pathname");
    AddNullFlag(*entries, options->null)->excludes(json);
    return {entries, [options, &pathOptions] { return RunEntries(*options, pathOptions); }};
}

}  // namespace vpath_cli
