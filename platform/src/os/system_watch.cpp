// The folder-watch calls of the OS seam, on Linux's inotify.

#include <velmora/os/system.hpp>

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace Velmora::os {

static_assert(WatchModified == IN_MODIFY && WatchAttributes == IN_ATTRIB &&
              WatchClosedWrite == IN_CLOSE_WRITE && WatchMovedFrom == IN_MOVED_FROM &&
              WatchMovedTo == IN_MOVED_TO && WatchCreated == IN_CREATE &&
              WatchDeleted == IN_DELETE && WatchSelfDeleted == IN_DELETE_SELF &&
              WatchSelfMoved == IN_MOVE_SELF && WatchOverflow == IN_Q_OVERFLOW &&
              WatchIgnored == IN_IGNORED && WatchIsFolder == IN_ISDIR &&
              WatchOnlyFolder == IN_ONLYDIR);

int ISystem::WatchOpen(int& queue) {
    queue = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return queue < 0 ? errno : 0;
}

int ISystem::WatchAdd(int queue, const std::string& path, std::uint32_t mask, int& watch) {
    watch = ::inotify_add_watch(queue, path.c_str(), mask);
    return watch < 0 ? errno : 0;
}

int ISystem::WatchRemove(int queue, int watch) {
    return ::inotify_rm_watch(queue, watch) == 0 ? 0 : errno;
}

int ISystem::WatchRead(int queue, int timeoutMs, std::vector<WatchEvent>& out) {
    out.clear();
    pollfd ready{queue, POLLIN, 0};
    const int n = ::poll(&ready, 1, timeoutMs);
    if (n < 0)
        return errno == EINTR ? 0 : errno;
    if (n == 0)
        return 0;
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(queue, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return errno == EAGAIN ? 0 : errno;
        }
        for (ssize_t at = 0; at < got;) {
            inotify_event header;
            std::memcpy(&header, buffer + at, sizeof header);
            const char* name = buffer + at + sizeof header;
            out.push_back(WatchEvent{
                header.wd, header.mask, header.cookie,
                header.len ? std::string(name, ::strnlen(name, header.len)) : std::string()});
            at += static_cast<ssize_t>(sizeof header + header.len);
        }
        if (static_cast<std::size_t>(got) < sizeof buffer / 2)
            return 0;
    }
}

int ISystem::WatchClose(int queue) {
    return ::close(queue) == 0 ? 0 : errno;
}

}  // namespace Velmora::os
