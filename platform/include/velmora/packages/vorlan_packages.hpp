#pragma once
// Settings of the packages library.

#include <velmora/platform/export.hpp>

namespace VorlanPackages {

// isAtFolderPrecedenceFeatureOn: whether a class folder's files take precedence over the path
// when a name is resolved as seen from a folder. Read from the environment variable
// VPATH_AT_FOLDER_PRECEDENCE ("1", "on", "true" or "yes" turn it on; anything else, or nothing,
// leaves it off) on every call, so that a change takes effect at once.
VELMORA_PLATFORM_EXPORT bool isAtFolderPrecedenceFeatureOn();

}  // namespace VorlanPackages
