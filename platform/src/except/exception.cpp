#include <foundation/core/except/exception.hpp>

namespace foundation::core::except {

IBaseException::~IBaseException() = default;
IInternalException::~IInternalException() = default;

}  // namespace foundation::core::except
