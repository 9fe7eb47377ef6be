#pragma once
// Warnings for folders that users add by mistake.

#include <string>
#include <vector>

namespace vpath_cli {

// WarnOfSpecialFolders: a warning on standard error for each folder text whose folder is itself a
// package ("+"), class ("@"), private or resources folder. Such a folder is searched through the
// ordinary folder that holds it; put on the path by itself, its files are found under the wrong
// names, and its own special folders not at all.
void WarnOfSpecialFolders(const std::vector<std::string>& folders);

}  // namespace vpath_cli
