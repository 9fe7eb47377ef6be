#pragma once
// Path cache and change notification: saving the toolbox path cache through the path-entry
// factory.
//
//   WriteToolboxPathCache(AbsoluteIRI(u"file:///home/ada/.cache/vpath/tb.cache"),
//                         AbsoluteIRI(u"file:///home/ada/tb"), factory);
//   // the file holds what factory.WriteCache wrote, or, if that failed, is gone

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

}  // namespace Velmora::PathManagement
