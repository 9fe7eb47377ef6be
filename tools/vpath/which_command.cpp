// vpath which NAME...: the file each name resolves to on the path.
//
//   vpath which area                  the file in use
//   vpath which -a area               every file of that name, in path order, the shadowed marked
//   vpath which --from DIR helper     as seen from a file in DIR (its private folder first)
//   vpath which --batch < names       names from standard input, one a line, each answered at once
//   vpath which --explain area        where it looked, the answer and the near misses
//   vpath which --json area           one JSON object per name

#include <iostream>
#include <optional>
#include <unordered_map>

#include <fmt/format.h>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "commands.hpp"
#include "explain.hpp"
#include "lookup_output.hpp"
#include "resolver.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct WhichOptions {
    std::vector<std::string> names;
    bool all = false;
    bool batch = false;
    bool json = false;
    bool explain = false;
    std::optional<std::string> from;
};

// Answers one name into `out`; false when it resolves to nothing.
class Answerer {
  public:
    Answerer(const Resolver& resolver, const WhichOptions& options)
        : m_resolver(resolver), m_options(options) {}

    bool operator()(const std::string& arg, std::string& out) const {
        const ustring name = Arg(arg);
        const auto target =
            CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
        std::vector<FoundItem> found;
        if (m_options.all) {
            found = m_resolver.All(target);
        } else if (auto hit = m_resolver.InUse(target)) {
            found.push_back(std::move(*hit));
        }
        if (m_options.json) {
            out += JsonLine(Json(arg, found));
        } else {
            Text(found, out);
        }
        if (found.empty())
            Fail(fmt::format("{}: not found on the path", arg));
        return !found.empty();
    }

  private:
    void Text(const std::vector<FoundItem>& found, std::string& out) const {
        for (std::size_t i = 0; i < found.size(); ++i) {
            AppendPath(found[i], out);
            if (i > 0)
                out += "  (shadowed)";
            out += '\n';
        }
        // In a batch every name gets its lines and then a blank line when a name may have several
        // answers, so that answers stay in step with questions.
        if (m_options.batch && (m_options.all || found.empty()))
            out += '\n';
    }

    // The file's native path; a folder's own is converted once, as a batch meets it again and
    // again.
    void AppendPath(const FoundItem& hit, std::string& out) const {
        const auto& entry = hit.GetPathEntry();
        auto [at, fresh] = m_folderBytes.try_emplace(entry.get());
        if (fresh)
            at->second = Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(
                             hit.GetPathItem()->GetLocation())) +
                         "/";
        out += at->second;
        const auto& item = *hit.GetPathItem();
        out += Velmora::text::ToNative(item.GetName());
        out += Velmora::text::ToNative(item.GetExtension());
    }

    static nlohmann::json Json(const std::string& arg, const std::vector<FoundItem>& found) {
        nlohmann::json hits = nlohmann::json::array();
        for (std::size_t i = 0; i < found.size(); ++i) {
            auto hit = HitJson(found[i]);
            hit["inUse"] = i == 0;
            if (i > 0)
                hit["shadowedBy"] = FileJson(*found[0].GetPathItem());
            hits.push_back(std::move(hit));
        }
        return {{"name", arg}, {"found", !found.empty()}, {"hits", std::move(hits)}};
    }

    const Resolver& m_resolver;
    const WhichOptions& m_options;
    // The entries stay alive with the path, which outlives the answerer.
    mutable std::unordered_map<const IPathEntry*, std::string> m_folderBytes;
};

int RunWhich(const WhichOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    std::optional<foundation::storage::vfs::AbsoluteIRI> from;
    if (options.from)
        from = ToFolderIRI(Arg(*options.from));
    const Resolver resolver(*path, std::move(from));
    int status = kExitOk;
    if (options.explain) {
        for (const std::string& arg : options.names) {
            if (!Explain(resolver, arg, options.json))
                status = kExitNotFound;
        }
        return status;
    }
    const Answerer answer(resolver, options);
    std::string out;
    for (const std::string& arg : options.names) {
        if (!answer(arg, out))
            status = kExitNotFound;
    }
    Print(out);
    out.clear();
    if (!options.batch)
        return status;
    // Each answer goes out before the next line is awaited, so that another program can ask one
    // name, read its answer and ask the next; lines already read in are answered together.
    std::ios::sync_with_stdio(false);
    std::fflush(stdout);
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!answer(line, out))
            status = kExitNotFound;
        if (std::cin.rdbuf()->in_avail() <= 0) {
            Print(out);
            out.clear();
            std::fflush(stdout);
        }
    }
    Print(out);
    return status;
}

}  // namespace

Command RegisterWhich(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<WhichOptions>();
    auto* which = app.add_subcommand("which", "Print the file each name resolves to on the path");
    which->add_option("names", options->names, "Names to resolve (area, shapes/circle, mean.vlp)");
    which->add_flag("-a,--all", options->all,
                    "Every file of that name in path order; all but the first are shadowed");
    which
        ->add_option("--from", options->from,
                     "Resolve as seen from a file in this folder (its private folder first)")
        ->type_name("FOLDER");
    which->add_flag("--batch", options->batch,
                    "Also read names from standard input, one a line, answering each at once");
    which->add_flag("--explain", options->explain,
                    "Show the folders and files tried, the answer and the near misses");
    which->add_flag("--json", options->json, "One JSON object per name, for scripts");
    return {which, [options, &pathOptions] {
                if (options->names.empty() && !options->batch) {
                    throw CLI::RequiredError("names (or --batch)");
                }
                if (options->explain && options->batch)
                    throw CLI::ValidationError("--explain", "takes names, not --batch");
                return RunWhich(*options, pathOptions);
            }};
}

}  // namespace vpath_cli
