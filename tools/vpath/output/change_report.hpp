#pragma once
// Printing what a change of the search path did.

#include <string>

#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/served_change.hpp>

namespace vpath_cli {

// PrintChangeReport: one line per changed folder on standard output, as "added PATH",
// "removed PATH", "moved PATH" and "refreshed PATH" (the folder read anew because its contents
// changed); with `json`, one JSON object instead (see the README). Moved folders are listed in
// their order on `after`. A non-empty `time` starts each line ("TIME added PATH") and is the JSON
// object's "time".
void PrintChangeReport(const Velmora::SearchPath::PathChangeReport& report,
                       const Velmora::PathManagement::IPath& after, bool json,
                       const std::string& time = {});

// PrintChange: the same for a change told by its folders (DescribeChange, or a path service).
void PrintChange(const Velmora::SearchPath::ServedChange& change, bool json,
                 const std::string& time = {});

}  // namespace vpath_cli
