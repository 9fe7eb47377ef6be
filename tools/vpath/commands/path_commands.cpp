// vpath path, add, rm and split: showing and changing the saved search path, and cutting a
// path-list text.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <boost/unordered/unordered_flat_set.hpp>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include "commands.hpp"
#include "context/given_path.hpp"
#include "output/change_report.hpp"
#include "output/lookup_output.hpp"
#include "output/misplaced_folders.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct FolderArguments {
    std::vector<std::string> folders;
    bool atEnd = false;
};

void PrintLine(const std::string& bytes, char end = '\n') {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fputc(end, stdout);
}

std::vector<ustring> Texts(const std::vector<std::string>& arguments) {
    std::vector<ustring> texts;
    texts.reserve(arguments.size());
    for (const std::string& argument : arguments)
        texts.push_back(Arg(argument));
    return texts;
}

int RunPath(const PathOptions& pathOptions, bool json, bool null) {
    std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    if (auto given = GivenFolders(pathOptions)) {
        folders = std::move(*given);
    } else {
        const auto manager = OpenManager(pathOptions, Purpose::Read);
        if (!manager)
            return kExitTrouble;
        PrintWarnings(*manager->GetWarnings());
        folders = *manager->GetPathFolderIRIs();
        HintIfEmpty(pathOptions, folders.size());
    }
    if (json) {
        PrintFoldersJson(folders);
        return kExitOk;
    }
    for (const auto& folder : folders)
        PrintLine(DisplayBytes(folder), EndOfPath(null));
    return kExitOk;
}

using FolderSet = boost::unordered_flat_set<foundation::storage::vfs::AbsoluteIRI>;

// The change report speaks of entries, and some folders of the saved path have none: one that had
// left the disk, or one that another folder of the path holds as a special subfolder (searched
// through that folder). Their coming and going is told here: each folder of `to` that `from`
// lacks, has no entry in `path` (the path that holds it, or held it) and is not in `reported`.
void PrintFoldersWithoutEntry(const char* what,
                              const std::vector<foundation::storage::vfs::AbsoluteIRI>& from,
                              const std::vector<foundation::storage::vfs::AbsoluteIRI>& to,
                              const Velmora::SearchPath::MainSearchPath& path,
                              const FolderSet& reported) {
    // Only folders between the runs that both lists share at the front and at the back can
    // differ: a change of a long path touches a few. By set, not by search: a path of many
    // folders would make a search of each quadratic.
    const auto [front, back] = Velmora::SearchPath::SharedRuns(to, from);
    const FolderSet in(from.begin() + static_cast<std::ptrdiff_t>(front),
                       from.end() - static_cast<std::ptrdiff_t>(back));
    std::vector<foundation::storage::vfs::AbsoluteIRI> changed;
    for (std::size_t i = front; i < to.size() - back; ++i) {
        if (!in.contains(to[i]) && !reported.contains(to[i]))
            changed.push_back(to[i]);
    }
    if (changed.empty())
        return;
    FolderSet withEntry;
    for (const auto& entry : path.GetFolderEntries())
        withEntry.insert(entry->GetLocation());
    for (const auto& folder : changed) {
        if (!withEntry.contains(folder))
            PrintLine(std::string(what) + " " + DisplayBytes(folder));
    }
}

// The folders named by `texts` that a change from `before` to `after` moved, in their order on
// `after`: each one on both paths whose place among the other folders on both changed. The folders
// that only shifted to make room for them did not move, though comparing the two orders alone could
// as well name those. Those in `added`, the folders whose entries the change report told of as
// added, were on no place before.
std::vector<foundation::storage::vfs::AbsoluteIRI> MovedFolders(
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& before,
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& after,
    const std::vector<std::string>& texts, const FolderSet& added) {
    FolderSet named;
    for (std::string text : texts) {
        while (text.size() > 1 && text.back() == '/')
            text.pop_back();
        try {
            // A folder that the change put on the path was on no place before it.
            if (auto folder = ToFolderIRI(Arg(text)); !added.contains(folder))
                named.insert(std::move(folder));
        } catch (const std::exception&) {
            // not a folder text: the change itself reported it
        }
    }
    // Only a named folder that was on the path can have moved: nearly always none was (a folder
    // added anew), and the sets of both whole paths are not worth making.
    if (named.empty() || std::none_of(before.begin(), before.end(),
                                      [&](const auto& f) { return named.contains(f); }))
        return {};
    const FolderSet wasOn(before.begin(), before.end());
    const FolderSet isOn(after.begin(), after.end());
    // The folders on both paths that precede `folder` on `order`.
    const auto keptBefore = [&](const std::vector<foundation::storage::vfs::AbsoluteIRI>& order,
                                const foundation::storage::vfs::AbsoluteIRI& folder) {
        FolderSet kept;
        for (const auto& f : order) {
            if (f == folder)
                break;
            if (wasOn.contains(f) && isOn.contains(f))
                kept.insert(f);
        }
        return kept;
    };
    std::vector<foundation::storage::vfs::AbsoluteIRI> moved;
    for (const auto& folder : after) {
        if (named.contains(folder) && wasOn.contains(folder) &&
            keptBefore(before, folder) != keptBefore(after, folder)) {
            moved.push_back(folder);
        }
    }
    return moved;
}

