#include "support/tree_locations.hpp"

#include <fl/filesystem/path.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/text/ustring.hpp>

namespace vpath_bench {

std::vector<foundation::storage::vfs::AbsoluteIRI> FolderLocations(const GeneratedTree& tree) {
    std::vector<foundation::storage::vfs::AbsoluteIRI> locations;
    locations.reserve(tree.folders.size());
    for (const auto& folder : tree.folders) {
        locations.push_back(foundation::storage::vfs::toAbsoluteIRI(
            u"file", fl::filesystem::path(Velmora::text::FromNative(folder.native()))));
    }
    return locations;
}

}  // namespace vpath_bench
