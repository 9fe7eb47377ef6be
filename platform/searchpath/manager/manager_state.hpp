#pragma once
// The state that MainSearchPathManager publishes, shared by the files that implement it.

#include <memory>
#include <vector>

#include <velmora/searchpath/main_search_path_manager.hpp>

namespace Velmora::SearchPath {

// What GetState shows, and what only the manager's own calls read.
struct MainSearchPathManager::State : PathState {
    std::shared_ptr<const std::vector<VorlanComponents::ComponentIdentifier>> packages;
};

}  // namespace Velmora::SearchPath
