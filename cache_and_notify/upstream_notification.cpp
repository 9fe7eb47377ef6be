#include <velmora/pathmanagement/cache_and_notify.hpp>

#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

namespace Velmora::PathManagement {
namespace {

using foundation::messaging::DeliverMode;
using foundation::messaging::EventMgr;
using foundation::storage::filefolderobserver::FileFolderChangedEvent;
using foundation::storage::vfs::AbsoluteIRI;

void Send(const EventMgr& events, const AbsoluteIRI& location) {
    events.notify(
        FileFolderChangedEvent(location.toString(), FileFolderChangedEvent::FrozenInclusion{0}),
        DeliverMode{0});
}

// The walk from `location` up to the first ordinary folder, one event per level, bottom up.
void NotifyUpward(AbsoluteIRI location) {
    const auto events =
        foundation::messaging::createLocalEventMgr(foundation::messaging::SessionEmId);
    // A "." anywhere in the last name marks a file; a folder so named is taken for one on purpose.
    if (location.getName().find(u'.') != ustring::npos) {
        Send(*events, location);
        location = location.getParent();
    }
    while (GetPathEntryTypeFromBaseName(location.getName()) != PathEntryType::Ordinary) {
        Send(*events, location);
        location = location.getParent();
    }
    Send(*events, location);
}

}  // namespace

void NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
    const AbsoluteIRI& changedLocation) {
    try {
        NotifyUpward(changedLocation.getResolvedIRI());
    } catch (const foundation::storage::vfs::InvalidIRIException&) {
        // A location that is no IRI has no folders above it to tell.
    }
}

void NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
    const AbsoluteIRI& changedLocation) {
    const foundation::storage::vfs::File file(changedLocation,
                                              VorlanStorageSystem::GetStorageSystemReference());
    try {
        const AbsoluteIRI canonical = file.getCanonicalLocation().getIRI();
        NotifyUpward(canonical);
    } catch (const foundation::storage::vfs::Exception&) {
        NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(changedLocation);
    }
}

}  // namespace Velmora::PathManagement
