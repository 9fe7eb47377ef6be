#pragma once
// The search-path utilities library, and the host interfaces a caller needs with it.

// Host: text, storage, messages, the current folder, packages, path interfaces and the real main
// search path: its scan (folder entries, the scanner, MainSearchPath), its path cache and cached
// start, its path definition file, its manager with the states it publishes, and the watcher and
// poller that keep it fresh; and the link to a running path service of a saved path.
#include <foundation/core/except/message_exception.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <foundation/storage/vfs/ofstream.hpp>
#include <velmora/concurrency/published.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/os/parallelism.hpp>
#include <velmora/packages/component_identifier.hpp>
#include <velmora/packages/package_registry.hpp>
#include <velmora/pathinterfaces/any_range_adapter.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathinterfaces/ipath_entry_factory.hpp>
#include <velmora/pathinterfaces/main_search_path_manager.hpp>
#include <velmora/pathinterfaces/path_item.hpp>
#include <velmora/pathinterfaces/search_scope.hpp>
#include <velmora/searchpath/attached_path.hpp>
#include <velmora/searchpath/cached_start.hpp>
#include <velmora/searchpath/folder_entry.hpp>
#include <velmora/searchpath/folder_scanner.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_cache.hpp>
#include <velmora/searchpath/path_cache_place.hpp>
#include <velmora/searchpath/path_change_report.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/path_poller.hpp>
#include <velmora/searchpath/path_watcher.hpp>
#include <velmora/searchpath/served_change.hpp>
#include <velmora/searchpath/service_place.hpp>
#include <velmora/searchpath/watched_path.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>
#include <velmora/text/ustring.hpp>

// The library.
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/pathmanagement/path_diff.hpp>
#include <velmora/pathmanagement/path_editing.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/pathmanagement/path_views.hpp>
#include <velmora/pathmanagement/search_target.hpp>
