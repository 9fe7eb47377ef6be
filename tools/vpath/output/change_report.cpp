#include "change_report.hpp"

#include <algorithm>
#include <cstdio>
#include <string>

#include <boost/unordered/unordered_flat_set.hpp>
#include <nlohmann/json.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {
namespace {

using Velmora::PathManagement::IPath;
using Velmora::PathManagement::PathEntryVector;

void PrintLine(const std::string& time, const std::string& kind, const std::string& path) {
    std::string line = time.empty() ? std::string() : time + ' ';
    line += kind;
    line += ' ';
    line += path;
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
}

// A folder for scripts: its path for reading (bytes that are not UTF-8 shown as U+FFFD) and its
// location, which keeps every byte.
nlohmann::json Folder(const Velmora::PathManagement::IPathEntry& entry) {
    const auto location = entry.GetAbsoluteIRI();
    return {{"path", DisplayBytes(location)},
            {"iri", Velmora::text::ToNative(location.toString())}};
}

// The moved entries in their order on the new path; the report gives them as a set.
PathEntryVector InPathOrder(PathEntryVector entries, const IPath& after) {
    std::stable_sort(entries.begin(), entries.end(), [&](const auto& a, const auto& b) {
        return after.FirstEntryIsBeforeSecondOnPath(*a, *b);
    });
    return entries;
}

// The entries of `entries` whose folders are not in `others`: a folder that leaves the path as the
// special subfolder of a folder taken off and stays on it by its own name (or the other way round)
// was neither added nor removed.
PathEntryVector NotIn(const PathEntryVector& entries, const PathEntryVector& others) {
    boost::unordered_flat_set<foundation::storage::vfs::AbsoluteIRI> locations;
    for (const auto& e : others)
        locations.insert(e->GetAbsoluteIRI());
    PathEntryVector kept;
    for (const auto& e : entries) {
        if (!locations.contains(e->GetAbsoluteIRI()))
            kept.push_back(e);
    }
    return kept;
}

}  // namespace

void PrintChangeReport(const Velmora::SearchPath::PathChangeReport& report, const IPath& after,
                       bool json, const std::string& time) {
    const PathEntryVector added = NotIn(*report.added, *report.removed);
    const PathEntryVector removed = NotIn(*report.removed, *report.added);
    const PathEntryVector moved = InPathOrder(*report.reordered, after);
    if (json) {
        nlohmann::json out = {{"added", nlohmann::json::array()},
                              {"removed", nlohmann::json::array()},
                              {"moved", nlohmann::json::array()},
                              {"refreshed", nlohmann::json::array()}};
        if (!time.empty())
            out["time"] = time;
        for (const auto& e : added)
            out["added"].push_back(Folder(*e));
        for (const auto& e : removed)
            out["removed"].push_back(Folder(*e));
        for (const auto& e : moved)
            out["moved"].push_back(Folder(*e));
        for (const auto& e : *report.refreshedAfter)
            out["refreshed"].push_back(Folder(*e));
        const std::string text =
            out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
        std::fwrite(text.data(), 1, text.size(), stdout);
        return;
    }
    for (const auto& e : added)
        PrintLine(time, "added", DisplayBytes(e->GetAbsoluteIRI()));
    for (const auto& e : removed)
        PrintLine(time, "removed", DisplayBytes(e->GetAbsoluteIRI()));
    for (const auto& e : moved)
        PrintLine(time, "moved", DisplayBytes(e->GetAbsoluteIRI()));
    for (const auto& e : *report.refreshedAfter) {
        PrintLine(time, "refreshed", DisplayBytes(e->GetAbsoluteIRI()));
    }
}

}  // namespace vpath_cli
