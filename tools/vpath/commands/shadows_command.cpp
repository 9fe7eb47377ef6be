// vpath shadows [--differ]: every name that more than one folder of the path defines, the file in
// use first, as `which -a` would show it for each name.

#include <algorithm>
#include <unordered_set>

#include <fmt/format.h>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "commands.hpp"
#include "output/lookup_output.hpp"
#include "resolver.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct ShadowsOptions {
    bool differ = false;
    bool json = false;
    bool null = false;
};

// The names a plain lookup can resolve, in the order the path first defines them: the files of
// the main entries with the language's extensions, and the class folders beneath them. Each is
// given as `which` takes it: a file whose name without its extension would be read as carrying an
// extension of its own ("m.so" of "m.so.vl") is named with its extension, and only files of
// exactly that name are its group.
std::vector<ustring> Names(const IPath& path) {
    const auto& extensions = Constants::LanguageExtensions;
    std::vector<ustring> names;
    std::unordered_set<ustring> seen;
    const auto add = [&](const ustring& name) {
        if (seen.insert(name).second)
            names.push_back(name);
    };
    for (const auto& main : *path.GetMainEntries()) {
        for (const auto& item : *main->GetItems()) {
            if (std::find(extensions.begin(), extensions.end(), item->GetExtension()) ==
                extensions.end()) {
                continue;
            }
            const ustring stem = item->GetName();
            const auto target =
                CreateSearchTargetWithExtensionInFilenamePreferred(stem, extensions);
            add(target.ownedExtensions ? item->GetFileName() : stem);
        }
        for (const auto& sub : *main->GetSubEntries()) {
            if (sub->GetPathEntryType() == PathEntryType::AtFolder)
                add(sub->GetName().substr(1));
        }
    }
    return names;
}

// The file's bytes, or nothing when it cannot be read (then it counts as differing).
std::optional<std::string> Contents(const PathItem& item) {
    std::string bytes;
    if (Velmora::os::System().ReadFile(NativePathOf(item), bytes) != 0)
        return std::nullopt;
    return bytes;
}

int RunShadows(const ShadowsOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    const Resolver resolver(*path, std::nullopt);
    std::string out;
    for (const ustring& name : Names(*path)) {
        const auto target =
            CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
        auto all = resolver.All(target);
        if (options.differ && all.size() > 1) {
            const auto inUse = Contents(*all.front().GetPathItem());
            all.erase(std::remove_if(all.begin() + 1, all.end(),
                                     [&](const FoundItem& f) {
                                         const auto bytes = Contents(*f.GetPathItem());
                                         return inUse && bytes && *inUse == *bytes;
                                     }),
                      all.end());
        }
        if (all.size() < 2)
            continue;
        if (options.json) {
            nlohmann::json shadowed = nlohmann::json::array();
            for (auto it = all.begin() + 1; it != all.end(); ++it)
                shadowed.push_back(HitJson(*it));
            out += JsonLine({{"name", Velmora::text::ToNative(name)},
                             {"inUse", HitJson(all.front())},
                             {"shadowed", std::move(shadowed)}});
            continue;
        }
        // With --null the paths stand bare, the one in use first, and an empty record ends a name.
        const char end = EndOfPath(options.null);
        out += NativePathOf(*all.front().GetPathItem()) + end;
        for (auto it = all.begin() + 1; it != all.end(); ++it)
            out += NativePathOf(*it->GetPathItem()) + (options.null ? "" : "  (shadowed)") + end;
        out += end;
    }
    Print(out);
    return kExitOk;
}

}  // namespace

Command RegisterShadows(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<ShadowsOptions>();
    auto* shadows = app.add_subcommand(
        "shadows",
        "Print every name that several folders define: the file in use, then the "
        "shadowed ones, a blank line after each name");
    shadows->add_flag("--differ", options->differ,
                      "Only shadowed files whose contents differ from the file in use");
    auto* json =
        shadows->add_flag("--json", options->json, "One JSON object per name, for scripts");
    AddNullFlag(*shadows, options->null)->excludes(json);
    return {shadows, [options, &pathOptions] { return RunShadows(*options, pathOptions); }};
}

}  // namespace vpath_cli
