#pragma once
// The constants of the path interfaces library.

#include <vector>

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement::Constants {

// The separator between folders in a path-list text: u":".
VELMORA_PLATFORM_EXPORT extern const ustring VorlanPathsepStr;
// The separator between the parts of a path name: u"/".
VELMORA_PLATFORM_EXPORT extern const ustring PathnameSeparatorStr;
// The name of an entry's private folder: u"private".
VELMORA_PLATFORM_EXPORT extern const ustring PrivateFolderStr;
// The name of an entry's resources folder: u"resources".
VELMORA_PLATFORM_EXPORT extern const ustring ResourcesFolderStr;

// The language's own file extensions, preferred in this order: native extension, protected code,
// source.
VELMORA_PLATFORM_EXPORT extern const std::vector<ustring> LanguageExtensions;

}  // namespace Velmora::PathManagement::Constants
