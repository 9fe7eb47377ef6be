#pragma once
// IdsOf: the ids of a Notification's messages, in order, for comparing in tests with Ids.

#include <string>
#include <vector>

#include <foundation/core/except/notification.hpp>

namespace vpath_test {

using Ids = std::vector<std::string>;

inline Ids IdsOf(const foundation::core::except::Notification& notification) {
    Ids ids;
    for (const auto& message : notification)
        ids.push_back(message->GetMessageID());
    return ids;
}

}  // namespace vpath_test
