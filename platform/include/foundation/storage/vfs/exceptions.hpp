#pragma once
// Exceptions of the storage layer.

#include <memory>
#include <string>

#include <foundation/core/except/exception.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::vfs {

// Exception: a storage operation failed (a location that does not exist, a permission refused,
// a scheme that has no storage). GetErrorNumber() is the errno behind it, 0 when there is none.
class VELMORA_PLATFORM_EXPORT Exception : public core::except::InternalException {
  public:
    explicit Exception(std::string what, int errorNumber = 0);
    int GetErrorNumber() const noexcept { return m_errorNumber; }

    std::unique_ptr<core::except::IBaseException> clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    int m_errorNumber;
};

// InvalidIRIException: a text is not a valid absolute IRI. GetText() is the text as given.
class VELMORA_PLATFORM_EXPORT InvalidIRIException : public Exception {
  public:
    InvalidIRIException(ustring text, const std::string& reason);
    const ustring& GetText() const noexcept { return m_text; }

    std::unique_ptr<core::except::IBaseException> clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    ustring m_text;
};

}  // namespace foundation::storage::vfs
