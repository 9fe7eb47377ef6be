#pragma once
// The state that MainSearchPathManager publishes, shared by the files that implement it.

#include <memory>
#include <vector>

#include <velmora/searchpath/main_search_path_manager.hpp>

namespace Velmora::SearchPath {

struct MainSearchPathManager::State {
    std::shared_ptr<const FolderList> folders;
    std::shared_ptr<const MainSearchPath> path;
    std::shared_ptr<const std::vector<VorlanComponents::ComponentIdentifier>> packages;
    std::shared_ptr<const ScanReport> warnings;
};

}  // namespace Velmora::SearchPath