// Runs a change of the saved path and prints what it did; any message means that nothing changed.
// A folder is reported moved only when it is one of `named`, the folders the user asked to move.
template <class Edit>
int RunChange(const PathOptions& pathOptions, const std::vector<std::string>& named, Edit edit) {
    const auto manager = OpenManager(pathOptions, Purpose::Change);
    if (!manager)
        return kExitTrouble;
    // The folders whose entries the change report told of, as added and as removed.
    auto reported = std::make_shared<FolderSet>();
    auto reportedGone = std::make_shared<FolderSet>();
    // Only this command's change is told: the path service's manager, which a served command
    // changes, is refreshed by its watcher on other threads meanwhile.
    const auto changing = std::this_thread::get_id();
    const std::uint64_t observer = manager->AddPathChangeObserver(
        [reported, reportedGone, changing](const PathChange& change) {
            if (std::this_thread::get_id() != changing)
                return;
            const auto report = Velmora::SearchPath::ComparePaths(*change.before, *change.after);
            for (const auto& entry : *report.added)
                reported->insert(entry->GetAbsoluteIRI());
            for (const auto& entry : *report.removed)
                reportedGone->insert(entry->GetAbsoluteIRI());
            auto told = report;
            told.reordered = std::make_shared<const PathEntryVector>();  // see MovedFolders
            PrintChangeReport(told, *change.after, false);
        });
    const struct Unobserve {
        Velmora::SearchPath::MainSearchPathManager& manager;
        std::uint64_t id;
        ~Unobserve() { manager.RemovePathChangeObserver(id); }
    } unobserve{*manager, observer};
    const auto before = manager->GetPathFolderIRIs();
    const auto beforePath = manager->GetSnapshot();
    const Velmora::current_working_folder::CurrentWorkingFolder currentFolder;
    const auto messages = edit(currentFolder, *manager);
    if (!messages.empty()) {
        PrintMessages(messages);
        return kExitRefused;
    }
    const auto after = manager->GetPathFolderIRIs();
    PrintFoldersWithoutEntry("added", *before, *after, *manager->GetSnapshot(), *reported);
    PrintFoldersWithoutEntry("removed", *after, *before, *beforePath, *reportedGone);
    for (const auto& folder : MovedFolders(*before, *after, named, *reported))
        PrintLine("moved " + DisplayBytes(folder));
    PrintWarnings(*manager->GetWarnings());
    return kExitOk;
}

// The real location of `folder`, or none where it cannot be found on disk.
std::optional<foundation::storage::vfs::AbsoluteIRI> CanonicalOf(
    const foundation::storage::vfs::AbsoluteIRI& folder) {
    try {
        return GetCanonicalIRI(folder);
    } catch (const foundation::storage::vfs::Exception&) {
        return std::nullopt;
    }
}

// The texts to remove, each folder that is on the path under another name (through a symbolic
// link) given by the name that the path has for it.
std::vector<ustring> NamesOnPath(
    const std::vector<ustring>& texts,
    const Velmora::current_working_folder::CurrentWorkingFolder& currentFolder,
    const IMainSearchPathManager& manager) {
    const auto onPath = manager.GetPathFolderIRIs();
    std::vector<std::optional<foundation::storage::vfs::AbsoluteIRI>> canonicalOnPath;
    std::vector<ustring> names = texts;
    for (ustring& name : names) {
        std::optional<foundation::storage::vfs::AbsoluteIRI> canonical;
        try {
            const auto location = currentFolder.resolve(name);
            if (std::find(onPath->begin(), onPath->end(), location) != onPath->end())
                continue;
            canonical = CanonicalOf(location);
        } catch (const std::exception&) {
            continue;  // a bad text: the removal reports it as an addition would
        }
        if (!canonical)
            continue;
        if (canonicalOnPath.empty()) {
            for (const auto& folder : *onPath)
                canonicalOnPath.push_back(CanonicalOf(folder));
        }
        const auto at = std::find(canonicalOnPath.begin(), canonicalOnPath.end(), canonical);
        if (at != canonicalOnPath.end())
            name =
                GetStringFromIRI((*onPath)[static_cast<std::size_t>(at - canonicalOnPath.begin())]);
    }
    return names;
}

