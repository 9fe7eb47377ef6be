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

std::optional<CacheSlot> SlotFor(const ustring& key, std::optional<AbsoluteIRI> root) {
    if (g_cacheDisabled)
        return std::nullopt;
    const std::string folder = Velmora::SearchPath::DefaultPathCacheFolder();
    if (folder.empty())
        return std::nullopt;
    const AbsoluteIRI file =
        ToFolderIRI(Arg(folder + "/" + Velmora::SearchPath::PathCacheFileName(key)));
    return CacheSlot{file, root.value_or(file)};
}

std::string Native(const AbsoluteIRI& file) {
    return Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(file));
}

}  // namespace

void DisableCache() {
    g_cacheDisabled = true;
}

std::optional<CacheSlot> CacheForPathDefinition(const std::string& pathdef) {
    const AbsoluteIRI location = ToFolderIRI(Arg(pathdef));
    return SlotFor(location.toString(), location);
}

std::optional<CacheSlot> CacheForFolders(const std::vector<AbsoluteIRI>& folders) {
    ustring key = u"--path";
    for (const auto& folder : folders) {
        key += u'\n';
        key += folder.toString();
    }
    return SlotFor(key, std::nullopt);
}

FolderEntryList LoadCache(const std::optional<CacheSlot>& slot,
                          const std::vector<AbsoluteIRI>& folders) {
    return slot ? Velmora::SearchPath::LoadPathCache(slot->file, slot->root, folders)
                : FolderEntryList{};
}

bool SaveCacheIfWorthIt(const std::optional<CacheSlot>& slot, const FolderEntryList& saved,
                        const FolderEntryList& entries) {
    if (!slot || !Velmora::SearchPath::CacheWorthSaving(saved, entries))
        return false;
    try {
        Velmora::SearchPath::SavePathCache(slot->file, slot->root, entries);
        return true;
    } catch (const Velmora::PathManagement::UnableToSaveToolboxCacheException&) {
        Warn(fmt::format("cannot save the path cache {}", Native(slot->file)));
    } catch (const foundation::storage::vfs::Exception& e) {
        Warn(fmt::format("cannot save the path cache: {}", e.what()));
    }
    return false;
}

void UseCache(const std::optional<CacheSlot>& slot, const FolderEntryList& loaded,
              Velmora::SearchPath::MainSearchPathManager& manager) {
    if (!slot)
        return;
    // What the cache file holds now: a change is weighed against it, not against the start.
    auto saved = std::make_shared<FolderEntryList>(loaded);
    if (const auto start = manager.GetSnapshot();
        SaveCacheIfWorthIt(slot, *saved, start->GetFolderEntries()))
        *saved = start->GetFolderEntries();
    manager.AddPathChangeObserver([slot, saved](const Velmora::PathManagement::PathChange& change) {
        if (const auto after = std::dynamic_pointer_cast<const MainSearchPath>(change.after)) {
            if (SaveCacheIfWorthIt(slot, *saved, after->GetFolderEntries()))
                *saved = after->GetFolderEntries();
        }
    });
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
