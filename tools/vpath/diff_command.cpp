// vpath diff OLD NEW: what changes between two saved search paths.
// vpath watch: what changes on the search path while it runs, as folders change on disk.

#include <chrono>
#include <cstdio>
#include <thread>

#include <fmt/format.h>

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "change_report.hpp"
#include "commands.hpp"
#include "path_cache_use.hpp"

namespace vpath_cli {
namespace {

using Velmora::SearchPath::EntryCache;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::PathDefinitionFile;
using Velmora::SearchPath::ScanReport;

// Exit statuses of diff, as diff(1) has them.
constexpr int kExitSame = 0;
constexpr int kExitDifferent = 1;

struct DiffOptions {
    std::string oldFile;
    std::string newFile;
    bool json = false;
};

// The folders saved in a path definition file; throws std::runtime_error (after printing the
// messages) when it is missing or cannot be used.
std::vector<foundation::storage::vfs::AbsoluteIRI> Folders(const std::string& file) {
    foundation::core::except::Notification problems;
    auto contents = PathDefinitionFile(file).Load(problems);
    if (contents.outcome == PathDefinitionFile::Outcome::Missing) {
        throw std::runtime_error(fmt::format("{}: no such path definition file", file));
    }
    if (contents.outcome == PathDefinitionFile::Outcome::Failed) {
        PrintMessages(problems);
        throw std::runtime_error(fmt::format("{}: cannot be used", file));
    }
    return std::move(contents.folders);
}

int RunDiff(const DiffOptions& options) {
    const auto oldFolders = Folders(options.oldFile);
    const auto newFolders = Folders(options.newFile);
    // One cache for both scans: a folder on both paths is the same entry in both, so it counts as
    // unchanged unless it changed on disk between the two scans.
    // Each path's cache supplies its folders; a folder on both paths is taken from the old one.
    const auto oldCache = CacheForPathDefinition(options.oldFile);
    const auto newCache = CacheForPathDefinition(options.newFile);
    const auto oldLoaded = LoadCache(oldCache);
    EntryCache cache;
    cache.Retain(oldLoaded);
    ScanReport problems;
    const auto before = MainSearchPath::Scan(oldFolders, problems, &cache);
    const auto newLoaded = LoadCache(newCache);
    auto known = before->GetFolderEntries();
    known.insert(known.end(), newLoaded.begin(), newLoaded.end());
    cache.Retain(known);
    const auto after = MainSearchPath::Scan(newFolders, problems, &cache);
    PrintWarnings(problems);
    SaveCacheIfChanged(oldCache, oldLoaded, before->GetFolderEntries());
    SaveCacheIfChanged(newCache, newLoaded, after->GetFolderEntries());
    KeepUntilExit(before);
    KeepUntilExit(after);
    const auto report = Velmora::SearchPath::ComparePaths(*before, *after);
    PrintChangeReport(report, *after, options.json);
    return report.empty() ? kExitSame : kExitDifferent;
}

struct WatchOptions {
    double interval = 2.0;
    std::size_t count = 0;  // 0: until interrupted
    bool json = false;
};

int RunWatch(const WatchOptions& options, const PathOptions& pathOptions) {
    const auto manager = OpenManager(pathOptions, Purpose::Read);
    if (!manager)
        return kExitRefused;
    PrintWarnings(*manager->GetWarnings());
    manager->AddPathChangeObserver([&](const Velmora::PathManagement::PathChange& change) {
        PrintChangeReport(Velmora::SearchPath::ComparePaths(*change.before, *change.after),
                          *change.after, options.json);
        std::fflush(stdout);
    });
    const auto pause = std::chrono::duration<double>(options.interval);
    for (std::size_t round = 0; options.count == 0 || round < options.count; ++round) {
        std::this_thread::sleep_for(pause);
        manager->Refresh();
    }
    return kExitOk;
}

}  // namespace

Command RegisterDiff(CLI::App& app) {
    auto options = std::make_shared<DiffOptions>();
    auto* diff =
        app.add_subcommand("diff",
                           "Print the folders that differ between two path definition files "
                           "(exit status 1 when they differ)");
    diff->add_option("old", options->oldFile, "The path definition file before")->required();
    diff->add_option("new", options->newFile, "The path definition file after")->required();
    diff->add_flag("--json", options->json, "One JSON object for scripts");
    return {diff, [options] { return RunDiff(*options); }};
}

Command RegisterWatch(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<WatchOptions>();
    auto* watch = app.add_subcommand(
        "watch", "Read the search path's folders again every few seconds and print what changed");
    watch->add_option("--interval", options->interval, "Seconds between readings (2)")
        ->check(CLI::PositiveNumber);
    watch->add_option("--count", options->count, "Stop after this many readings (0: never)");
    watch->add_flag("--json", options->json, "One JSON object per change, for scripts");
    return {watch, [options, &pathOptions] { return RunWatch(*options, pathOptions); }};
}

}  // namespace vpath_cli
