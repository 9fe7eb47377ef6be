#pragma once
// Message-id exceptions: a user-facing message thrown as an exception.
//
// Most messages are collected in a Notification. The few that must stop an operation at once are
// wrapped in Exception<MessageClass, std::exception> and handed to the legacy user-error raiser,
// which throws them to whatever shows errors to the user. They are caught as IMsgIDException;
// what() is the message's line as users read it.
//
//   try {
//       RaiseLegacyUserError(Exception<VORLAN::vpath::cannotAbsolutizePath, std::exception>(
//           VORLAN::vpath::cannotAbsolutizePath(u"tb")));
//   } catch (const IMsgIDException& e) {
//       e.GetMessageID()  => "VORLAN:vpath:cannotAbsolutizePath"
//   }

#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <foundation/core/except/exception.hpp>
#include <foundation/core/except/message_catalog.hpp>
#include <foundation/core/except/message_record.hpp>
#include <velmora/platform/export.hpp>

namespace foundation::core::except {

// IMsgIDException: an exception that carries a user-facing message.
class VELMORA_PLATFORM_EXPORT IMsgIDException : public virtual IBaseException {
  public:
    ~IMsgIDException() override;

    // The message, with its ids and arguments.
    virtual const resource_core::MessageRecord& GetMessageRecord() const noexcept = 0;
    // The message's full id: "VORLAN:vpath:cannotAbsolutizePath".
    std::string GetMessageID() const { return GetMessageRecord().GetMessageID(); }

  protected:
    IMsgIDException() = default;
    IMsgIDException(const IMsgIDException&) = default;
    IMsgIDException& operator=(const IMsgIDException&) = default;
};

// The message-id exception of one message class, joined with a standard exception. Copyable;
// clone() and rethrow() keep the message class.
template <class Message, class StdBase>
requires std::is_base_of_v<resource_core::MessageRecord, Message>
class VELMORA_PLATFORM_EXPORT Exception<Message, StdBase> : public IMsgIDException, public StdBase {
  public:
    explicit Exception(Message message)
        : m_message(std::move(message)), m_what(resource_core::FormatMessageLine(m_message)) {}

    const char* what() const noexcept override { return m_what.c_str(); }
    const resource_core::MessageRecord& GetMessageRecord() const noexcept override {
        return m_message;
    }
    const Message& GetMessage() const noexcept { return m_message; }

    std::unique_ptr<IBaseException> clone() const override {
        return std::make_unique<Exception>(*this);
    }
    [[noreturn]] void rethrow() const override { throw *this; }

  private:
    Message m_message;
    std::string m_what;
};

// RaiseLegacyUserError: throws `error` (a copy with its most derived type) to the user's error
// display; never returns. The message is also written to the diagnostic channel
// "foundation::except::usererror" at level info.
[[noreturn]] VELMORA_PLATFORM_EXPORT void RaiseLegacyUserError(const IMsgIDException& error);

}  // namespace foundation::core::except
