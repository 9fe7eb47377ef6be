#pragma once
// Path cache and change notification: saving the toolbox path cache through the path-entry
// factory, and telling the entries above a changed folder that it changed.
//
//   WriteToolboxPathCache(AbsoluteIRI(u"file:///home/ada/.cache/vpath/tb.cache"),
//                         AbsoluteIRI(u"file:///home/ada/tb"), factory);
//   // the file holds what factory.WriteCache wrote, or, if that failed, is gone
//
//   NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
//       AbsoluteIRI(u"file:///home/ada/tb/+shapes/area.vl"));
//   // FileFolderChangedEvents for .../area.vl, .../+shapes and file:///home/ada/tb

#include <memory>

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath_entry_factory.hpp>
#include <velmora/pathmanagement/export.hpp>

namespace Velmora::PathManagement {

// ---- The toolbox path cache ----

// UnableToSaveToolboxCacheException: the toolbox path cache could not be saved. Its type is the
// whole message.
class VELMORA_PATHMANAGEMENT_EXPORT UnableToSaveToolboxCacheException
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception> {
  public:
    std::unique_ptr<foundation::core::except::IBaseException> clone() const override;
    [[noreturn]] void rethrow() const override;
    ~UnableToSaveToolboxCacheException() override;
};

// WriteToolboxPathCache: writes the cache file at `cacheFile` with the content that
// `factory.WriteCache(stream, root)` produces. The file is emptied (or created) first.
//
//   what happens                          => result                          file afterwards
//   the factory writes its content        => returns                         that content
//   the file cannot be opened for writing => UnableToSaveToolboxCacheException  as it was before
//   the factory or a write to the file    => UnableToSaveToolboxCacheException  removed
//     fails
//
// An error of the open that is not the storage layer's passes through unchanged, as does an error
// of closing or removing the file after a failed write.
VELMORA_PATHMANAGEMENT_EXPORT void WriteToolboxPathCache(
    const foundation::storage::vfs::AbsoluteIRI& cacheFile,
    const foundation::storage::vfs::AbsoluteIRI& root, const IPathEntryFactory& factory);

// ---- Upstream notification of special-subfolder changes ----
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