// Removes folders given as texts. A folder that has vanished from disk cannot be made absolute by
// the current folder (which asks the disk), yet it is still on the path and must come off it: when
// the only complaints are of folders that do not exist, and each of them, taken as written, is on
// the path, the folders are removed by location instead.
foundation::core::except::Notification RemoveFolders(
    const std::vector<ustring>& given,
    const Velmora::current_working_folder::CurrentWorkingFolder& currentFolder,
    IMainSearchPathManager& manager) {
    const std::vector<ustring> texts = NamesOnPath(given, currentFolder, manager);
    auto messages = RemoveFoldersFromVorlanPath(texts, currentFolder, manager);
    if (messages.empty())
        return messages;
    const auto onPath = manager.GetPathFolderIRIs();
    for (const auto& message : messages) {
        if (message->GetMessageID() != "VORLAN:vpath:nameNonexistentOrNotADirectory")
            return messages;
        const auto& folder = std::get<ustring>(message->GetArguments().front());
        if (std::find(onPath->begin(), onPath->end(), currentFolder.resolve(folder)) ==
            onPath->end()) {
            return messages;
        }
    }
    std::vector<foundation::storage::vfs::AbsoluteIRI> locations;
    for (const ustring& text : texts)
        locations.push_back(currentFolder.resolve(text));
    return RemoveIRIsFromVorlanPath(locations, manager);
}

// As --path takes the text: the colon of an IRI's scheme does not separate.
int RunSplit(const std::string& text) {
    for (const ustring& folder : SplitPathArgument(Arg(text)))
        PrintLine(Velmora::text::ToNative(folder));
    return kExitOk;
}

}  // namespace

Command RegisterPath(CLI::App& app, const PathOptions& pathOptions) {
    auto json = std::make_shared<bool>(false);
    auto null = std::make_shared<bool>(false);
    auto* path = app.add_subcommand("path", "Print the folders of the search path, one per line");
    auto* jsonFlag =
        path->add_flag("--json", *json, "One JSON array of the folders and whether each exists");
    AddNullFlag(*path, *null)->excludes(jsonFlag);
    return {path, [json, null, &pathOptions] { return RunPath(pathOptions, *json, *null); }};
}

Command RegisterAdd(CLI::App& app, const PathOptions& pathOptions) {
    auto arguments = std::make_shared<FolderArguments>();
    auto* add = app.add_subcommand(
        "add", "Put folders at the front of the search path (moving those already on it)");
    add->add_flag("--end", arguments->atEnd, "Put them at the end instead");
    add->add_option("folders", arguments->folders, "Folders to add, in order")->required();
    return {add, [arguments, &pathOptions] {
                WarnOfSpecialFolders(arguments->folders);
                return RunChange(pathOptions, arguments->folders,
                                 [&](const auto& currentFolder, auto& manager) {
                                     return AddFoldersToVorlanPath(
                                         Texts(arguments->folders), currentFolder, manager,
                                         arguments->atEnd ? Position::End : Position::Front);
                                 });
            }};
}

Command RegisterRm(CLI::App& app, const PathOptions& pathOptions) {
    auto arguments = std::make_shared<FolderArguments>();
    auto* rm = app.add_subcommand("rm", "Take folders off the search path");
    rm->add_option("folders", arguments->folders, "Folders to take off")->required();
    return {rm, [arguments, &pathOptions] {
                // Taking folders off moves none: the others only close up.
                return RunChange(pathOptions, {}, [&](const auto& currentFolder, auto& manager) {
                    return RemoveFolders(Texts(arguments->folders), currentFolder, manager);
                });
            }};
}

Command RegisterSplit(CLI::App& app) {
    auto text = std::make_shared<std::string>();
    auto* split =
        app.add_subcommand("split", "Print the folders of a path-list text, one per line");
    split->add_option("text", *text, "Folders separated by ':' or ';'")->required();
    return {split, [text] { return RunSplit(*text); }};
}

}  // namespace vpath_cli
