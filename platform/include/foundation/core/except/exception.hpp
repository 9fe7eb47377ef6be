#pragma once
// The host's exception framework.
//
// Every exception that the host and the library throw implements IBaseException, so that it can
// be copied to the heap with clone() and thrown again with rethrow(), for instance when an error
// is carried from a worker thread back to the caller. Two families exist:
//   - internal failures: Exception<IInternalException, std::exception> and classes derived from it;
//   - user-facing messages: Exception<SomeMessage, std::exception>, which carries a message record
//     with its id and arguments (see message_exception.hpp).
//
// Example:
//   class CorruptIndexException : public Exception<IInternalException, std::exception> {
//   public:
//       using Exception::Exception;
//       std::unique_ptr<IBaseException> clone() const override {
//           return std::make_unique<CorruptIndexException>(*this);
//       }
//       [[noreturn]] void rethrow() const override { throw *this; }
//   };

#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <velmora/platform/export.hpp>

namespace foundation::core::except {

// IBaseException: what every host exception can do besides what().
class VELMORA_PLATFORM_EXPORT IBaseException {
  public:
    virtual ~IBaseException();
    // clone: a heap copy of the exception with its most derived type.
    virtual std::unique_ptr<IBaseException> clone() const = 0;
    // rethrow: throws a copy of the exception with its most derived type.
    [[noreturn]] virtual void rethrow() const = 0;

  protected:
    IBaseException() = default;
    IBaseException(const IBaseException&) = default;
    IBaseException& operator=(const IBaseException&) = default;
};

// IInternalException: marks failures of the system itself, as opposed to messages for users.
class VELMORA_PLATFORM_EXPORT IInternalException : public virtual IBaseException {
  public:
    ~IInternalException() override;

  protected:
    IInternalException() = default;
    IInternalException(const IInternalException&) = default;
    IInternalException& operator=(const IInternalException&) = default;
};

template <class Payload, class StdBase = std::exception>
class Exception;

// The internal-exception base: an interface of the framework joined with a standard exception.
// what() is the text given at construction, or the name of the family when none was given.
template <class Interface, class StdBase>
requires std::is_base_of_v<IBaseException, Interface>
class VELMORA_PLATFORM_EXPORT Exception<Interface, StdBase> : public Interface, public StdBase {
  public:
    Exception() = default;
    explicit Exception(std::string what) : m_what(std::move(what)) {}

    const char* what() const noexcept override {
        return m_what.empty() ? "internal error" : m_what.c_str();
    }

    std::unique_ptr<IBaseException> clone() const override {
        return std::make_unique<Exception>(*this);
    }
    [[noreturn]] void rethrow() const override { throw *this; }

  private:
    std::string m_what;
};

// The base of the host's internal exceptions.
using InternalException = Exception<IInternalException, std::exception>;

}  // namespace foundation::core::except
