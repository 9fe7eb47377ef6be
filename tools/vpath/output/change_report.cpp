#include "change_report.hpp"

#include <cstdio>
#include <string>

#include <boost/unordered/unordered_flat_set.hpp>
#include <nlohmann/json.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {
namespace {

using Velmora::PathManagement::IPath;

void PrintLine(const std::string& time, const std::string& kind, const std::string& path) {
    std::string line = time.empty() ? std::string() : time + ' ';
    line += kind;
    line += ' ';
    line += path;
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
}

using foundation::storage::vfs::AbsoluteIRI;
using Folders = std::vector<AbsoluteIRI>;

// A folder for scripts: its path for reading (bytes that are not UTF-8 shown as U+FFFD) and its
// location, which keeps every byte.
nlohmann::json Folder(const AbsoluteIRI& location) {
    return {{"path", DisplayBytes(location)},
            {"iri", Velmora::text::ToNative(location.toString())}};
}

// The folders of `folders` that are not in `others`: a folder that leaves the path as the special
// subfolder of a folder taken off and stays on it by its own name (or the other way round) was
// neither added nor removed.
Folders NotIn(const Folders& folders, const Folders& others) {
    const boost::unordered_flat_set<AbsoluteIRI> locations(others.begin(), others.end());
    Folders kept;
    for (const auto& f : folders) {
        if (!locations.contains(f))
            kept.push_back(f);
    }
    return kept;
}

}  // namespace

void PrintChangeReport(const Velmora::SearchPath::PathChangeReport& report, const IPath& after,
                       bool json, const std::string& time) {
    PrintChange(Velmora::SearchPath::DescribeChange(report, after), json, time);
}

void PrintChange(const Velmora::SearchPath::ServedChange& change, bool json,
                 const std::string& time) {
    const Folders added = NotIn(change.added, change.removed);
    const Folders removed = NotIn(change.removed, change.added);
    if (json) {
        nlohmann::json out = {{"added", nlohmann::json::array()},
                              {"removed", nlohmann::json::array()},
                              {"moved", nlohmann::json::array()},
                              {"refreshed", nlohmann::json::array()}};
        if (!time.empty())
            out["time"] = time;
        for (const auto& f : added)
            out["added"].push_back(Folder(f));
        for (const auto& f : removed)
            out["removed"].push_back(Folder(f));
        for (const auto& f : change.moved)
            out["moved"].push_back(Folder(f));
        for (const auto& f : change.refreshed)
            out["refreshed"].push_back(Folder(f));
        const std::string text =
            out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
        std::fwrite(text.data(), 1, text.size(), stdout);
        return;
    }
    for (const auto& f : added)
        PrintLine(time, "added", DisplayBytes(f));
    for (const auto& f : removed)
        PrintLine(time, "removed", DisplayBytes(f));
    for (const auto& f : change.moved)
        PrintLine(time, "moved", DisplayBytes(f));
    for (const auto& f : change.refreshed)
        PrintLine(time, "refreshed", DisplayBytes(f));
}

}  // namespace vpath_cli
