// vpath path, add, rm and split: showing and changing the saved search path, and cutting a
// path-list text.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

#include "commands.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct FolderArguments {
    std::vector<std::string> folders;
    bool atEnd = false;
};

void PrintLine(const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fputc('\n', stdout);
}

std::vector<ustring> Texts(const std::vector<std::string>& arguments) {
    std::vector<ustring> texts;
    texts.reserve(arguments.size());
    for (const std::string& argument : arguments)
        texts.push_back(Arg(argument));
    return texts;
}

int RunPath(const PathOptions& pathOptions) {
    if (pathOptions.pathList) {
        for (const ustring& text : SplitVorlanPath(Arg(*pathOptions.pathList)))
            PrintLine(DisplayBytes(ToFolderIRI(text)));
        return kExitOk;
    }
    const auto manager = OpenManager(pathOptions, Purpose::Read);
    if (!manager)
        return kExitRefused;
    PrintWarnings(*manager->GetWarnings());
    for (const auto& folder : *manager->GetPathFolderIRIs())
        PrintLine(DisplayBytes(folder));
    return kExitOk;
}

// Runs a change of the saved path; any message means that nothing changed.
template <class Edit>
int RunChange(const PathOptions& pathOptions, Edit edit) {
    const auto manager = OpenManager(pathOptions, Purpose::Change);
    if (!manager)
        return kExitRefused;
    const Velmora::current_working_folder::CurrentWorkingFolder currentFolder;
    const auto messages = edit(currentFolder, *manager);
    if (!messages.empty()) {
        PrintMessages(messages);
        return kExitRefused;
    }
    PrintWarnings(*manager->GetWarnings());
    return kExitOk;
}

int RunSplit(const std::string& text) {
    for (const ustring& folder : SplitVorlanPath(Arg(text)))
        PrintLine(Velmora::text::ToNative(folder));
    return kExitOk;
}

}  // namespace

Command RegisterPath(CLI::App& app, const PathOptions& pathOptions) {
    auto* path = app.add_subcommand("path", "Print the folders of the search path, one per line");
    return {path, [&pathOptions] { return RunPath(pathOptions); }};
}

Command RegisterAdd(CLI::App& app, const PathOptions& pathOptions) {
    auto arguments = std::make_shared<FolderArguments>();
    auto* add = app.add_subcommand(
        "add", "Put folders at the front of the search path (moving those already on it)");
    add->add_flag("--end", arguments->atEnd, "Put them at the end instead");
    add->add_option("folders", arguments->folders, "Folders to add, in order")->required();
    return {add, [arguments, &pathOptions] {
                return RunChange(pathOptions, [&](const auto& currentFolder, auto& manager) {
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
                return RunChange(pathOptions, [&](const auto& currentFolder, auto& manager) {
                    return RemoveFoldersFromVorlanPath(Texts(arguments->folders), currentFolder,
                                                       manager);
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
