// The command's path cache, and vpath cache [status|clear].

#include <atomic>
#include <cstdio>
#include <memory>

#include <fmt/format.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "commands.hpp"
#include "context/given_path.hpp"
#include "context/path_cache_use.hpp"

namespace vpath_cli {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::FolderEntryList;
using Velmora::SearchPath::MainSearchPath;

namespace {

std::atomic<bool> g_cacheDisabled{false};

std::string Native(const AbsoluteIRI& file) {
    return Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(file));
}

}  // namespace

void DisableCache() {
    g_cacheDisabled = true;
}

std::optional<CacheSlot> CacheForPathDefinition(const std::string& pathdef) {
    return g_cacheDisabled ? std::nullopt
                           : Velmora::SearchPath::PathCacheForPathDefinition(pathdef);
}

std::optional<CacheSlot> CacheForFolders(const std::vector<AbsoluteIRI>& folders) {
    return g_cacheDisabled ? std::nullopt : Velmora::SearchPath::PathCacheForFolders(folders);
}

FolderEntryList LoadCache(const std::optional<CacheSlot>& slot,
                          const std::vector<AbsoluteIRI>& folders) {
    return slot ? Velmora::SearchPath::LoadCachedEntries(*slot, folders) : FolderEntryList{};
}

bool SaveCacheIfWorthIt(const std::optional<CacheSlot>& slot, const FolderEntryList& saved,
                        const FolderEntryList& entries) {
    return slot && Velmora::SearchPath::SavePathCacheIfWorthIt(
                       *slot, saved, entries, [](const std::string& warning) { Warn(warning); });
}

namespace {

std::optional<CacheSlot> CurrentSlot(const PathOptions& pathOptions) {
    if (const auto folders = GivenFolders(pathOptions))
        return CacheForFolders(*folders);
    const std::string pathdef = pathOptions.pathDefinition.value_or(
        Velmora::SearchPath::PathDefinitionFile::DefaultLocation());
    if (pathdef.empty())
        return std::nullopt;
    return CacheForPathDefinition(pathdef);
}

int RunCache(const std::string& action, const PathOptions& pathOptions) {
    const auto slot = CurrentSlot(pathOptions);
    if (!slot) {
        Fail("the path cache is off (--no-cache, or neither XDG_CACHE_HOME nor HOME is set)");
        return kExitUsage;
    }
    const foundation::storage::vfs::File file(
        slot->file, Velmora::VorlanStorageSystem::GetStorageSystemReference());
    if (action == "clear") {
        if (file.exists())
            file.removeFile();
        return kExitOk;
    }
    std::printf("cache: %s\n", Native(slot->file).c_str());
    if (!file.exists()) {
        std::printf("state: none (the next start scans every folder and writes it)\n");
        return kExitOk;
    }
    const auto entries = Velmora::SearchPath::LoadPathCache(slot->file, slot->root);
    const auto path = MainSearchPath::Create(entries);
    if (entries.empty()) {
        std::printf("state: unusable or empty (the next start scans every folder)\n");
    } else {
        std::printf("state: usable\nfolders: %zu main, %zu in all\nfiles: %zu\n",
                    path->GetFolderEntries().size(), path->GetEntryCount(), path->GetFileCount());
    }
    return kExitOk;
}

}  // namespace

Command RegisterCache(CLI::App& app, const PathOptions& pathOptions) {
    auto action = std::make_shared<std::string>("status");
    auto* cache = app.add_subcommand(
        "cache", "Show the path cache of the search path (status) or remove it (clear)");
    cache->add_option("action", *action, "status (the default) or clear")
        ->check(CLI::IsMember({"status", "clear"}));
    return {cache, [action, &pathOptions] { return RunCache(*action, pathOptions); }};
}

}  // namespace vpath_cli
