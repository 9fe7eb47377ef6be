#include "folder_conversion.hpp"

#include <iterator>

#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

namespace Velmora::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;

namespace detail {

boost::optional<AbsoluteIRI> TryAbsolutizeFolder(
    const ustring& folder,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    foundation::core::except::Notification& notification) {
    try {
        return currentFolder.absolutize(folder);
    } catch (const Velmora::current_working_folder::FailedToAbsolutizeException& e) {
        // The order of the tests matters: 9 is the only code above 7 that the user can fix, and
        // 1, 2 and 8 are failures of the system that must reach the caller unchanged.
        const int code = e.GetErrorCode();
        if (code == 9) {
            notification.Add(VORLAN::vpath::directoryNameTooLong(folder));
        } else if (code > 7) {
            throw;
        } else if (code >= 4) {
            notification.Add(VORLAN::vpath::nameNonexistentOrNotADirectory(folder));
        } else if (code == 0) {
            notification.Add(VORLAN::vpath::invalidLocation(folder));
        } else if (code == 3) {
            notification.Add(VORLAN::vpath::directoryPermissionDenied(folder));
        } else {
            throw;
        }
        return boost::none;
    }
}

}  // namespace detail

std::vector<AbsoluteIRI> ConvertUstringRangeToAbsoluteIRIs(
    const detail::AnyRangeAdapter<ustring>& folders,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder,
    foundation::core::except::Notification& notification) {
    std::vector<AbsoluteIRI> locations;
    locations.reserve(static_cast<std::size_t>(std::distance(folders.begin(), folders.end())));
    for (const ustring& folder : folders) {
        if (auto location = detail::TryAbsolutizeFolder(folder, currentFolder, notification))
            locations.push_back(std::move(*location));
    }
    return locations;
}

}  // namespace Velmora::PathManagement

namespace VORLAN::vpath {

invalidLocation::invalidLocation(const ustring& folder)
    : MessageRecord("VORLAN:vpath", "invalidLocation", {folder}) {}

directoryPermissionDenied::directoryPermissionDenied(const ustring& folder)
    : MessageRecord("VORLAN:vpath", "directoryPermissionDenied", {folder}) {}

nameNonexistentOrNotADirectory::nameNonexistentOrNotADirectory(const ustring& folder)
    : MessageRecord("VORLAN:vpath", "nameNonexistentOrNotADirectory", {folder}) {}

directoryNameTooLong::directoryNameTooLong(const ustring& folder)
    : MessageRecord("VORLAN:vpath", "directoryNameTooLong", {folder}) {}

cannotAbsolutizePath::cannotAbsolutizePath(const ustring& folder)
    : MessageRecord("VORLAN:vpath", "cannotAbsolutizePath", {folder}) {}

}  // namespace VORLAN::vpath

namespace VORLAN::rmpath {

DirNotFound::DirNotFound(const ustring& folder)
    : MessageRecord("VORLAN:rmpath", "DirNotFound", {folder}) {}

}  // namespace VORLAN::rmpath
