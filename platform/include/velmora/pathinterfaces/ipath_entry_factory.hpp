#pragma once
// IPathEntryFactory: the maker of path entries, which also saves what it knows of them as the
// toolbox path cache.
//
// The cache's content belongs to the factory: whoever saves it opens the file, hands the open
// stream to WriteCache and owns the file's life (see WriteToolboxPathCache).

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/ofstream.hpp>
#include <velmora/platform/export.hpp>

namespace Velmora::PathManagement {

class VELMORA_PLATFORM_EXPORT IPathEntryFactory {
  public:
    virtual ~IPathEntryFactory();

    // WriteCache: writes the whole cache content to `stream`, describing it as the cache of
    // `root`. A failure throws; the stream may hold part of the content then.
    virtual void WriteCache(foundation::storage::vfs::ofstream& stream,
                            const foundation::storage::vfs::AbsoluteIRI& root) const = 0;

  protected:
    IPathEntryFactory() = default;
    IPathEntryFactory(const IPathEntryFactory&) = default;
    IPathEntryFactory& operator=(const IPathEntryFactory&) = default;
};

}  // namespace Velmora::PathManagement
