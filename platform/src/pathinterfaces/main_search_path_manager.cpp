#include <velmora/pathinterfaces/main_search_path_manager.hpp>

namespace Velmora::PathManagement {

RecursivePathChangeException::RecursivePathChangeException()
    : foundation::core::except::InternalException(
          "the search path cannot change while observers are told of a change") {}

std::unique_ptr<foundation::core::except::IBaseException> RecursivePathChangeException::clone()
    const {
    return std::make_unique<RecursivePathChangeException>(*this);
}

void RecursivePathChangeException::rethrow() const {
    throw *this;
}

IMainSearchPathManager::~IMainSearchPathManager() = default;

}  // namespace Velmora::PathManagement
