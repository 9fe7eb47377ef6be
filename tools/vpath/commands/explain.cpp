#include "explain.hpp"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/text/ustring.hpp>

#include "context/cli_context.hpp"
#include "output/lookup_output.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;
using Velmora::text::ToNative;

struct NearMiss {
    const char* kind;
    FoundItem file;
    std::string hint;
};

struct Explanation {
    PathEntryVector tried;
    OptionalFoundItem answer;
    std::vector<NearMiss> nearMisses;
};

const std::uint32_t kEverything[] = {0, 1, 2, 3, 4, 5};
const std::uint32_t kSearched[] = {0, 1, 2, 3, 4};

// The entries a lookup consults for the target, in the order it consults them, up to the one that
// answers.
PathEntryVector Tried(const Resolver& resolver, const detail::SearchTarget& target,
                      const OptionalFoundItem& answer) {
    const IPath& path = resolver.Path();
    PathEntryVector tried;
    if (resolver.From()) {
        if (const auto folder = path.GetPathEntryFromAbsoluteIRI(*resolver.From(), kPolicy)) {
            if (const auto hidden = folder->GetPrivateSubEntry())
                tried.push_back(hidden);
        }
    }
    const ustring& name = *target.baseName;
    const auto slash = name.find_last_of(Constants::PathnameSeparatorStr);
    if (slash != ustring::npos) {
        for (auto& e : path.GetPartiallyMatchingEntries(SearchScope(kSearched),
                                                        name.substr(0, slash), kPolicy)) {
            tried.push_back(std::move(e));
        }
    } else {
        const std::uint32_t primary[] = {0};
        auto classes =
            path.GetMethodEntriesByName(SearchScope(primary), name, FilenameMatchingPolicy::Exact);
        auto c = classes.begin();
        // Each main entry, then the class folders of the name beneath it.
        for (const auto& main : *path.GetMainEntries()) {
            tried.push_back(main);
            while (c != classes.end() && !path.FirstEntryIsBeforeSecondOnPath(*main, **c))
                tried.push_back(*c++);
        }
    }
    if (answer) {
        const auto at = std::find(tried.begin(), tried.end(), answer->GetPathEntry());
        if (at != tried.end())
            tried.erase(at + 1, tried.end());
    }
    return tried;
}

// The name by which a file in a package or class folder is asked for: its folders from the first
// special one, each without its "+" or "@", then its name: "shapes/Polygon/vertices".
std::string QualifiedName(const IPathEntry& entry, const PathItem& item) {
    std::string qualified;
    bool special = false;
    for (const ustring& folder : SplitPartialPathname(entry.GetAbsoluteIRI().getPath())) {
        const auto kind = GetPathEntryTypeFromBaseName(folder);
        special = special || kind != PathEntryType::Ordinary;
        if (!special)
            continue;
        const bool prefixed = kind == PathEntryType::PlusFolder || kind == PathEntryType::AtFolder;
        qualified += ToNative(prefixed ? folder.substr(1) : folder) + "/";
    }
    return qualified + ToNative(item.GetName());
}

// A class folder of the name itself ("@area" for area), which the lookup consults.
bool IsClassFolderOf(const IPath& path, const IPathEntry& entry, const ustring& name) {
    if (entry.GetPathEntryType() != PathEntryType::AtFolder || entry.GetName() != u"@" + name)
        return false;
    const auto parent = path.GetParentEntryForEntry(entry);
    return parent && parent->GetPathEntryType() == PathEntryType::Ordinary;
}

