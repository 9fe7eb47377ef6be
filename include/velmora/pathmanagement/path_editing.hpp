#pragma once
// Adding folders to and removing folders from the main search path, and the folders of packages.
//
// The operations never edit the manager's list in place: they read the whole current folder list,
// compute the whole new list and hand it to the manager (IMainSearchPathManager) in one call.
// Problems that the user must fix come back as messages in the returned Notification, and any
// message means that nothing changed.
//
//   path: /a /b /c /d /e (as IRIs)
//   AddIRIsToVorlanPath({/c}, manager, Position::Front)     => path /c /a /b /d /e
//   AddIRIsToVorlanPath({/c}, manager, Position::End)       => path /a /b /d /e /c
//   AddIRIsToVorlanPath({/x, /y, /x}, manager, Front)       => path /x /y /a /b /c /d /e
//   RemoveIRIsFromVorlanPath({/b, /z}, manager)             => path unchanged, one message
//                                                             VORLAN:rmpath:DirNotFound "/z"

#include <cstdint>
#include <span>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/packages/component_identifier.hpp>
#include <velmora/packages/package_registry.hpp>
#include <velmora/pathinterfaces/any_range_adapter.hpp>
#include <velmora/pathinterfaces/main_search_path_manager.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

// Position: where added folders go. Front is 0; every other value, End included, means the end.
enum class Position : std::int32_t {
    Front = 0,
    End = 1,
};

// --- Changing the main search path -----------------------------------------------------------

// AddFoldersToVorlanPath: adds the folders that the texts name (made absolute by `currentFolder`)
// as one block at `position`, in input order, each once. A folder already on the path moves. If a
// text cannot be made a folder's location, the messages of every such text come back and the
// manager is not called.
VELMORA_PATHMANAGEMENT_EXPORT foundation::core::except::Notification AddFoldersToVorlanPath(
    const detail::AnyRangeAdapter<ustring>& folders,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    IMainSearchPathManager& manager, Position position);

// AddIRIsToVorlanPath: adds the folders as one block at `position`, in input order, each once; a
// folder already on the path moves. Always hands the manager a new list, even an unchanged one.
// Returns what the manager reported. A RecursivePathChangeException of the manager is swallowed:
// the call then returns normally and the path is as the manager left it.
VELMORA_PATHMANAGEMENT_EXPORT foundation::core::except::Notification AddIRIsToVorlanPath(
    const detail::AnyRangeAdapter<foundation::storage::vfs::AbsoluteIRI>& folders,
    IMainSearchPathManager& manager, Position position);

// RemoveFoldersFromVorlanPath: removes the folders that the texts name (made absolute by
// `currentFolder`). Bad texts are reported as for AddFoldersToVorlanPath.
VELMORA_PATHMANAGEMENT_EXPORT foundation::core::except::Notification RemoveFoldersFromVorlanPath(
    const detail::AnyRangeAdapter<ustring>& folders,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    IMainSearchPathManager& manager);

// RemoveIRIsFromVorlanPath: removes the folders from the path. A folder is found on the path as it
// is written or, failing that, by its canonical location (symbolic links resolved). Each folder
// found in neither form is reported as VORLAN:rmpath:DirNotFound with its display text, and then
// nothing is removed. A RecursivePathChangeException of the manager is swallowed.
VELMORA_PATHMANAGEMENT_EXPORT foundation::core::except::Notification RemoveIRIsFromVorlanPath(
    const detail::AnyRangeAdapter<foundation::storage::vfs::AbsoluteIRI>& folders,
    IMainSearchPathManager& manager);

// --- Packages and the path -------------------------------------------------------------------

// PackageIsOnPath: whether the manager reports the package (same unique id and version) on the
// path.
VELMORA_PATHMANAGEMENT_EXPORT bool PackageIsOnPath(
    const Velmora::VorlanComponents::ComponentIdentifier& component,
    const IMainSearchPathManager& manager);

// GetPathFoldersForPackages: the folders that the packages put on the search path, package by
// package, duplicates kept. Unknown and unusable packages contribute nothing. A package installed
// by the package manager contributes its folders tagged 0 (PackageRegistry::kSearchPathTag); a
// manually installed one contributes its root folder if its "ManualInstall" property is true.
// Throws std::bad_variant_access if that property is not a boolean.
VELMORA_PATHMANAGEMENT_EXPORT std::vector<foundation::storage::vfs::AbsoluteIRI>
GetPathFoldersForPackages(
    const Velmora::PackageRegistry::IPackageRegistry& registry,
    std::span<const Velmora::VorlanComponents::ComponentIdentifier> components);

}  // namespace Velmora::PathManagement
