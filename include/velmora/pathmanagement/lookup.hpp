#pragma once
// File lookup on any path: to which file a name resolves, and which files have given extensions.
//
// They work alike on the main search path and on every view over paths, and ask the entries
// themselves to match files; their own work is the order in which scopes, class folders and a
// folder's private folder are consulted, and how two candidates are ranked.
//
//   const std::vector<ustring>& exts = Constants::LanguageExtensions;
//   const ustring name = u"area";
//   const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
//   auto hit = FindFirstFileVisibleOnPath(*path, target, FilenameMatchingPolicy::PlatformDefault);
//   // hit->GetPathItem(): the area file in use; hit->GetPathEntry(): the folder that holds it

#include <memory>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/pathmanagement/search_target.hpp>

namespace Velmora::PathManagement {

// FindFirstFileVisibleOnPath: the file a name resolves to on the path. A plain name is looked up
// in the main entries and in the class folders of that name ("@area" holding area.vl); a class
// folder's file wins only if its folder comes first on the path. A name with separators
// ("shapes/circle") is looked up in package, class and private folders too, and nothing else is
// consulted.
VELMORA_PATHMANAGEMENT_EXPORT OptionalFoundItem FindFirstFileVisibleOnPath(
    const IPath& path, const detail::SearchTarget& target, FilenameMatchingPolicy policy);

// FindFirstFileVisibleFromFolder: the file a name resolves to as seen from a file in `folder`:
// the folder's private folder comes before the whole path. Then, unless the at-folder precedence
// setting of the packages library is on (VorlanPackages::isAtFolderPrecedenceFeatureOn), a class
// folder's file wins over the main entries wherever it stands on the path; with the setting on,
// the answer is FindFirstFileVisibleOnPath's. A folder that is not on the path is as if none had
// been given.
VELMORA_PATHMANAGEMENT_EXPORT OptionalFoundItem FindFirstFileVisibleFromFolder(
    const IPath& path, const foundation::storage::vfs::AbsoluteIRI& folder,
    const detail::SearchTarget& target, FilenameMatchingPolicy policy);
VELMORA_PATHMANAGEMENT_EXPORT OptionalFoundItem
FindFirstFileVisibleFromFolder(const IPath& path, const foundation::storage::vfs::Folder& folder,
                               const detail::SearchTarget& target, FilenameMatchingPolicy policy);

// FindFilesByExtensions: every file of the entries that the scope selects whose extension is in
// `extensions`, in walk order, and within an entry in the entry's order, once per matching
// extension (a repeated extension lists a file twice).
VELMORA_PATHMANAGEMENT_EXPORT std::vector<FoundItem> FindFilesByExtensions(
    const IPath& path, SearchScope scope, const std::vector<ustring>& extensions,
    FilenameMatchingPolicy policy);
// FindFilesByExtensions on one entry alone.
VELMORA_PATHMANAGEMENT_EXPORT std::vector<FoundItem> FindFilesByExtensions(
    const std::shared_ptr<const IPathEntry>& entry, const std::vector<ustring>& extensions,
    FilenameMatchingPolicy policy);

}  // namespace Velmora::PathManagement
