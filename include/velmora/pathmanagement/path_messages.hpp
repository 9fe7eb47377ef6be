#pragma once
// The messages of the path-editing operations.
//
// Each class is a message record (foundation/core/except/message_record.hpp) built from the
// folder text it is about; the texts live in the host's message catalogue.
//
//   VORLAN::vpath::invalidLocation(u"")            id "VORLAN:vpath:invalidLocation"
//   VORLAN::rmpath::DirNotFound(u"/srv/tb")        id "VORLAN:rmpath:DirNotFound"
//
// Every class holds exactly one argument: the folder text as a ustring.

#include <foundation/core/except/message_record.hpp>
#include <velmora/pathmanagement/export.hpp>
#include <velmora/text/ustring.hpp>

namespace VORLAN::vpath {

// invalidLocation: the text names no location at all (empty, NUL, no valid IRI).
class VELMORA_PATHMANAGEMENT_EXPORT invalidLocation : public resource_core::MessageRecord {
  public:
    explicit invalidLocation(const ustring& folder);
};

// directoryPermissionDenied: the folder, or one on the way to it, may not be read.
class VELMORA_PATHMANAGEMENT_EXPORT directoryPermissionDenied
    : public resource_core::MessageRecord {
  public:
    explicit directoryPermissionDenied(const ustring& folder);
};

// nameNonexistentOrNotADirectory: nothing is there, something that is not a folder is there or on
// the way there, or symbolic links loop.
class VELMORA_PATHMANAGEMENT_EXPORT nameNonexistentOrNotADirectory
    : public resource_core::MessageRecord {
  public:
    explicit nameNonexistentOrNotADirectory(const ustring& folder);
};

// directoryNameTooLong: the folder's name, or the whole path, is longer than the system allows.
class VELMORA_PATHMANAGEMENT_EXPORT directoryNameTooLong : public resource_core::MessageRecord {
  public:
    explicit directoryNameTooLong(const ustring& folder);
};

// cannotAbsolutizePath: the text cannot be made the real location of a folder; thrown, not
// collected (see CanonicalizeRelativePathAgainstCWD).
class VELMORA_PATHMANAGEMENT_EXPORT cannotAbsolutizePath : public resource_core::MessageRecord {
  public:
    explicit cannotAbsolutizePath(const ustring& folder);
};

}  // namespace VORLAN::vpath

namespace VORLAN::rmpath {

// DirNotFound: a folder to be removed is not on the main search path. The argument is the
// folder's display text (GetStringFromIRI).
class VELMORA_PATHMANAGEMENT_EXPORT DirNotFound : public resource_core::MessageRecord {
  public:
    explicit DirNotFound(const ustring& folder);
};

}  // namespace VORLAN::rmpath
