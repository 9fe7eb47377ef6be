#pragma once
// Partial pathnames: a file or folder named together with some of the folders above it
// ("stats/mean", "geometry/+shapes/circle", "shapes/@Polygon"), and whether a path entry or a
// folder path ends with the folders that such a name gives.
//
// Matching runs from the right: the last part against the entry's own folder, the part before it
// against the folder above, and so on. Two families of rules:
//   - lenient (DoesPartialPathnameMatchPathEntryIRI): a "+" or "@" in front of a folder name may be
//     left out, the comparator of the entry decides case, and a match may begin below class,
//     private and resources folders, but every "+" folder between the match and the ordinary folder
//     that owns it must be named;
//   - strict (DoesPartialPathnameStrictlyMatch...): "+", "@" and private folder names compare
//     exactly whatever the policy, and the parts must reach up to the owning ordinary folder.
//
//   const auto parts = SplitPartialPathname(u"shapes/circle");      // {u"shapes", u"circle"}
//   const auto inShapes = SplitPartialPathname(u"shapes");
//   DoesPartialPathnameMatchPathEntryIRI(inShapes, entryOf("/tb/geometry/+shapes"), policy)
//       => true
//   DoesPartialPathnameStrictlyMatchPathString(inShapes, u"/tb/geometry/+shapes", matcher)
//       => false ("+shapes" must be spelled with its "+")

#include <memory>

#include <boost/container/small_vector.hpp>
#include <boost/iterator/iterator_categories.hpp>

#include <velmora/pathinterfaces/any_range_adapter.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

// PartialPathnameParts: the parts of a partial pathname, left to right.
using PartialPathnameParts = boost::container::small_vector<ustring, 6>;

// PartialPathnameRange: the parts as the matching functions take them, any bidirectional range of
// ustring (a PartialPathnameParts, a std::vector<ustring>, ...). It must outlive the call.
using PartialPathnameRange = detail::AnyRangeAdapter<ustring, boost::bidirectional_traversal_tag>;

// SplitPartialPathname: the non-empty pieces of `text` between separators
// (Constants::PathnameSeparatorStr), in order. Nothing else is removed: dots, "+" and "@" stay.
//
//   u"+shapes//circle.vl" => {u"+shapes", u"circle.vl"}
//   u"/a/"                => {u"a"}
//   u"//"                 => {}
VELMORA_PATHMANAGEMENT_EXPORT PartialPathnameParts SplitPartialPathname(const ustring& text);

// DoesPartialPathnameMatchPathEntryIRI: whether the folders of the entry's location end with
// `parts` under the lenient rule: a part names a folder if the entry's comparator
// (GetExtensionMatcher(policy), called with the part first) says it equals the folder's name or,
// for a "+" or "@" folder, the name without that character. Left of the matched folders, class,
// private and resources folders may be passed over up to the first ordinary folder; a "+" folder
// there makes it false. More parts than folders: false.
//
//   parts              location                         result
//   {shapes, Polygon}  /tb/geometry/+shapes/@Polygon    true ("+" and "@" left out)
//   {Polygon}          /tb/geometry/+shapes/@Polygon    false (+shapes is left unnamed)
//   {circle}           /tb/geometry/+shapes/circle      false (+shapes is left unnamed)
//   {inner}            /tb/stats/@Sample/private/inner  true (begins below @Sample/private)
//   {+shapes}          /tb/geometry/+shapes             true, and so is {shapes}
VELMORA_PATHMANAGEMENT_EXPORT bool DoesPartialPathnameMatchPathEntryIRI(
    const PartialPathnameRange& parts, std::shared_ptr<const IPathEntry> entry,
    const FilenameMatchingPolicy& policy);

// DoesPartialPathnameMatchPathEntryIRI on a path: as above, but walks the entries of `path` from
// `entry` up through GetParentEntryForEntry for as long as there are parent entries: each part
// names the current entry's own folder under the lenient rule, with that entry's comparator. Once
// a main entry is reached, the parts left (the one just matched included) must equal the folder
// names of its location from the right, by its comparator called with the folder name first, and
// with no leniency for "+" or "@". When the parts run out below a main entry, no entry above
// (the next one included) may be a "+" folder.
VELMORA_PATHMANAGEMENT_EXPORT bool DoesPartialPathnameMatchPathEntryIRI(
    const IPath& path, const PartialPathnameRange& parts, std::shared_ptr<const IPathEntry> entry,
    const FilenameMatchingPolicy& policy);

// DoesPartialPathnameStrictlyMatchPathString: whether the folders of `folderPath` end with `parts`
// under the strict rule. Against a folder name n:
//   n begins with "+"            the part equals n exactly
//   n begins with "@"            the part equals n exactly, or n without its "@" exactly
//   n is the private folder      the part equals it exactly
//   any other n                  comparator(part, n)
// The folder left of the matched ones, if any, must be ordinary: no special folder is skipped.
//
//   parts         folderPath               result
//   {+shapes}     /tb/geometry/+shapes     true
//   {shapes}      /tb/geometry/+shapes     false
//   {Polygon}     /tb/stats/@Polygon       true
//   {}            /tb/geometry/+shapes     false
VELMORA_PATHMANAGEMENT_EXPORT bool DoesPartialPathnameStrictlyMatchPathString(
    const PartialPathnameRange& parts, const ustring& folderPath, const NameMatcher& comparator);

// DoesPartialPathnameStrictlyMatchPathEntryIRI: the strict rule on the entry's location (as
// GetStringFromIRI shows it), with the entry's comparator for `policy`.
VELMORA_PATHMANAGEMENT_EXPORT bool DoesPartialPathnameStrictlyMatchPathEntryIRI(
    const PartialPathnameRange& parts, const IPathEntry& entry,
    const FilenameMatchingPolicy& policy);

}  // namespace Velmora::PathManagement
