#pragma once
// IdsOf: the ids of a Notification's messages, in order, for comparing in tests.

#include <string>
#include <vector>

#include <foundation/core/except/notification.hpp>

namespace vpath_test {

inline std::vector<std::string> IdsOf(const foundation::core::except::Notification& notification) {
    std::vector<std::string> ids;
    for (const auto& message : notification)
        ids.push_back(message->GetMessageID());
    return ids;
}

}  // namespace vpath_test
