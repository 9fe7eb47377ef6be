#include <velmora/pathmanagement/cache_and_notify.hpp>

#include <ios>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/ofstream.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

namespace Velmora::PathManagement {

std::unique_ptr<foundation::core::except::IBaseException> UnableToSaveToolboxCacheException::clone()
    const {
    return std::make_unique<UnableToSaveToolboxCacheException>(*this);
}

void UnableToSaveToolboxCacheException::rethrow() const {
    throw *this;
}

UnableToSaveToolboxCacheException::~UnableToSaveToolboxCacheException() = default;

void WriteToolboxPathCache(const foundation::storage::vfs::AbsoluteIRI& cacheFile,
                           const foundation::storage::vfs::AbsoluteIRI& root,
                           const IPathEntryFactory& factory) {
    const foundation::storage::vfs::File file(cacheFile,
                                              VorlanStorageSystem::GetStorageSystemReference());
    foundation::storage::vfs::ofstream stream;
    try {
        stream.open(file, std::ios_base::out);
    } catch (const foundation::storage::vfs::Exception&) {
        // Nothing was written, so whatever was there before stays.
        throw UnableToSaveToolboxCacheException();
    }
    try {
        stream.exceptions(std::ios_base::badbit | std::ios_base::failbit);
        factory.WriteCache(stream, root);
    } catch (...) {
        // A part of a cache is worse than none: the reader would have to find out.
        stream.close();
        file.removeFile();
        throw UnableToSaveToolboxCacheException();
    }
}

}  // namespace Velmora::PathManagement
