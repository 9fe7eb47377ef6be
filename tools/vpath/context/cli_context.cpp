#include "cli_context.hpp"

#include <cstdio>
#include <stdexcept>

#include <fmt/format.h>

#include <foundation/core/except/message_catalog.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "given_path.hpp"
#include "path_cache_use.hpp"
#include "start_progress.hpp"

namespace vpath_cli {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::MainSearchPathManager;
using Velmora::SearchPath::PathDefinitionFile;
using Velmora::SearchPath::ScanReport;
using Velmora::text::FromNative;
using Velmora::text::ToNative;

namespace {
MainSearchPathManager* g_served = nullptr;
bool g_servedTerminal = false;
std::unique_ptr<Velmora::SearchPath::ServiceBatch>* g_servedBatch = nullptr;
}  // namespace

ServedManager::ServedManager(MainSearchPathManager& manager, bool terminal,
                             std::unique_ptr<Velmora::SearchPath::ServiceBatch>* batch) {
    g_served = &manager;
    g_servedTerminal = terminal;
    g_servedBatch = batch;
}
ServedManager::~ServedManager() {
    g_served = nullptr;
    g_servedBatch = nullptr;
}

std::unique_ptr<Velmora::SearchPath::ServiceBatch>* ServedBatchSlot() {
    return g_servedBatch;
}

bool OutputIsTerminal() {
    return g_served != nullptr ? g_servedTerminal : Velmora::os::System().IsTerminal(1);
}

AbsoluteIRI ToFolderIRI(const ustring& text) {
    return Velmora::current_working_folder::CurrentWorkingFolder().resolve(text);
}

std::shared_ptr<MainSearchPathManager> OpenManager(const PathOptions& options, Purpose purpose,
                                                   const BeforeScan& beforeScan) {
    if (options.GivesPath() && purpose == Purpose::Change) {
        throw std::runtime_error(
            "--path, --path-file and --example give a path of their own, which cannot be changed; "
            "choose the path definition file with --pathdef FILE");
    }
    // The service's manager keeps the saved path: a change through it is saved as any other,
    // and its watcher is not told of it a second time.
    if (g_served != nullptr && purpose != Purpose::Watch)
        return std::shared_ptr<MainSearchPathManager>(std::shared_ptr<void>(), g_served);
    const std::string location =
        options.pathDefinition.value_or(PathDefinitionFile::DefaultLocation());
    // No default folders: a first run starts from an empty path, so that nothing the user did
    // not name is ever saved into their path.
    MainSearchPathManager::Options managerOptions;
    if (!location.empty()) {
        managerOptions.pathDefinition.emplace(location);
        if (purpose == Purpose::Change)
            managerOptions.pathDefinition->KeepLastReading();
        managerOptions.pathDefinition->SetSlowLockNotice([location] {
            Fail(fmt::format("waiting for another change of {} to finish", location));
        });
    } else if (purpose == Purpose::Change) {
        throw std::runtime_error(
            "there is nowhere to keep the search path (HOME is not set); give --pathdef FILE");
    }
    if (purpose == Purpose::Watch)
        KeepCacheInMemory();
    const auto cache = location.empty() ? std::nullopt : CacheForPathDefinition(location);
    if (cache) {
        // A command that runs on while the path changes writes the cache in the background.
        managerOptions.pathCache = Velmora::SearchPath::PathCacheUse{
            .at = *cache,
            .inBackground = purpose == Purpose::Watch,
            .warn = [](const std::string& warning) { Warn(warning); },
            .loaded =
                [&location, &beforeScan](const auto& known) {
                    if (beforeScan)
                        beforeScan(location, known);
                }};
    } else {
        managerOptions.loadKnownEntries = [&location, &beforeScan](const auto&) {
            if (beforeScan)
                beforeScan(location, {});
            return Velmora::SearchPath::FolderEntryList{};
        };
    }
    foundation::core::except::Notification problems;
    std::shared_ptr<MainSearchPathManager> manager;
    {
        const StartProgress progress;
        manager = MainSearchPathManager::Open(std::move(managerOptions), problems);
    }
    PrintMessages(problems);
    if (manager) {
        if (purpose != Purpose::Watch)
            KeepUntilExit(manager);
        KeepUntilExit(manager->GetSnapshot());
    }
    return manager;
}

std::shared_ptr<const MainSearchPath> LoadPath(const PathOptions& options, bool tell) {
    const auto folders = GivenFolders(options);
    if (!folders) {
        const auto manager = OpenManager(options, Purpose::Read);
        if (!manager)
            throw std::runtime_error("the saved search path cannot be used");
        // One state: its warnings and folders are those of the snapshot given.
        const auto state = manager->GetState();
        if (tell) {
            PrintWarnings(*state->warnings);
            HintIfEmpty(options, state->folders->size());
        }
        return state->path;
    }
    ScanReport report;
    std::shared_ptr<const MainSearchPath> path;
    {
        const StartProgress progress;
        path = Velmora::SearchPath::ScanWithPathCache(
            *folders, CacheForFolders(*folders), report,
            [](const std::string& warning) { Warn(warning); });
    }
    PrintWarnings(report);
    KeepUntilExit(path);
    return path;
}

void KeepUntilExit(std::shared_ptr<const void> object) {
    if (g_served != nullptr)
        return;
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

void HintIfEmpty(const PathOptions& options, std::size_t folderCount) {
    if (folderCount != 0 || options.GivesPath())
        return;
    Fail(
        "the search path is empty: add a folder with 'vpath add FOLDER', or try the example "
        "toolbox with 'vpath --example which area'");
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
