#pragma once
// Nearest valid names for a mistyped subcommand or option.

#include <string>
#include <vector>

namespace vpath_cli {

// NearestNames: the candidates closest to `typed` (in candidate order), by edit distance with
// swapped neighbours counting as one edit, and those that `typed` begins; none when nothing is
// close enough to be what was meant.
//
//   NearestNames("whcih", {"which", "watch", "path"})  => {"which"}
//   NearestNames("--path-f", {"--path", "--path-file"}) => {"--path-file"}
//   NearestNames("xyzzy", {"which", "ls"})              => {}
//   NearestNames("-V", {"-h", "--help", "--version"})   => {"--version"}  a short option by its
//   letter NearestNames("-A", {"-a", "--all", "--json"})       => {"-a"}
std::vector<std::string> NearestNames(const std::string& typed,
                                      const std::vector<std::string>& candidates);

// DidYouMean: "; did you mean 'a' or 'b'?" for the nearest names, or nothing.
std::string DidYouMean(const std::string& typed, const std::vector<std::string>& candidates);

}  // namespace vpath_cli
