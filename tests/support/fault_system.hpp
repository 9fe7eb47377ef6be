#pragma once
// FaultSystem: an OS seam that fails chosen calls with chosen error numbers and passes every other
// call to the real system. Installed for its lifetime.
//
//   FaultSystem faults;
//   faults.Fail(FaultSystem::Op::ListFolder, "/+locked", EACCES);  // paths ending so fail

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <velmora/os/system.hpp>

namespace vpath_test {

class FaultSystem final : public Velmora::os::ISystem {
  public:
    enum class Op { Stat, ListFolder, RealPath, CurrentFolder, ReadFile };

    FaultSystem();
    ~FaultSystem() override;

    // Fail: calls of `op` on a path that ends with `pathSuffix` fail with `error`.
    void Fail(Op op, std::string pathSuffix, int error);
    // Calls made so far of `op`.
    int Calls(Op op) const;

    int Stat(const std::string& path, Velmora::os::FileStatus& out) override;
    int ListFolder(const std::string& path, Velmora::os::FolderListing& out) override;
    int RealPath(const std::string& path, std::string& out) override;
    int CurrentFolder(std::string& out) override;
    int ReadFile(const std::string& path, std::string& out) override;

  private:
    struct Rule {
        Op op;
        std::string suffix;
        int error;
    };
    int Check(Op op, const std::string& path);

    mutable std::mutex m_mutex;
    std::vector<Rule> m_rules;
    std::atomic<int> m_calls[5] = {};
    Velmora::os::ScopedSystemOverride m_override;
};

}  // namespace vpath_test