// Why a file named like the target is not the answer, or null when it is named otherwise.
std::optional<NearMiss> Classify(const IPath& path, const FoundItem& file, const ustring& name,
                                 const detail::SearchTarget& target,
                                 const OptionalFoundItem& answer) {
    const PathItem& item = *file.GetPathItem();
    const IPathEntry& entry = *file.GetPathEntry();
    const bool sameName = item.GetName() == name;
    if (!sameName && !Velmora::text::EqualsIgnoringCase(item.GetName(), name))
        return std::nullopt;
    const auto& extensions = *target.extensions;
    const bool usualExtension =
        std::find(extensions.begin(), extensions.end(), item.GetExtension()) != extensions.end();
    const std::string asked = ToNative(usualExtension ? item.GetName() : item.GetFileName());
    switch (entry.GetPathEntryType()) {
        case PathEntryType::ResourcesFolder:
            return NearMiss{"resources", file, "in a resources folder, which is never searched"};
        default:
            break;
    }
    if (!sameName)
        return NearMiss{"case", file, fmt::format("only the case differs: ask for {}", asked)};
    if (!usualExtension)
        return NearMiss{"extension", file, fmt::format("another extension: ask for {}", asked)};
    switch (entry.GetPathEntryType()) {
        case PathEntryType::PrivateFolder: {
            const auto owner = path.GetParentEntryForEntry(entry);
            return NearMiss{
                "private", file,
                fmt::format("in a private folder: seen only with --from {}",
                            owner ? DisplayBytes(owner->GetAbsoluteIRI()) : "its folder")};
        }
        case PathEntryType::PlusFolder:
        case PathEntryType::AtFolder:
            if (!IsClassFolderOf(path, entry, name)) {
                return NearMiss{
                    "package", file,
                    fmt::format("in a package: ask for {}", QualifiedName(entry, item))};
            }
            break;
        default:
            break;
    }
    return NearMiss{"shadowed", file,
                    answer ? fmt::format("shadowed by {}", NativePathOf(*answer->GetPathItem()))
                           : std::string("shadowed")};
}

Explanation Explore(const Resolver& resolver, const detail::SearchTarget& target) {
    Explanation result;
    result.answer = resolver.InUse(target);
    result.tried = Tried(resolver, target, result.answer);
    const ustring& asked = *target.baseName;
    const ustring name = asked.substr(asked.find_last_of(Constants::PathnameSeparatorStr) + 1);
    resolver.Path().ForEachEntry(SearchScope(kEverything), [&](const PathEntryPtr& entry) {
        for (const auto& item : *entry->GetItems()) {
            if (result.answer && SameFile(*item, *result.answer->GetPathItem()))
                continue;
            if (auto miss = Classify(resolver.Path(), FoundItem(item, entry), name, target,
                                     result.answer)) {
                result.nearMisses.push_back(std::move(*miss));
            }
        }
        return false;
    });
    return result;
}

std::vector<std::string> TriedFiles(const detail::SearchTarget& target) {
    const ustring& asked = *target.baseName;
    const ustring name = asked.substr(asked.find_last_of(Constants::PathnameSeparatorStr) + 1);
    std::vector<std::string> files;
    for (const ustring& extension : *target.extensions)
        files.push_back(ToNative(name + extension));
    return files;
}

void PrintJson(const std::string& arg, const detail::SearchTarget& target, const Explanation& e) {
    nlohmann::json tried = nlohmann::json::array();
    for (const auto& entry : e.tried) {
        tried.push_back({{"folder", FolderJson(entry->GetAbsoluteIRI())},
                         {"kind", KindName(entry->GetPathEntryType())},
                         {"files", TriedFiles(target)}});
    }
    nlohmann::json misses = nlohmann::json::array();
    for (const auto& miss : e.nearMisses) {
        auto hit = HitJson(miss.file);
        hit["why"] = miss.kind;
        hit["hint"] = miss.hint;
        misses.push_back(std::move(hit));
    }
    Print(JsonLine({{"name", arg},
                    {"found", e.answer.has_value()},
                    {"answer", e.answer ? HitJson(*e.answer) : nlohmann::json()},
                    {"tried", std::move(tried)},
                    {"nearMisses", std::move(misses)}}));
}

void PrintText(const std::string& arg, const detail::SearchTarget& target, const Explanation& e) {
    std::string out = fmt::format("which {}\n", arg);
    std::string files;
    for (const auto& file : TriedFiles(target))
        files += " " + file;
    for (const auto& entry : e.tried)
        out += fmt::format("tried {}:{}\n", DisplayBytes(entry->GetAbsoluteIRI()), files);
    out += e.answer ? fmt::format("answer {}\n", NativePathOf(*e.answer->GetPathItem()))
                    : std::string("answer: not found on the path\n");
    for (const auto& miss : e.nearMisses) {
        out += fmt::format("near miss ({}) {}: {}\n", miss.kind,
                           NativePathOf(*miss.file.GetPathItem()), miss.hint);
    }
    Print(out);
}

}  // namespace

bool Explain(const Resolver& resolver, const std::string& arg, bool json) {
    const ustring name = Arg(arg);
    const auto target =
        CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
    const auto explanation = Explore(resolver, target);
    if (json) {
        PrintJson(arg, target, explanation);
    } else {
        PrintText(arg, target, explanation);
    }
    return explanation.answer.has_value();
}

}  // namespace vpath_cli
