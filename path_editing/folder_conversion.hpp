#pragma once
// Internal to the library: turning one folder text into a location or a message.

#include <boost/optional.hpp>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement::detail {

// TryAbsolutizeFolder: the location that `currentFolder` makes of `folder`; none, with a message
// appended to `notification`, when the service rejects it for a reason the user must fix (codes 0,
// 3, 4 to 7, 9). Other failures of the service are rethrown as they came.
boost::optional<foundation::storage::vfs::AbsoluteIRI> TryAbsolutizeFolder(
    const ustring& folder,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    foundation::core::except::Notification& notification);

}  // namespace Velmora::PathManagement::detail
