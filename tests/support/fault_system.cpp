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

int FaultSystem::Stat(const std::string& path, Velmora::os::FileStatus& out) {
    if (const int err = Check(Op::Stat, path))
        return err;
    return RealSystem().Stat(path, out);
}

int FaultSystem::ListFolder(const std::string& path, Velmora::os::FolderListing& out) {
    if (const int err = Check(Op::ListFolder, path))
        return err;
    return RealSystem().ListFolder(path, out);
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

}  // namespace vpath_test
