#include <foundation/core/except/message_exception.hpp>
#include <foundation/core/except/message_record.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/log/diagnostic_logger.hpp>

#include <exception>

namespace resource_core {

MessageRecord::MessageRecord(std::string component, std::string identifier,
                             std::vector<MessageArgument> arguments)
    : m_arguments(std::move(arguments)),
      m_component(std::move(component)),
      m_identifier(std::move(identifier)) {}

std::string MessageRecord::GetMessageID() const {
    std::string id;
    id.reserve(m_component.size() + 1 + m_identifier.size());
    id += m_component;
    id += ':';
    id += m_identifier;
    return id;
}

GenericMsgIDHolder::GenericMsgIDHolder(const MessageRecord& record)
    : m_record(std::make_unique<const MessageRecord>(record)) {}

GenericMsgIDHolder::GenericMsgIDHolder(const GenericMsgIDHolder& other)
    : m_record(std::make_unique<const MessageRecord>(*other.m_record)) {}

GenericMsgIDHolder& GenericMsgIDHolder::operator=(const GenericMsgIDHolder& other) {
    if (this != &other)
        m_record = std::make_unique<const MessageRecord>(*other.m_record);
    return *this;
}

GenericMsgIDHolder::~GenericMsgIDHolder() = default;

}  // namespace resource_core

namespace foundation::core::except {

void Notification::Add(const resource_core::MessageRecord& message) {
    m_messages.emplace_back(message);
}

void Notification::Append(const Notification& other) {
    m_messages.reserve(m_messages.size() + other.m_messages.size());
    m_messages.insert(m_messages.end(), other.m_messages.begin(), other.m_messages.end());
}

std::string Notification::ToNativeText() const {
    std::string text;
    for (const auto& message : m_messages) {
        text += resource_core::FormatMessageLine(message.Get());
        text += '\n';
    }
    return text;
}

IMsgIDException::~IMsgIDException() = default;

void RaiseLegacyUserError(const IMsgIDException& error) {
    static log::DiagnosticLogger channel("foundation::except::usererror");
    if (channel.IsEnabled(log::Level::Info))
        channel.Write(log::Level::Info, error.GetMessageID());
    error.rethrow();
    // rethrow() is [[noreturn]], but the compiler cannot see that through the virtual call.
    std::terminate();
}

}  // namespace foundation::core::except
