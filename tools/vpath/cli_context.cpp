#include "cli_context.hpp"

#include <cstdio>
#include <stdexcept>

#include <fmt/format.h>

#include <foundation/core/except/message_catalog.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "example_toolbox.hpp"
#include "path_cache_use.hpp"

namespace vpath_cli {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::MainSearchPathManager;
using Velmora::SearchPath::PathDefinitionFile;
using Velmora::SearchPath::ScanReport;
using Velmora::text::FromNative;
using Velmora::text::ToNative;

AbsoluteIRI ToFolderIRI(const ustring& text) {
    return Velmora::current_working_folder::CurrentWorkingFolder().resolve(text);
}

namespace {

std::vector<AbsoluteIRI> ExampleToolboxFolders() {
    for (const char* candidate : kExampleToolboxCandidates) {
        const AbsoluteIRI root = Velmora::PathManagement::GetIRIFromString(FromNative(candidate));
        foundation::storage::vfs::Folder folder(
            root, Velmora::VorlanStorageSystem::GetStorageSystemReference());
        if (folder.exists())
            return Velmora::SearchPath::ListOrdinarySubfolders(root);
    }
    throw foundation::storage::vfs::Exception(
        "the bundled example toolbox is missing; give the path with --path");
}

}  // namespace

std::unique_ptr<MainSearchPathManager> OpenManager(const PathOptions& options, Purpose purpose) {
    if (options.pathList && purpose == Purpose::Change) {
        throw std::runtime_error(
            "--path gives a path of its own, which cannot be changed; choose the path definition "
            "file with --pathdef FILE");
    }
    const std::string location =
        options.pathDefinition.value_or(PathDefinitionFile::DefaultLocation());
    MainSearchPathManager::Options managerOptions;
    managerOptions.defaultFolders = ExampleToolboxFolders;
    if (!location.empty()) {
        managerOptions.pathDefinition.emplace(location);
        managerOptions.pathDefinition->SetSlowLockNotice([location] {
            Fail(fmt::format("waiting for another change of {} to finish", location));
        });
    } else if (purpose == Purpose::Change) {
        throw std::runtime_error(
            "there is nowhere to keep the search path (HOME is not set); give --pathdef FILE");
    }
    const auto cache = location.empty() ? std::nullopt : CacheForPathDefinition(location);
    managerOptions.knownEntries = LoadCache(cache);
    const auto loaded = managerOptions.knownEntries;
    foundation::core::except::Notification problems;
    auto manager = MainSearchPathManager::Open(std::move(managerOptions), problems);
    PrintMessages(problems);
    if (manager) {
        UseCache(cache, loaded, *manager);
        KeepUntilExit(manager->GetSnapshot());
    }
    return manager;
}

std::shared_ptr<const MainSearchPath> LoadPath(const PathOptions& options) {
    if (!options.pathList) {
        const auto manager = OpenManager(options, Purpose::Read);
        if (!manager)
            throw std::runtime_error("the saved search path cannot be used");
        PrintWarnings(*manager->GetWarnings());
        return manager->GetSnapshot();
    }
    std::vector<AbsoluteIRI> folders;
    for (const ustring& text : Velmora::PathManagement::SplitVorlanPath(Arg(*options.pathList)))
        folders.push_back(ToFolderIRI(text));
    const auto cache = CacheForFolders(folders);
    Velmora::SearchPath::EntryCache known;
    const auto loaded = LoadCache(cache);
    known.Retain(loaded);
    ScanReport report;
    auto path = MainSearchPath::Scan(folders, report, &known);
    PrintWarnings(report);
    SaveCacheIfChanged(cache, loaded, path->GetFolderEntries());
    KeepUntilExit(path);
    return path;
}

void KeepUntilExit(std::shared_ptr<const void> object) {
    // Never destroyed: the command leaves with std::_Exit, and the system takes the memory back
    // far quicker than freeing it object by object would.
    static auto* kept = new std::vector<std::shared_ptr<const void>>();
    kept->push_back(std::move(object));
}

std::string DisplayBytes(const AbsoluteIRI& folder) {
    return ToNative(Velmora::PathManagement::GetStringFromIRI(folder));
}

std::string NativePathOf(const Velmora::PathManagement::PathItem& item) {
    return ToNative(foundation::storage::vfs::fromAbsoluteIRI(item.GetLocation()) + u"/" +
                    item.GetFileName());
}

void PrintMessages(const foundation::core::except::Notification& messages) {
    for (const auto& message : messages)
        Fail(resource_core::FormatMessageLine(message.Get()));
}

void PrintWarnings(const ScanReport& report) {
    for (const auto& problem : report.Problems())
        Warn(problem.Describe());
}

void Warn(const std::string& message) {
    std::fprintf(stderr, "vpath: warning: %s\n", message.c_str());
}

void Fail(const std::string& message) {
    std::fprintf(stderr, "vpath: %s\n", message.c_str());
}

}  // namespace vpath_cli
