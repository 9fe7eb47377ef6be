#pragma once
// Path cache and change notification.

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathmanagement/export.hpp>

namespace Velmora::PathManagement {

// ---------------------------------------------------------------------------------------------
// Upstream notification of special-subfolder changes
//
// A change inside a "+" package folder, an "@" class folder, or a private or resources folder
// concerns the ordinary folder that holds them, which may be several levels up. These functions
// walk up from the changed location and send one FileFolderChangedEvent (FrozenInclusion 0)
// through the current session's event manager (DeliverMode 0) for each level, bottom up, up to and
// including the first ordinary folder. A last name that holds a "." is taken for a file, even when
// it names a folder. They return nothing.
//
//   change at file:///tb/@Poly/+impl/area.vl  => events for .../area.vl, .../+impl, .../@Poly and
//                                                file:///tb, in this order
//   change at file:///tb/private               => events for .../private and file:///tb
//   change at file:///tb/v1.2                  => events for .../v1.2 and file:///tb
//   change at file:///tb                       => one event, for file:///tb

// NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges: walks from the location with its
// dot segments removed. A location that is not a valid IRI sends nothing more and is not an error.
VELMORA_PATHMANAGEMENT_EXPORT void NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
    const foundation::storage::vfs::AbsoluteIRI& changedLocation);

// NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize: walks from the
// canonical location (symbolic links resolved on disk). When that cannot be had, it falls back to
// NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges on the location as given; levels
// notified before the failure are not withdrawn, so some may hear of the change twice.
VELMORA_PATHMANAGEMENT_EXPORT void
NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
    const foundation::storage::vfs::AbsoluteIRI& changedLocation);

}  // namespace Velmora::PathManagement
