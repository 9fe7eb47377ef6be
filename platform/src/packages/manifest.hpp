#pragma once
// Reading one package manifest; internal to the package registry.

#include <memory>
#include <stdexcept>
#include <string>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/packages/package_registry.hpp>

namespace Velmora::PackageRegistry::packages_internal {

// ManifestError: why a manifest cannot be used, in words for the user.
class ManifestError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// ParseManifest: the package whose folder is `root` and whose manifest holds `json`. Throws
// ManifestError.
std::shared_ptr<const Package> ParseManifest(const foundation::storage::vfs::AbsoluteIRI& root,
                                             const std::string& json);

}  // namespace Velmora::PackageRegistry::packages_internal
