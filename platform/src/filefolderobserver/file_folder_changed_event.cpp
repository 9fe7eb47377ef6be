#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>

#include <utility>

namespace foundation::storage::filefolderobserver {

FileFolderChangedEvent::FileFolderChangedEvent(ustring location, FrozenInclusion inclusion)
    : m_location(std::move(location)), m_inclusion(inclusion) {}

FileFolderChangedEvent::~FileFolderChangedEvent() = default;

}  // namespace foundation::storage::filefolderobserver
