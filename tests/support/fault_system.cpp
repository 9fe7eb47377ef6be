#include "support/fault_system.hpp"

namespace vpath_test {

using Velmora::os::RealSystem;

FaultSystem::FaultSystem() : m_override(*this) {}
FaultSystem::~FaultSystem() = default;

void FaultSystem::Fail(Op op, std::string pathSuffix, int error) {
    std::lock_guard lock(m_mutex);
    m_rules.push_back({op, std::move(pathSuffix), error});
}

int FaultSystem::Calls(Op op) const {
    return m_calls[static_cast<int>(op)].load();
}

int FaultSystem::Check(Op op, const std::string& path) {
    ++m_calls[static_cast<int>(op)];
    std::lock_guard lock(m_mutex);
    for (const auto& rule : m_rules) {
        if (rule.op == op && path.ends_with(rule.suffix))
            return rule.error;
    }
    return 0;
}

std::string FaultSystem::PathOf(int descriptor) const {
    std::lock_guard lock(m_mutex);
    const auto it = m_descriptors.find(descriptor);
    return it == m_descriptors.end() ? std::string() : it->second;
}

namespace {

void Coarsen(Velmora::os::FileStatus& status, std::int64_t granularityNs) {
    if (granularityNs == 0 || !status.IsFolder())
        return;
    status.modifiedNs -= status.modifiedNs % granularityNs;
    status.changedNs -= status.changedNs % granularityNs;
    status.size = 0;
}

}  // namespace

int FaultSystem::Stat(const std::string& path, Velmora::os::FileStatus& out) {
    if (const int err = Check(Op::Stat, path))
        return err;
    const int err = RealSystem().Stat(path, out);
    Coarsen(out, m_coarseNs);
    return err;
}

int FaultSystem::ListFolder(const std::string& path, Velmora::os::FolderListing& out) {
    if (const int err = Check(Op::ListFolder, path))
        return err;
    const int err = RealSystem().ListFolder(path, out);
    Coarsen(out.status, m_coarseNs);
    return err;
}

int FaultSystem::RealPath(const std::string& path, std::string& out) {
    if (const int err = Check(Op::RealPath, path))
        return err;
    return RealSystem().RealPath(path, out);
}

int FaultSystem::CurrentFolder(std::string& out) {
    if (const int err = Check(Op::CurrentFolder, ""))
        return err;
    return RealSystem().CurrentFolder(out);
}

int FaultSystem::ReadFile(const std::string& path, std::string& out) {
    if (const int err = Check(Op::ReadFile, path))
        return err;
    return RealSystem().ReadFile(path, out);
}

int FaultSystem::ReadRegularFile(const std::string& path, std::uint64_t maxBytes,
                                 std::string& out) {
    if (const int err = Check(Op::ReadFile, path))
        return err;
    return RealSystem().ReadRegularFile(path, maxBytes, out);
}

int FaultSystem::CreateFileExclusive(const std::string& path, int& descriptor) {
    if (const int err = Check(Op::CreateFileExclusive, path))
        return err;
    const int err = RealSystem().CreateFileExclusive(path, descriptor);
    if (err == 0) {
        std::lock_guard lock(m_mutex);
        m_descriptors[descriptor] = path;
    }
    return err;
}

int FaultSystem::WriteAll(int descriptor, std::string_view data) {
    if (const int err = Check(Op::WriteAll, PathOf(descriptor)))
        return err;
    return RealSystem().WriteAll(descriptor, data);
}

int FaultSystem::SyncFile(int descriptor) {
    if (const int err = Check(Op::SyncFile, PathOf(descriptor)))
        return err;
    return RealSystem().SyncFile(descriptor);
}

int FaultSystem::CloseFile(int descriptor) {
    const std::string path = PathOf(descriptor);
    // The descriptor is given back whatever the outcome, as the real system does.
    const int real = RealSystem().CloseFile(descriptor);
    {
        std::lock_guard lock(m_mutex);
        m_descriptors.erase(descriptor);
    }
    if (const int err = Check(Op::CloseFile, path))
        return err;
    return real;
}

int FaultSystem::Rename(const std::string& from, const std::string& to) {
    if (const int err = Check(Op::Rename, to))
        return err;
    return RealSystem().Rename(from, to);
}

int FaultSystem::RemoveFile(const std::string& path) {
    if (const int err = Check(Op::RemoveFile, path))
        return err;
    return RealSystem().RemoveFile(path);
}

int FaultSystem::SyncFolder(const std::string& path) {
    if (const int err = Check(Op::SyncFolder, path))
        return err;
    return RealSystem().SyncFolder(path);
}

int FaultSystem::MakeFolders(const std::string& path) {
    if (const int err = Check(Op::MakeFolders, path))
        return err;
    return RealSystem().MakeFolders(path);
}

int FaultSystem::OpenFileForWriting(const std::string& path, int& descriptor) {
    if (const int err = Check(Op::OpenFileForWriting, path))
        return err;
    const int err = RealSystem().OpenFileForWriting(path, descriptor);
    if (err == 0) {
        std::lock_guard lock(m_mutex);
        m_descriptors[descriptor] = path;
    }
    return err;
}

int FaultSystem::MapFile(const std::string& path,
                         std::unique_ptr<const Velmora::os::MappedFile>& out) {
    if (const int err = Check(Op::MapFile, path))
        return err;
    return RealSystem().MapFile(path, out);
}

}  // namespace vpath_test
