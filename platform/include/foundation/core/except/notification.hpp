#pragma once
// Notification: the messages that an operation has for its user, in the order they arose.
//
// Operations that can go wrong for reasons the user must fix (a folder that does not exist, a file
// that cannot be saved) collect messages in a Notification instead of throwing, so that every
// problem is reported at once. An empty Notification means there is nothing to report.
//
//   Notification problems;
//   problems.Add(VORLAN::rmpath::DirNotFound(u"/srv/tb"));
//   problems.ToNativeText()
//     => "\"/srv/tb\" is not on the search path. [VORLAN:rmpath:DirNotFound]\n"

#include <cstddef>
#include <string>
#include <vector>

#include <foundation/core/except/message_record.hpp>
#include <velmora/platform/export.hpp>

namespace foundation::core::except {

class VELMORA_PLATFORM_EXPORT Notification {
  public:
    using const_iterator = std::vector<resource_core::GenericMsgIDHolder>::const_iterator;

    // Add: appends a heap copy of the message.
    void Add(const resource_core::MessageRecord& message);
    // Append: appends every message of `other`, in order.
    void Append(const Notification& other);

    bool empty() const noexcept { return m_messages.empty(); }
    std::size_t size() const noexcept { return m_messages.size(); }
    const std::vector<resource_core::GenericMsgIDHolder>& GetMessages() const noexcept {
        return m_messages;
    }
    const_iterator begin() const noexcept { return m_messages.begin(); }
    const_iterator end() const noexcept { return m_messages.end(); }

    // ToNativeText: one line per message, text first and id after (see FormatMessageLine), each
    // ended by a line break; empty when there is nothing to report.
    std::string ToNativeText() const;

  private:
    std::vector<resource_core::GenericMsgIDHolder> m_messages;
};

}  // namespace foundation::core::except
