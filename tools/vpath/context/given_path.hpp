#pragma once
// A path given on the command line instead of the saved one: --path TEXT, --path-file FILE and
// --example.
//
//   --path "tb:/opt/x;file:///srv/y"   three folders: a "file:" IRI keeps its colon
//   --path-file folders.txt            one folder per line; "#" starts a comment line
//   --path-file -                      the same from standard input
//   --example                          the folders of the bundled example toolbox

#include <optional>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/text/ustring.hpp>

#include "cli_context.hpp"
#include "path_texts.hpp"

namespace vpath_cli {

// GivenFolders: the folders of the path that the command line gives, in order; nothing when it
// gives none (the saved path is meant). Relative folders are taken from the current folder.
// Throws std::runtime_error when more than one path is given, when the file cannot be read (it is
// not a regular file, or it or standard input holds more than the path definition file's cap),
// when one of its lines holds a NUL (shown whole, the NUL as \0), and when the example toolbox
// cannot be found.
std::optional<std::vector<foundation::storage::vfs::AbsoluteIRI>> GivenFolders(
    const PathOptions& options);

// ExampleToolboxRoot: the bundled example toolbox, found beside the running program: where it
// installs (BINDIR/../share/vpath/examples/toolbox), else, for the program in its build tree,
// the source tree's. Nothing when neither exists.
std::optional<std::string> ExampleToolboxRoot();

}  // namespace vpath_cli
