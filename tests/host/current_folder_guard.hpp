#pragma once
// CurrentFolderGuard: changes the process's current folder for a test and puts it back.

#include <filesystem>

namespace vpath_test {

// CurrentFolderGuard: makes `folder` the current folder for the guard's lifetime.
class CurrentFolderGuard {
  public:
    explicit CurrentFolderGuard(const std::filesystem::path& folder)
        : m_saved(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    ~CurrentFolderGuard() { std::filesystem::current_path(m_saved); }
    CurrentFolderGuard(const CurrentFolderGuard&) = delete;
    CurrentFolderGuard& operator=(const CurrentFolderGuard&) = delete;

  private:
    std::filesystem::path m_saved;
};

}  // namespace vpath_test
