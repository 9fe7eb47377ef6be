#pragma once
// What every vpath command shares: how the search path is chosen and how results are printed.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/text/ustring.hpp>

namespace vpath_cli {

// Exit statuses of the command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitNotFound = 1;  // a name resolved to nothing
inline constexpr int kExitUsage = 2;     // bad arguments or an unusable path

// PathOptions: how the user chose the path.
struct PathOptions {
    std::optional<std::string> pathList;  // --path: a path-list text
};

// ToFolderIRI: the location of a folder text typed by the user: an IRI as it stands, an absolute
// path, or a path relative to the current folder.
foundation::storage::vfs::AbsoluteIRI ToFolderIRI(const ustring& text);

// LoadPath: scans the path the options choose (the bundled example toolbox by default) and prints
// scan problems as warnings on standard error.
std::shared_ptr<const Velmora::SearchPath::MainSearchPath> LoadPath(const PathOptions& options);

// NativePathOf: the file's path as bytes for printing, exactly as on disk.
std::string NativePathOf(const Velmora::PathManagement::PathItem& item);

// Arg: a command-line argument (bytes) as text.
inline ustring Arg(const std::string& bytes) {
    return Velmora::text::FromNative(bytes);
}

// Warn, Fail: print "vpath: warning: ..." and "vpath: ..." on standard error.
void Warn(const std::string& message);
void Fail(const std::string& message);

}  // namespace vpath_cli
