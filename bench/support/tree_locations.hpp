#pragma once
// The generated tree in the host's terms: the locations of its folders, as a search path lists
// them.

#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>

#include "support/tree_generator.hpp"

namespace vpath_bench {

// FolderLocations: the IRIs of the tree's ordinary folders, in path order.
std::vector<foundation::storage::vfs::AbsoluteIRI> FolderLocations(const GeneratedTree& tree);

}  // namespace vpath_bench
