#pragma once
// Where the path service of a saved path lives: its socket, its lock and its log.
//
// The service of the path kept in the path definition file F has, in ServiceFolder():
//   <32 hex digits>.sock   its socket (the hex digits hash F's absolute location, as the path
//                          cache's file name does)
//   <32 hex digits>.lock   the lock (flock) its one service holds while it runs
// and logs, when started in the background, to $XDG_STATE_HOME/vpath/service-<hex>.log.
// The usual path (PathDefinitionFile::UsualLocation, where the path is saved when VPATH_PATHDEF
// does not say otherwise) has "default" in place of the hex digits: default.sock is where the
// user's systemd socket unit (vpath.socket) listens, since systemd cannot compute the hash.
//
// The folder is $XDG_RUNTIME_DIR/vpath, else the path cache folder's "run" folder. The service and
// its clients use it only when it is the user's alone: a folder of the user's, 0700, in a folder
// that no other user may write to (ServiceFolderProblem).

#include <optional>
#include <string>

#include <velmora/searchpath/export.hpp>

namespace Velmora::SearchPath {

// The name of the usual path's service files (default.sock, default.lock).
inline constexpr char kUsualPathServiceKey[] = "default";

// ServicePlace: the files of one path's service.
struct ServicePlace {
    std::string pathDefinition;  // the path definition file, absolute
    std::string key;             // the 32 hex digits, or kUsualPathServiceKey
    std::string folder;
    std::string socket;
    std::string lock;
    std::string log;  // empty when there is nowhere to log
};

// ServiceFolder: the folder of the user's services; empty when none can be named (no
// XDG_RUNTIME_DIR, XDG_CACHE_HOME or HOME).
VELMORA_SEARCHPATH_EXPORT std::string ServiceFolder();

// PlaceOfService: the service files of the path kept in `pathDefinition` (a native path,
// relative to the current folder or absolute); none when there is no service folder, or the
// socket's path would be too long for the system.
VELMORA_SEARCHPATH_EXPORT std::optional<ServicePlace> PlaceOfService(
    const std::string& pathDefinition);

// ServiceFolderProblem: why `folder` may not hold a service's socket, naming what is wrong;
// empty when it may. With `make`, a folder that is missing is made (0700) first.
VELMORA_SEARCHPATH_EXPORT std::string ServiceFolderProblem(const std::string& folder, bool make);

}  // namespace Velmora::SearchPath
