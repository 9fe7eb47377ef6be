#include <foundation/storage/vfs/exceptions.hpp>

namespace foundation::storage::vfs {

Exception::Exception(std::string what, int errorNumber)
    : core::except::InternalException(std::move(what)), m_errorNumber(errorNumber) {}

std::unique_ptr<core::except::IBaseException> Exception::clone() const {
    return std::make_unique<Exception>(*this);
}

void Exception::rethrow() const {
    throw *this;
}

namespace {

// Built by appending: GCC 12 at -O3 mistakes the chain of operator+ for an overlapping copy.
std::string NotALocation(const ustring& text, const std::string& reason) {
    std::string message = "\"";
    message += Velmora::text::ToNative(text);
    message += "\" is not a valid location: ";
    message += reason;
    return message;
}

}  // namespace

InvalidIRIException::InvalidIRIException(ustring text, const std::string& reason)
    : Exception(NotALocation(text, reason)), m_text(std::move(text)) {}

std::unique_ptr<core::except::IBaseException> InvalidIRIException::clone() const {
    return std::make_unique<InvalidIRIException>(*this);
}

void InvalidIRIException::rethrow() const {
    throw *this;
}

}  // namespace foundation::storage::vfs
