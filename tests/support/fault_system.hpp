#pragma once
// FaultSystem: an OS seam that fails chosen calls with chosen error numbers and passes every other
// call to the real system. Installed for its lifetime.
//
//   FaultSystem faults;
//   faults.Fail(FaultSystem::Op::ListFolder, "/+locked", EACCES);  // paths ending so fail
//   faults.Fail(FaultSystem::Op::WriteAll, ".tmp", ENOSPC);  // writes to files created so
//
// Operations on a descriptor (WriteAll, SyncFile, CloseFile) match the path that the descriptor
// was created for; CurrentFolder matches the suffix "".

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <velmora/os/system.hpp>

namespace vpath_test {

class FaultSystem final : public Velmora::os::ISystem {
  public:
    enum class Op {
        Stat,
        ListFolder,
        RealPath,
        CurrentFolder,
        ReadFile,  // ReadRegularFile too
        CreateFileExclusive,
        WriteAll,
        SyncFile,
        CloseFile,
        Rename,  // matches the path renamed to
        RemoveFile,
        SyncFolder,
        MakeFolders,
        OpenFileForWriting,
        MapFile,
        kCount
    };

    FaultSystem();
    ~FaultSystem() override;

    // Fail: calls of `op` on a path that ends with `pathSuffix` fail with `error`.
    void Fail(Op op, std::string pathSuffix, int error);
    // Calls made so far of `op`.
    int Calls(Op op) const;
    // CoarsenFolderTimes: Stat and ListFolder report times cut down to whole multiples of
    // `granularityNs` and folder sizes as 0, as file systems with coarse timestamps do.
    void CoarsenFolderTimes(std::int64_t granularityNs) { m_coarseNs = granularityNs; }

    int Stat(const std::string& path, Velmora::os::FileStatus& out) override;
    int ListFolder(const std::string& path, Velmora::os::FolderListing& out) override;
    int RealPath(const std::string& path, std::string& out) override;
    int CurrentFolder(std::string& out) override;
    int ReadFile(const std::string& path, std::string& out) override;
    int ReadRegularFile(const std::string& path, std::uint64_t maxBytes, std::string& out) override;
    int CreateFileExclusive(const std::string& path, int& descriptor) override;
    int WriteAll(int descriptor, std::string_view data) override;
    int SyncFile(int descriptor) override;
    int CloseFile(int descriptor) override;
    int Rename(const std::string& from, const std::string& to) override;
    int RemoveFile(const std::string& path) override;
    int SyncFolder(const std::string& path) override;
    int MakeFolders(const std::string& path) override;
    int OpenFileForWriting(const std::string& path, int& descriptor) override;
    int MapFile(const std::string& path,
                std::unique_ptr<const Velmora::os::MappedFile>& out) override;

  private:
    struct Rule {
        Op op;
        std::string suffix;
        int error;
    };
    int Check(Op op, const std::string& path);
    std::string PathOf(int descriptor) const;

    mutable std::mutex m_mutex;
    std::vector<Rule> m_rules;
    std::map<int, std::string> m_descriptors;  // open descriptors and the paths they were made for
    std::atomic<std::int64_t> m_coarseNs{0};
    std::atomic<int> m_calls[static_cast<int>(Op::kCount)] = {};
    Velmora::os::ScopedSystemOverride m_override;
};

}  // namespace vpath_test
