#pragma once
// The product's storage system.

#include <foundation/storage/vfs/folder.hpp>
#include <velmora/platform/export.hpp>

namespace Velmora::VorlanStorageSystem {

// GetStorageSystemReference: the storage system on which the product's locations resolve.
VELMORA_PLATFORM_EXPORT foundation::storage::vfs::StorageSystemReference
GetStorageSystemReference();

}  // namespace Velmora::VorlanStorageSystem
