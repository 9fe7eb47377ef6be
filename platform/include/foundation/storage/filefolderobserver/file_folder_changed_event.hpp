#pragma once
// FileFolderChangedEvent: a file or folder changed on a storage system, and whoever watches it
// should look again.
//
//   events->notify(FileFolderChangedEvent(u"file:///home/ada/tb/+shapes",
//                                         FileFolderChangedEvent::FrozenInclusion{0}),
//                  DeliverMode{0});

#include <cstdint>

#include <foundation/messaging/event_mgr.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::filefolderobserver {

class VELMORA_PLATFORM_EXPORT FileFolderChangedEvent final : public messaging::Event {
  public:
    // FrozenInclusion: whether observers that froze their view of a folder hear of the change.
    // 0 (IncludeFrozen) tells every observer; 1 (ExcludeFrozen) only those whose view is live.
    enum class FrozenInclusion : std::uint8_t { IncludeFrozen = 0, ExcludeFrozen = 1 };

    // `location`: the text of the AbsoluteIRI of the file or folder that changed.
    FileFolderChangedEvent(ustring location, FrozenInclusion inclusion);
    ~FileFolderChangedEvent() override;

    const ustring& getLocation() const noexcept { return m_location; }
    FrozenInclusion getFrozenInclusion() const noexcept { return m_inclusion; }

  private:
    ustring m_location;
    FrozenInclusion m_inclusion;
};

}  // namespace foundation::storage::filefolderobserver
