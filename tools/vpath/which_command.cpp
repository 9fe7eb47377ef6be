// vpath which NAME...: the file each name resolves to on the path.
//
//   vpath which area                  the file in use
//   vpath which -a area               every file of that name, in path order, the shadowed marked
//   vpath which --from DIR helper     as seen from a file in DIR (its private folder first)
//   vpath which --batch < names       names from standard input, one a line

#include <cstdio>
#include <iostream>
#include <optional>

#include <fmt/format.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "commands.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

constexpr auto kPolicy = FilenameMatchingPolicy::PlatformDefault;

struct WhichOptions {
    std::vector<std::string> names;
    bool all = false;
    bool batch = false;
    std::optional<std::string> from;
};

class Resolver {
  public:
    Resolver(const IPath& path, const WhichOptions& options) : m_path(path) {
        if (options.from)
            m_from = ToFolderIRI(Arg(*options.from));
    }

    // The file in use for `name`, or nothing.
    OptionalFoundItem InUse(const detail::SearchTarget& target) const {
        return m_from ? FindFirstFileVisibleFromFolder(m_path, *m_from, target, kPolicy)
                      : FindFirstFileVisibleOnPath(m_path, target, kPolicy);
    }

    // Every file the name can resolve to: the one in use first, then the shadowed ones in path
    // order.
    std::vector<FoundItem> All(const detail::SearchTarget& target) const {
        std::vector<FoundItem> all;
        const auto inUse = InUse(target);
        if (!inUse)
            return all;
        all.push_back(*inUse);
        for (const auto& found : Candidates(target)) {
            if (found.GetPathItem() != inUse->GetPathItem())
                all.push_back(found);
        }
        return all;
    }

  private:
    std::vector<FoundItem> Candidates(const detail::SearchTarget& target) const {
        const bool qualified =
            target.baseName->find_first_of(Constants::PathnameSeparatorStr) != ustring::npos;
        static const std::uint32_t kPrimary[] = {0};
        static const std::uint32_t kFull[] = {0, 1, 2, 3, 4};
        const SearchScope scope = qualified ? SearchScope(kFull) : SearchScope(kPrimary);
        auto inFolders = m_path.FindAllInScope(scope, target, kPolicy);
        if (qualified)
            return inFolders;
        // Class folders of the name, merged in by path order; on a tie the plain file comes first.
        std::vector<FoundItem> inClasses;
        for (const auto& entry : m_path.GetMethodEntriesByName(
                 SearchScope(kPrimary), *target.baseName, FilenameMatchingPolicy::Exact)) {
            if (auto item = entry->FindFile(target, kPolicy))
                inClasses.emplace_back(item, entry);
        }
        std::vector<FoundItem> merged;
        merged.reserve(inFolders.size() + inClasses.size());
        auto f = inFolders.begin();
        auto c = inClasses.begin();
        while (f != inFolders.end() || c != inClasses.end()) {
            const bool classFirst =
                f == inFolders.end() ||
                (c != inClasses.end() &&
                 m_path.FirstEntryIsBeforeSecondOnPath(*c->GetPathEntry(), *f->GetPathEntry()));
            merged.push_back(classFirst ? *c++ : *f++);
        }
        return merged;
    }

    const IPath& m_path;
    std::optional<foundation::storage::vfs::AbsoluteIRI> m_from;
};

int RunWhich(const WhichOptions& options, const PathOptions& pathOptions) {
    const auto path = LoadPath(pathOptions);
    const Resolver resolver(*path, options);
    std::vector<std::string> names = options.names;
    if (options.batch) {
        for (std::string line; std::getline(std::cin, line);) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            names.push_back(line);
        }
    }
    std::string out;
    int status = kExitOk;
    for (const std::string& arg : names) {
        const ustring name = Arg(arg);
        const auto target =
            CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
        std::vector<FoundItem> found;
        if (options.all) {
            found = resolver.All(target);
        } else if (auto hit = resolver.InUse(target)) {
            found.push_back(*hit);
        }
        if (found.empty()) {
            Fail(fmt::format("{}: not found on the path", arg));
            status = kExitNotFound;
            // In a batch every name gets its line, so that answers stay in step with questions.
            if (options.batch)
                out += '\n';
            continue;
        }
        for (std::size_t i = 0; i < found.size(); ++i) {
            out += NativePathOf(*found[i].GetPathItem());
            if (i > 0)
                out += "  (shadowed)";
            out += '\n';
        }
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
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
    which->add_flag("--batch", options->batch, "Also read names from standard input, one a line");
    return {which, [options, &pathOptions] {
                if (options->names.empty() && !options->batch) {
                    throw CLI::RequiredError("names (or --batch)");
                }
                return RunWhich(*options, pathOptions);
            }};
}

}  // namespace vpath_cli
