// vpath diff OLD NEW: what changes between two saved search paths.

#include <algorithm>
#include <optional>

#include <fmt/format.h>
#include <tbb/task_group.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "commands.hpp"
#include "context/path_cache_use.hpp"
#include "context/start_progress.hpp"
#include "output/change_report.hpp"

namespace vpath_cli {
namespace {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::EntryCache;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::PathDefinitionFile;
using Velmora::SearchPath::ScanReport;

// Exit statuses of diff, as diff(1) has them.
constexpr int kExitSame = 0;
constexpr int kExitDifferent = 1;
constexpr std::size_t kFoldersWorthACache = 256;

struct DiffOptions {
    std::string oldFile;
    std::string newFile;
    bool json = false;
};

// The folders saved in a path definition file; throws std::runtime_error (after printing the
// messages) when it is missing or cannot be used.
std::vector<AbsoluteIRI> Folders(const std::string& file) {
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

using EntryList = Velmora::SearchPath::FolderEntryList;

// Whether the new path's own cache is worth reading (and writing back): only when it holds many
// folders that the old path lacks. Reading and checking a whole cache costs about as much as
// listing a few hundred folders, and the folders both paths share come from the old one anyway.
bool WorthItsCache(const std::vector<AbsoluteIRI>& newFolders,
                   const std::vector<AbsoluteIRI>& oldFolders) {
    const boost::unordered_flat_set<AbsoluteIRI> old(oldFolders.begin(), oldFolders.end());
    const auto unshared = static_cast<std::size_t>(std::count_if(
        newFolders.begin(), newFolders.end(), [&](const auto& f) { return !old.contains(f); }));
    return unshared > kFoldersWorthACache || unshared * 8 > newFolders.size();
}

int RunDiff(const DiffOptions& options) {
    std::optional<StartProgress> progress;
    progress.emplace();
    // The new path's file is read while the old path starts: neither waits for the other.
    std::vector<AbsoluteIRI> newFolders;
    tbb::task_group reading;
    reading.run([&] { newFolders = Folders(options.newFile); });
    std::vector<AbsoluteIRI> oldFolders;
    std::optional<CacheSlot> oldCache;
    EntryList oldLoaded;
    EntryCache cache;
    ScanReport problems;
    std::shared_ptr<const MainSearchPath> before;
    try {
        oldFolders = Folders(options.oldFile);
        // One cache for both scans: a folder on both paths is the same entry in both, so it
        // counts as unchanged unless it changed on disk between the two scans. Each path's cache
        // supplies its folders; a folder on both paths is taken from the old one.
        oldCache = CacheForPathDefinition(options.oldFile);
        oldLoaded = LoadCache(oldCache, oldFolders);
        cache.Retain(oldLoaded);
        before = MainSearchPath::Revalidate(oldFolders, oldLoaded, problems, &cache);
    } catch (...) {
        reading.wait();
        throw;
    }
    reading.wait();
    const auto newCache = CacheForPathDefinition(options.newFile);
    const bool useNewCache = WorthItsCache(newFolders, oldFolders);
    const auto newLoaded = useNewCache ? LoadCache(newCache, newFolders) : EntryList{};
    auto known = before->GetFolderEntries();
    known.insert(known.end(), newLoaded.begin(), newLoaded.end());
    cache.Retain(known);
    const auto after = MainSearchPath::Revalidate(newFolders, known, problems, &cache,
                                                  before->GetFolderEntries().size());
    progress.reset();
    PrintWarnings(problems);
    SaveCacheIfWorthIt(oldCache, oldLoaded, before->GetFolderEntries());
    if (useNewCache)
        SaveCacheIfWorthIt(newCache, newLoaded, after->GetFolderEntries());
    KeepUntilExit(before);
    KeepUntilExit(after);
    const auto report = Velmora::SearchPath::ComparePaths(*before, *after);
    PrintChangeReport(report, *after, options.json);
    return report.empty() ? kExitSame : kExitDifferent;
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

}  // namespace vpath_cli
