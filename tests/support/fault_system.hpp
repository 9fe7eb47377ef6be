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
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <velmora/os/system.hpp>

namespace vpath_test {

class FaultSystem final : public Velmora::os::ISystem {
  public:
    // ReadFile covers ReadRegularFile too; Rename matches the path renamed to, and WatchOpen the
    // suffix "".
    // clang-format off
    enum class Op { Stat, ListFolder, RealPath, CurrentFolder, ReadFile, CreateFileExclusive,
                    WriteAll, SyncFile, CloseFile, Rename, RemoveFile, SyncFolder, MakeFolders,
                    OpenFileForWriting, MapFile, WatchAdd, WatchOpen };
    // clang-format on

    FaultSystem();

    // Fail: calls of `op` on a path that ends with `pathSuffix` fail with `error`.
    void Fail(Op op, std::string pathSuffix, int error) {
        std::lock_guard lock(m_mutex);
        m_rules.push_back({op, std::move(pathSuffix), error});
    }
    // Before: runs `action` once, just before the next call of `op` on a path that ends with
    // `pathSuffix`, as another program acting at that moment would.
    void Before(Op op, std::string pathSuffix, std::function<void()> action) {
        std::lock_guard lock(m_mutex);
        m_hooks.push_back({op, std::move(pathSuffix), std::move(action)});
    }
    // Calls made so far of `op`, on any path or on paths ending with `pathSuffix`.
    int Calls(Op op, const std::string& pathSuffix = "") const;
    // CalledAfter: whether a call of `later` came after the last call of `earlier`.
    bool CalledAfter(Op later, Op earlier) const;
    // CoarsenFolderTimes: Stat and ListFolder report times cut down to whole multiples of
    // `granularityNs` and folder sizes as 0, as file systems with coarse timestamps do.
    void CoarsenFolderTimes(std::int64_t granularityNs) { m_coarseNs = granularityNs; }
    // LoseEvents: reads of a watch queue lose every event they find, until ForceOverflow.
    void LoseEvents() { m_losing.store(true); }
    // ForceOverflow: the next read of a watch queue, without waiting, loses what events there are
    // and reports a queue overflow instead, as the kernel does when its queue is full.
    void ForceOverflow() { m_overflow.store(true); }
    // StreamEvents: while on, each read of a watch queue returns at once the last events a read
    // found, as a file written without a pause would keep reporting.
    void StreamEvents(bool on) {
        std::lock_guard lock(m_mutex);
        m_streaming = on;
        m_streamed.clear();
    }
    // FreezeStamp: folders whose path ends with `pathSuffix` report, from now on, the status they
    // have now, as a change within one timestamp tick would.
    void FreezeStamp(const std::string& pathSuffix);

    // PretendOwner: Stat and LinkStatus report items whose path ends with `pathSuffix` as owned by
    // `owner` with the permission bits `permissions`, as a file another user planted would be.
    void PretendOwner(std::string pathSuffix, std::uint32_t owner, std::uint32_t permissions);
    // PretendUser: UserId reports `user`, so that everything on disk belongs to someone else.
    void PretendUser(std::uint32_t user) { m_user.store(user); }
    // PretendPeer: SocketPeerUser reports `user` for every connection, as a client of another
    // user would be.
    void PretendPeer(std::uint32_t user) { m_peer.store(user); }
    int SocketPeerUser(int descriptor, std::uint32_t& user) override;

    int LinkStatus(const std::string& path, Velmora::os::FileStatus& out) override;
    std::uint32_t UserId() override;
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
    int WatchOpen(int& queue) override;
    int WatchAdd(int queue, const std::string& path, std::uint32_t mask, int& watch) override;
    int WatchRead(int queue, int timeoutMs, std::vector<Velmora::os::WatchEvent>& out) override;

  private:
    struct Rule {
        Op op;
        std::string suffix;
        int error;
    };
    struct Hook {
        Op op;
        std::string suffix;
        std::function<void()> action;
    };
    int Check(Op op, const std::string& path);
    std::string PathOf(int descriptor) const;
    // Track: keeps the path that a descriptor was made for, once `err` tells it was made.
    int Track(const std::string& path, int descriptor, int err);
    void Freeze(const std::string& path, Velmora::os::FileStatus& status);
    void Pretend(const std::string& path, Velmora::os::FileStatus& out, int err);

    mutable std::mutex m_mutex;
    std::vector<Rule> m_rules;
    std::vector<Hook> m_hooks;
    std::map<int, std::string> m_descriptors;  // open descriptors and the paths they were made for
    std::atomic<std::int64_t> m_coarseNs{0};
    std::map<std::string, Velmora::os::FileStatus> m_frozen;  // by path suffix
    std::atomic<bool> m_overflow{false};
    std::atomic<bool> m_losing{false};
    bool m_streaming = false;
    std::vector<Velmora::os::WatchEvent> m_streamed;
    std::vector<std::pair<Op, std::string>> m_log;  // every call, in order
    struct Pretended {
        std::string suffix;
        std::uint32_t owner;
        std::uint32_t permissions;
    };
    std::vector<Pretended> m_pretended;
    std::atomic<std::int64_t> m_user{-1};
    std::atomic<std::int64_t> m_peer{-1};
    Velmora::os::ScopedSystemOverride m_override;
};

}  // namespace vpath_test
