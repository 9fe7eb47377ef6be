#pragma once
// The search-path utilities library, and the host interfaces a caller needs with it.

// Host: text, storage, path interfaces and the real main search path.
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/concurrency/published.hpp>
#include <velmora/os/parallelism.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathinterfaces/search_scope.hpp>
#include <velmora/searchpath/folder_entry.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>
#include <velmora/text/ustring.hpp>

// The library.
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/pathmanagement/path_views.hpp>
#include <velmora/pathmanagement/search_target.hpp>
