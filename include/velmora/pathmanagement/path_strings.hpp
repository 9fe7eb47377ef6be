#pragma once
// Path strings: folder texts as users type them, path-list texts, and the resource identifiers
// (AbsoluteIRI) that stand for folders.
//
//   SplitVorlanPath(u"/a/tb;/b/utils:/c")            => {u"/a/tb", u"/b/utils", u"/c"}
//   GetIRIFromString(u"/home/ada//tb/")              => "file:///home/ada/tb"
//   GetIRIFromString(u"FILE:///home/ada/my%20tb")    => "file:///home/ada/my%20tb"
//   GetStringFromIRI(AbsoluteIRI(u"file:///my%20tb"))  => u"/my tb"
//   GetStringFromIRI(AbsoluteIRI(u"http://h/a%20b"))   => u"http://h/a b"
//
// The conversions that take a bad text throw the storage layer's exceptions
// (foundation::storage::vfs::InvalidIRIException, foundation::storage::vfs::Exception); only
// CanonicalizeRelativePathAgainstCWD and ConvertUstringRangeToAbsoluteIRIs turn failures into
// messages for users.

#include <vector>

#include <fl/filesystem/path.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathinterfaces/any_range_adapter.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

// --- Path-list texts -------------------------------------------------------------------------

// SplitVorlanPath: the folder texts of a path-list text, in order. Both ";" and the platform's
// separator (Constants::VorlanPathsepStr) separate; empty pieces are dropped; nothing else is
// changed: no trimming, no escapes, no conversion.
//
//   SplitVorlanPath(u";;a;;")   => {u"a"}
//   SplitVorlanPath(u" a ; b ") => {u" a ", u" b "}
VELMORA_PATHMANAGEMENT_EXPORT std::vector<ustring> SplitVorlanPath(const ustring& text);

// --- Folder texts and IRIs -------------------------------------------------------------------

// GetIRIFromString: the location that `text` names. A text that starts like an IRI
// (foundation::storage::vfs::hasIRIPrefix) is normalised and taken as it stands; any other text is
// a file-system path, put in native form and given the scheme "file". Throws InvalidIRIException
// for a text that is neither a valid IRI nor an absolute path (a relative path, the empty text).
//
//   u"/srv//tb/"            => "file:///srv/tb"
//   u"file:/srv/tb/"        => "file:///srv/tb"
//   u"http://host/a/../b"   => "http://host/a/../b"    (normalised, dot segments kept)
//   u"tb"                   => throws InvalidIRIException
VELMORA_PATHMANAGEMENT_EXPORT foundation::storage::vfs::AbsoluteIRI GetIRIFromString(
    const ustring& text);

// GetStringFromIRI: the text to show for a location: the native path of a "file" IRI, the whole
// IRI text with its escapes decoded for any other scheme.
//
//   "file:///srv/my%20tb"   => u"/srv/my tb"
//   "http://host/my%20tb"   => u"http://host/my tb"
VELMORA_PATHMANAGEMENT_EXPORT ustring
GetStringFromIRI(const foundation::storage::vfs::AbsoluteIRI& iri);

// GetCanonicalIRI: the real location of the folder at `iri`, symbolic links resolved. Throws
// foundation::storage::vfs::Exception if no folder is there.
VELMORA_PATHMANAGEMENT_EXPORT foundation::storage::vfs::AbsoluteIRI GetCanonicalIRI(
    const foundation::storage::vfs::AbsoluteIRI& iri);

// GetCanonicalIRIFromString: GetCanonicalIRI(GetIRIFromString(text)).
VELMORA_PATHMANAGEMENT_EXPORT foundation::storage::vfs::AbsoluteIRI GetCanonicalIRIFromString(
    const ustring& text);

// CanonicalizeRelativePathAgainstCWD: the real location of the folder that `text` names, a
// relative text being taken from the current folder. Any failure raises the user error
// "VORLAN:vpath:cannotAbsolutizePath" naming `text`, through
// foundation::core::except::RaiseLegacyUserError: it throws
// Exception<VORLAN::vpath::cannotAbsolutizePath, std::exception>.
VELMORA_PATHMANAGEMENT_EXPORT foundation::storage::vfs::AbsoluteIRI
CanonicalizeRelativePathAgainstCWD(
    const ustring& text,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder);

// RemoveRootPathFromAbsolutePath: the path's text without its root; a relative path's text as it
// is. Throws std::out_of_range if the root is nowhere in the text.
//
//   path(u"/home/ada/tb")  => u"home/ada/tb"
//   path(u"tb/x")          => u"tb/x"
VELMORA_PATHMANAGEMENT_EXPORT ustring
RemoveRootPathFromAbsolutePath(const fl::filesystem::path& path);

// --- Folder arguments ------------------------------------------------------------------------

// ConvertUstringRangeToAbsoluteIRIs: the locations of the folders that `folders` name, each made
// absolute by `currentFolder`, in input order, duplicates kept. A folder that the service rejects
// as a user error (codes 0, 3, 4 to 7 and 9) is left out and reported in `notification` instead
// (see path_messages.hpp); the other folders are still converted. Any other failure of the
// service ends the conversion with the service's own exception.
//
//   folders {u"tb", u"missing", u"/srv/utils"}, current folder /home/ada
//     => {"file:///home/ada/tb", "file:///srv/utils"}, and notification gains
//        VORLAN:vpath:nameNonexistentOrNotADirectory naming u"missing"
VELMORA_PATHMANAGEMENT_EXPORT std::vector<foundation::storage::vfs::AbsoluteIRI>
ConvertUstringRangeToAbsoluteIRIs(
    const detail::AnyRangeAdapter<ustring>& folders,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    foundation::core::except::Notification& notification);

}  // namespace Velmora::PathManagement
