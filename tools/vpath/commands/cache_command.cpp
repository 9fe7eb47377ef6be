// The command's path cache, and vpath cache [status|clear].

#include <atomic>
#include <cstdio>
#include <memory>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/searchpath/path_cache_place.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "commands.hpp"
#include "context/given_path.hpp"
#include "context/path_cache_use.hpp"

namespace vpath_cli {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::FolderEntryList;
using Velmora::SearchPath::MainSearchPath;

namespace {

std::atomic<bool> g_cacheDisabled{false};
std::atomic<bool> g_cacheInMemory{false};

std::optional<CacheSlot> InMemory(std::optional<CacheSlot> slot) {
    if (slot)
        slot->inMemory = g_cacheInMemory;
    return slot;
}

std::string Native(const AbsoluteIRI& file) {
    return Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(file));
}

}  // namespace

void DisableCache() {
    g_cacheDisabled = true;
}

void KeepCacheInMemory() {
    g_cacheInMemory = true;
}

void ResetCacheChoices() {
    g_cacheDisabled = false;
    g_cacheInMemory = false;
}

std::optional<CacheSlot> CacheForPathDefinition(const std::string& pathdef) {
    return g_cacheDisabled ? std::nullopt
                           : InMemory(Velmora::SearchPath::PathCacheForPathDefinition(pathdef));
}

std::optional<CacheSlot> CacheForFolders(const std::vector<AbsoluteIRI>& folders) {
    return g_cacheDisabled ? std::nullopt
                           : InMemory(Velmora::SearchPath::PathCacheForFolders(folders));
}

FolderEntryList LoadCache(const std::optional<CacheSlot>& slot,
                          const std::vector<AbsoluteIRI>& folders) {
    return slot ? Velmora::SearchPath::LoadCachedEntries(
                      *slot, folders, [](const std::string& warning) { Warn(warning); })
                : FolderEntryList{};
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

std::string FolderOf(const std::string& file) {
    return file.substr(0, file.rfind('/'));
}

int Clear(const CacheSlot& slot, bool all) {
    const std::string native = Native(slot.file);
    const std::string refused = all ? Velmora::SearchPath::ClearAllPathCaches(FolderOf(native))
                                    : Velmora::SearchPath::ClearPathCachePlace(native);
    if (refused.empty())
        return kExitOk;
    Fail(refused);
    return kExitRefused;
}

int Status(const CacheSlot& slot) {
    const std::string native = Native(slot.file);
    std::printf("cache: %s\n", native.c_str());
    if (const auto problem = Velmora::SearchPath::PathCacheFolderProblem(FolderOf(native));
        !problem.empty()) {
        std::printf("state: not used: %s\n", problem.c_str());
        return kExitOk;
    }
    const std::string there = Velmora::SearchPath::DescribePathCachePlace(native);
    if (there == "none") {
        std::printf("state: none (the next start scans every folder and writes it)\n");
        return kExitOk;
    }
    if (there != "a cache file") {
        std::printf("state: not used: %s is there, not a cache of yours (vpath cache clear)\n",
                    there.c_str());
        return kExitOk;
    }
    const auto entries = Velmora::SearchPath::LoadPathCache(slot.file, slot.root);
    const auto path = MainSearchPath::Create(entries);
    if (entries.empty()) {
        std::printf("state: unusable or empty (the next start scans every folder)\n");
    } else {
        std::printf("state: usable\nfolders: %zu main, %zu in all\nfiles: %zu\n",
                    path->GetFolderEntries().size(), path->GetEntryCount(), path->GetFileCount());
    }
    return kExitOk;
}

int RunCache(const std::string& action, bool all, const PathOptions& pathOptions) {
    const auto slot = CurrentSlot(pathOptions);
    if (!slot) {
        Fail("the path cache is off (--no-cache, or neither XDG_CACHE_HOME nor HOME is set)");
        return kExitUsage;
    }
    if (all && action != "clear") {
        Fail("--all goes with clear");
        return kExitUsage;
    }
    return action == "clear" ? Clear(*slot, all) : Status(*slot);
}

}  // namespace

Command RegisterCache(CLI::App& app, const PathOptions& pathOptions) {
    auto action = std::make_shared<std::string>("status");
    auto* cache = app.add_subcommand(
        "cache", "Show the path cache of the search path (status) or remove it (clear)");
    auto all = std::make_shared<bool>(false);
    cache->add_option("action", *action, "status (the default) or clear")
        ->check(CLI::IsMember({"status", "clear"}));
    cache->add_flag("--all", *all, "with clear: remove every path cache of yours");
    return {cache, [action, all, &pathOptions] { return RunCache(*action, *all, pathOptions); }};
}

}  // namespace vpath_cli
