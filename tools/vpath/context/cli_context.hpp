#pragma once
// What every vpath command shares: how the search path is chosen and how results are printed.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_cache.hpp>
#include <velmora/searchpath/path_service.hpp>
#include <velmora/text/ustring.hpp>

#include "exit_status.hpp"

namespace vpath_cli {

// PathOptions: how the user chose the path.
//
// The path is the one saved in the path definition file: --pathdef FILE, else the host's default
// (VPATH_PATHDEF, else $XDG_CONFIG_HOME/vpath/pathdef, else ~/.config/vpath/pathdef). While that
// file does not exist, the path is empty. --path, --path-file and --example each give a path of
// their own instead, which overrides the saved one and cannot be changed (see given_path.hpp).
struct PathOptions {
    std::optional<std::string> pathList;        // --path: a path-list text
    std::optional<std::string> pathFile;        // --path-file: folders one a line; "-" for stdin
    bool example = false;                       // --example: the bundled example toolbox
    std::optional<std::string> pathDefinition;  // --pathdef: the path definition file
    bool noService = false;                     // --no-service: answer without the path service

    // GivesPath: whether the command line gives a path of its own instead of the saved one.
    bool GivesPath() const { return pathList || pathFile || example; }
};

// ToFolderIRI: the location of a folder text typed by the user: an IRI as it stands, an absolute
// path, or a path relative to the current folder; "." and ".." removed, nothing checked on disk.
foundation::storage::vfs::AbsoluteIRI ToFolderIRI(const ustring& text);

// What a command wants of the path. Watch reads it while it changes: the path cache is then
// written in the background (see PathCacheUse).
enum class Purpose { Read, Change, Watch };

// OpenManager: the manager of the saved path (see PathOptions; a path given on the command line is
// not taken into account). Prints the messages and returns null when the saved path cannot be
// read. For a change, throws std::runtime_error when a path was given on the command line, which
// cannot be changed, and when there is nowhere to save the path. `beforeScan`, if given, hears the
// path definition file and the entries its cache knows before the path is read from disk. A manager
// opened to read or change the path is kept until the process ends (see KeepUntilExit).
using BeforeScan = std::function<void(const std::string& pathDefinition,
                                      const Velmora::SearchPath::FolderEntryList& known)>;
std::shared_ptr<Velmora::SearchPath::MainSearchPathManager> OpenManager(
    const PathOptions& options, Purpose purpose, const BeforeScan& beforeScan = {});

// LoadPath: scans the path the options choose and prints scan problems as warnings on standard
// error, and how to add a folder when the saved path is empty (unless not `tell`). Throws
// std::runtime_error (after printing the messages) when the saved path cannot be read.
std::shared_ptr<const Velmora::SearchPath::MainSearchPath> LoadPath(const PathOptions& options,
                                                                    bool tell = true);

// ServedManager: while one lives, the command runs for a client of the path service: OpenManager
// and LoadPath read and change the saved path through `manager`, the service's, and keep nothing
// until the process ends (the service runs on); OutputIsTerminal tells the client's standard
// output; and `which --batch` hands its batch over to `batch`, if given, instead of reading
// standard input.
class ServedManager {
  public:
    ServedManager(Velmora::SearchPath::MainSearchPathManager& manager, bool terminal,
                  std::unique_ptr<Velmora::SearchPath::ServiceBatch>* batch = nullptr);
    ~ServedManager();
    ServedManager(const ServedManager&) = delete;
    ServedManager& operator=(const ServedManager&) = delete;
};

// ServedBatchSlot: where `which --batch` hands its batch over to the path service; null unless
// the service starts a client's batch.
std::unique_ptr<Velmora::SearchPath::ServiceBatch>* ServedBatchSlot();

// OutputIsTerminal: whether the command's standard output is a terminal (the client's, for the
// path service).
bool OutputIsTerminal();

// KeepUntilExit: keeps `object` alive until the process ends, so that a large path is not freed
// piece by piece just before the process exits.
void KeepUntilExit(std::shared_ptr<const void> object);

// DisplayBytes: a folder as users read it (its native path for a local folder), as bytes.
std::string DisplayBytes(const foundation::storage::vfs::AbsoluteIRI& folder);

// PrintMessages: each message on standard error as "vpath: TEXT [ID]".
void PrintMessages(const foundation::core::except::Notification& messages);
// HintIfEmpty: when the saved path has no folder, says on standard error how to add one.
void HintIfEmpty(const PathOptions& options, std::size_t folderCount);
// PrintWarnings: each problem on standard error as "vpath: warning: ...".
void PrintWarnings(const Velmora::SearchPath::ScanReport& report);

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
