#pragma once
// Message records: what a user-facing message says, as ids and arguments, without its text.
//
// A message is identified by its component ("VORLAN:vpath") and its key ("invalidLocation"); the
// full id joins them with a colon: "VORLAN:vpath:invalidLocation". The text that users read comes
// from the host's message catalogue (message_catalog.hpp), which fills the arguments into the
// text's {0}, {1}, ... places.
//
// Message classes derive from MessageRecord and fix its component and key:
//
//   class folderMissing : public resource_core::MessageRecord {
//     public:
//       explicit folderMissing(const ustring& folder)
//           : MessageRecord("VELMORA:searchpath", "folderMissing", {folder}) {}
//   };
//   folderMissing(u"/srv/tb").GetMessageID()  => "VELMORA:searchpath:folderMissing"

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace resource_core {

// MessageArgument: one argument of a message: a number, a narrow (UTF-8) text or a text.
using MessageArgument = std::variant<std::int64_t, std::string, ustring>;

// MessageRecord: the ids and the arguments of one message. A value type; message classes add
// nothing to it but their constructors, so a copy as MessageRecord loses nothing.
class VELMORA_PLATFORM_EXPORT MessageRecord {
  public:
    MessageRecord(std::string component, std::string identifier,
                  std::vector<MessageArgument> arguments);

    const std::vector<MessageArgument>& GetArguments() const noexcept { return m_arguments; }
    const std::string& GetComponent() const noexcept { return m_component; }
    const std::string& GetIdentifier() const noexcept { return m_identifier; }
    // The full id: component, a colon and the key.
    std::string GetMessageID() const;

  private:
    std::vector<MessageArgument> m_arguments;
    std::string m_component;
    std::string m_identifier;
};

// GenericMsgIDHolder: owns one heap copy of a message record, whatever message class it was made
// from. Copies copy the record.
class VELMORA_PLATFORM_EXPORT GenericMsgIDHolder {
  public:
    explicit GenericMsgIDHolder(const MessageRecord& record);
    GenericMsgIDHolder(const GenericMsgIDHolder& other);
    GenericMsgIDHolder& operator=(const GenericMsgIDHolder& other);
    GenericMsgIDHolder(GenericMsgIDHolder&&) noexcept = default;
    GenericMsgIDHolder& operator=(GenericMsgIDHolder&&) noexcept = default;
    ~GenericMsgIDHolder();

    const MessageRecord& Get() const noexcept { return *m_record; }
    const MessageRecord* operator->() const noexcept { return m_record.get(); }

  private:
    std::unique_ptr<const MessageRecord> m_record;
};

}  // namespace resource_core
