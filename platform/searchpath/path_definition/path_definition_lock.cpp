// PathDefinitionFile::LockForChange: one change of the saved path at a time, across processes.

#include <velmora/searchpath/path_definition_file.hpp>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include <velmora/os/system.hpp>

#include "path_definition_detail.hpp"

namespace Velmora::SearchPath {
namespace {

using detail::FolderOf;
using detail::NameOf;
using detail::Target;
using foundation::core::except::Notification;

std::string LockFileOf(const std::string& target) {
    const std::string folder = FolderOf(target);
    return (folder == "/" ? "" : folder) + "/." + NameOf(target) + ".lock";
}

// Waits for the lock on `descriptor`, calling `notice` once if that takes more than a second.
int WaitForLock(int descriptor, const std::function<void()>& notice) {
    if (!notice)
        return os::System().LockExclusive(descriptor, true);
    std::mutex mutex;
    std::condition_variable wake;
    bool locked = false;
    std::thread watchdog([&] {
        std::unique_lock lock(mutex);
        if (wake.wait_for(lock, std::chrono::seconds(1), [&] { return locked; }))
            return;
        lock.unlock();
        notice();
    });
    const int err = os::System().LockExclusive(descriptor, true);
    {
        std::lock_guard lock(mutex);
        locked = true;
    }
    wake.notify_one();
    watchdog.join();
    return err;
}

}  // namespace

PathDefinitionFile::ChangeLock PathDefinitionFile::LockForChange(Notification& problems) const {
    os::ISystem& system = os::System();
    const std::string lockFile = LockFileOf(Target(m_path));
    int descriptor = -1;
    int err = system.MakeFolders(FolderOf(lockFile));
    if (err == 0)
        err = system.OpenLockFile(lockFile, descriptor);
    if (err == 0) {
        err = system.LockExclusive(descriptor, false);
        if (err == EWOULDBLOCK)
            err = WaitForLock(descriptor, m_slowLockNotice);
    }
    if (err != 0) {
        if (descriptor >= 0)
            system.CloseFile(descriptor);
        problems.Add(VELMORA::pathdef::cannotSave(
            text::FromNative(m_path),
            fmt::format("cannot lock {}: {}", lockFile, os::ErrorText(err))));
        return ChangeLock();
    }
    return ChangeLock(descriptor);
}

PathDefinitionFile::ChangeLock::ChangeLock(ChangeLock&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

PathDefinitionFile::ChangeLock& PathDefinitionFile::ChangeLock::operator=(
    ChangeLock&& other) noexcept {
    if (this != &other) {
        if (m_descriptor >= 0)
            os::System().CloseFile(m_descriptor);
        m_descriptor = std::exchange(other.m_descriptor, -1);
    }
    return *this;
}

PathDefinitionFile::ChangeLock::~ChangeLock() {
    // Closing the only descriptor of the lock file releases the lock.
    if (m_descriptor >= 0)
        os::System().CloseFile(m_descriptor);
}

}  // namespace Velmora::SearchPath
