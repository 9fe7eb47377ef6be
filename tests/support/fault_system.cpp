#include "support/fault_system.hpp"

#include <algorithm>

namespace vpath_test {

using Velmora::os::RealSystem;

FaultSystem::FaultSystem() : m_override(*this) {}

int FaultSystem::Calls(Op op, const std::string& pathSuffix) const {
    std::lock_guard lock(m_mutex);
    return static_cast<int>(std::count_if(m_log.begin(), m_log.end(), [&](const auto& call) {
        return call.first == op && call.second.ends_with(pathSuffix);
    }));
}

bool FaultSystem::CalledAfter(Op later, Op earlier) const {
    std::lock_guard lock(m_mutex);
    const auto last = std::find_if(m_log.rbegin(), m_log.rend(),
                                   [&](const auto& call) { return call.first == earlier; });
    return last != m_log.rend() &&
           std::any_of(m_log.rbegin(), last, [&](const auto& call) { return call.first == later; });
}

int FaultSystem::Check(Op op, const std::string& path) {
    std::function<void()> action;
    {
        std::lock_guard lock(m_mutex);
        const auto hook = std::find_if(m_hooks.begin(), m_hooks.end(), [&](const Hook& h) {
            return h.op == op && path.ends_with(h.suffix);
        });
        if (hook != m_hooks.end()) {
            action = std::move(hook->action);
            m_hooks.erase(hook);
        }
    }
    if (action)
        action();
    std::lock_guard lock(m_mutex);
    m_log.emplace_back(op, path);
    for (const auto& rule : m_rules) {
        if (rule.op == op && path.ends_with(rule.suffix))
            return rule.error;
    }
    return 0;
}

int FaultSystem::Track(const std::string& path, int descriptor, int err) {
    if (err == 0) {
        std::lock_guard lock(m_mutex);
        m_descriptors[descriptor] = path;
    }
    return err;
}

std::string FaultSystem::PathOf(int descriptor) const {
    std::lock_guard lock(m_mutex);
    const auto it = m_descriptors.find(descriptor);
    return it == m_descriptors.end() ? std::string() : it->second;
}

namespace {

// The error of the check, or else what the real call gives.
template <class Real>
int Or(int err, Real real) {
    return err != 0 ? err : real();
}

void Coarsen(Velmora::os::FileStatus& status, std::int64_t granularityNs) {
    if (granularityNs == 0 || !status.IsFolder())
        return;
    status.modifiedNs -= status.modifiedNs % granularityNs;
    status.changedNs -= status.changedNs % granularityNs;
    status.size = 0;
}

}  // namespace

void FaultSystem::FreezeStamp(const std::string& pathSuffix) {
    // The status is the one the next look at a matching path finds.
    std::lock_guard lock(m_mutex);
    m_frozen.emplace(pathSuffix, Velmora::os::FileStatus{});
}

void FaultSystem::Freeze(const std::string& path, Velmora::os::FileStatus& status) {
    std::lock_guard lock(m_mutex);
    for (auto& [suffix, frozen] : m_frozen) {
        if (!path.ends_with(suffix))
            continue;
        if (frozen.inode == 0)
            frozen = status;
        status = frozen;
    }
}

int FaultSystem::Stat(const std::string& path, Velmora::os::FileStatus& out) {
    if (const int err = Check(Op::Stat, path))
        return err;
    const int err = RealSystem().Stat(path, out);
    Pretend(path, out, err);
    Coarsen(out, m_coarseNs);
    if (err == 0)
        Freeze(path, out);
    return err;
}

int FaultSystem::ListFolder(const std::string& path, Velmora::os::FolderListing& out) {
    if (const int err = Check(Op::ListFolder, path))
        return err;
    const int err = RealSystem().ListFolder(path, out);
    Coarsen(out.status, m_coarseNs);
    if (err == 0)
        Freeze(path, out.status);
    return err;
}

int FaultSystem::WatchRead(int queue, int timeoutMs, std::vector<Velmora::os::WatchEvent>& out) {
    {
        std::lock_guard lock(m_mutex);
        if (m_streaming && !m_streamed.empty()) {
            out = m_streamed;
            return 0;
        }
    }
    const bool overflow = m_overflow.exchange(false);
    const int err = RealSystem().WatchRead(queue, overflow ? 0 : timeoutMs, out);
    // Losing is looked at once the read is over, so that a read under way loses what it finds.
    if (overflow) {
        out.assign(1, Velmora::os::WatchEvent{-1, Velmora::os::WatchOverflow, 0, {}});
        m_losing.store(false);
    } else if (m_losing.load()) {
        out.clear();
    }
    std::lock_guard lock(m_mutex);
    if (m_streaming && !out.empty())
        m_streamed = out;
    return overflow ? 0 : err;
}

int FaultSystem::CreateFileExclusive(const std::string& path, int& descriptor) {
    return Track(path, descriptor, Or(Check(Op::CreateFileExclusive, path), [&] {
                     return RealSystem().CreateFileExclusive(path, descriptor);
                 }));
}

int FaultSystem::CloseFile(int descriptor) {
    const std::string path = PathOf(descriptor);
    // The descriptor is given back whatever the outcome, as the real system does.
    const int real = RealSystem().CloseFile(descriptor);
    {
        std::lock_guard lock(m_mutex);
        m_descriptors.erase(descriptor);
    }
    return Or(Check(Op::CloseFile, path), [&] { return real; });
}

int FaultSystem::OpenFileForWriting(const std::string& path, int& descriptor) {
    return Track(path, descriptor, Or(Check(Op::OpenFileForWriting, path), [&] {
                     return RealSystem().OpenFileForWriting(path, descriptor);
                 }));
}

void FaultSystem::PretendOwner(std::string pathSuffix, std::uint32_t owner,
                               std::uint32_t permissions) {
    std::lock_guard lock(m_mutex);
    m_pretended.push_back({std::move(pathSuffix), owner, permissions});
}

void FaultSystem::Pretend(const std::string& path, Velmora::os::FileStatus& out, int err) {
    std::lock_guard lock(m_mutex);
    for (const auto& pretended : m_pretended) {
        if (err == 0 && path.ends_with(pretended.suffix)) {
            out.owner = pretended.owner;
            out.mode = (out.mode & ~07777u) | (pretended.permissions & 07777u);
        }
    }
}

int FaultSystem::LinkStatus(const std::string& path, Velmora::os::FileStatus& out) {
    const int err = RealSystem().LinkStatus(path, out);
    Pretend(path, out, err);
    return err;
}

int FaultSystem::SocketPeerUser(int descriptor, std::uint32_t& user) {
    const int err = RealSystem().SocketPeerUser(descriptor, user);
    if (const std::int64_t peer = m_peer.load(); err == 0 && peer >= 0)
        user = static_cast<std::uint32_t>(peer);
    return err;
}

std::uint32_t FaultSystem::UserId() {
    const std::int64_t user = m_user.load();
    return user < 0 ? RealSystem().UserId() : static_cast<std::uint32_t>(user);
}

// Calls that fail as the rules for `op` on `path` say, and otherwise go to the real system.
#define VPATH_FORWARD(op, path, name, parameters, call)                    \
    int FaultSystem::name parameters {                                     \
        return Or(Check(Op::op, path), [&] { return RealSystem().call; }); \
    }
VPATH_FORWARD(WatchOpen, "", WatchOpen, (int& queue), WatchOpen(queue))
VPATH_FORWARD(WatchAdd, path, WatchAdd,
              (int queue, const std::string& path, std::uint32_t mask, int& watch),
              WatchAdd(queue, path, mask, watch))
VPATH_FORWARD(RealPath, path, RealPath, (const std::string& path, std::string& out),
              RealPath(path, out))
VPATH_FORWARD(CurrentFolder, "", CurrentFolder, (std::string & out), CurrentFolder(out))
VPATH_FORWARD(ReadFile, path, ReadFile, (const std::string& path, std::string& out),
              ReadFile(path, out))
VPATH_FORWARD(ReadFile, path, ReadRegularFile,
              (const std::string& path, std::uint64_t maxBytes, std::string& out),
              ReadRegularFile(path, maxBytes, out))
VPATH_FORWARD(WriteAll, PathOf(descriptor), WriteAll, (int descriptor, std::string_view data),
              WriteAll(descriptor, data))
VPATH_FORWARD(SyncFile, PathOf(descriptor), SyncFile, (int descriptor), SyncFile(descriptor))
VPATH_FORWARD(Rename, to, Rename, (const std::string& from, const std::string& to),
              Rename(from, to))
VPATH_FORWARD(RemoveFile, path, RemoveFile, (const std::string& path), RemoveFile(path))
VPATH_FORWARD(SyncFolder, path, SyncFolder, (const std::string& path), SyncFolder(path))
VPATH_FORWARD(MakeFolders, path, MakeFolders, (const std::string& path), MakeFolders(path))
VPATH_FORWARD(MapFile, path, MapFile,
              (const std::string& path, std::unique_ptr<const Velmora::os::MappedFile>& out),
              MapFile(path, out))
#undef VPATH_FORWARD

}  // namespace vpath_test
