// The local-socket, standard-stream and process calls of the OS seam, for the path service.

#include <velmora/os/system.hpp>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

extern char** environ;

namespace Velmora::os {
namespace {

using Clock = std::chrono::steady_clock;

int Address(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return ENAMETOOLONG;
    std::memcpy(address.sun_path, path.data(), path.size());
    return 0;
}

// Waits at most until `deadline` for `events` on `descriptor`; ETIMEDOUT when time runs out.
int WaitFor(int descriptor, short events, Clock::time_point deadline, bool forever) {
    for (;;) {
        int timeout = -1;
        if (!forever) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                timeout = 0;
            else
                timeout = static_cast<int>(left.count());
        }
        pollfd ready{descriptor, events, 0};
        const int n = ::poll(&ready, 1, timeout);
        if (n > 0)
            return 0;
        if (n == 0)
            return ETIMEDOUT;
        if (errno != EINTR)
            return errno;
    }
}

Clock::time_point Deadline(int timeoutMs) {
    return Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
}

}  // namespace

int ISystem::SocketListen(const std::string& path, int& descriptor) {
    sockaddr_un address;
    if (const int err = Address(path, address); err != 0)
        return err;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return errno;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 64) != 0) {
        const int err = errno;
        ::close(fd);
        return err;
    }
    descriptor = fd;
    return 0;
}

int ISystem::SocketConnect(const std::string& path, int timeoutMs, int& descriptor) {
    sockaddr_un address;
    if (const int err = Address(path, address); err != 0)
        return err;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return errno;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        int err = errno;
        // A listener whose backlog is full makes the connection wait.
        if (err == EAGAIN || err == EINPROGRESS) {
            err = WaitFor(fd, POLLOUT, Deadline(timeoutMs), timeoutMs < 0);
            socklen_t size = sizeof err;
            if (err == 0 && ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &size) != 0)
                err = errno;
        }
        if (err != 0) {
            ::close(fd);
            return err;
        }
    }
    descriptor = fd;
    return 0;
}

int ISystem::SocketAccept(int listener, int timeoutMs, int& descriptor) {
    const auto deadline = Deadline(timeoutMs);
    for (;;) {
        if (const int err = WaitFor(listener, POLLIN, deadline, timeoutMs < 0); err != 0)
            return err;
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0) {
            descriptor = fd;
            return 0;
        }
        // The client may have given up between the wake-up and the accept.
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            return errno;
    }
}

int ISystem::SocketPeerUser(int descriptor, std::uint32_t& user) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return errno;
    user = static_cast<std::uint32_t>(credentials.uid);
    return 0;
}

int ISystem::SocketSend(int descriptor, std::string_view data, int timeoutMs) {
    const auto deadline = Deadline(timeoutMs);
    while (!data.empty()) {
        const ssize_t sent = ::send(descriptor, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            data.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return errno;
        if (const int err = WaitFor(descriptor, POLLOUT, deadline, timeoutMs < 0); err != 0)
            return err;
    }
    return 0;
}

int ISystem::SocketReceive(int descriptor, std::size_t size, int timeoutMs, std::string& out) {
    const auto deadline = Deadline(timeoutMs);
    out.resize(size);
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = ::recv(descriptor, out.data() + got, size - got, 0);
        if (n > 0) {
            got += static_cast<std::size_t>(n);
            continue;
        }
        if (n == 0)
            return ECONNRESET;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return errno;
        if (const int err = WaitFor(descriptor, POLLIN, deadline, timeoutMs < 0); err != 0)
            return err;
    }
    return 0;
}

int ISystem::SocketShutdown(int descriptor) {
    return ::shutdown(descriptor, SHUT_RDWR) == 0 ? 0 : errno;
}

int ISystem::CaptureStream(int stream, int& saved) {
    const int memory = ::memfd_create("vpath-stream", MFD_CLOEXEC);
    if (memory < 0)
        return errno;
    saved = ::fcntl(stream, F_DUPFD_CLOEXEC, 3);
    if (saved < 0 || ::dup2(memory, stream) < 0) {
        const int err = errno;
        ::close(memory);
        if (saved >= 0)
            ::close(saved);
        return err;
    }
    ::close(memory);
    return 0;
}

int ISystem::EndCapture(int stream, int saved, std::string& written) {
    written.clear();
    struct stat status {};
    int err = ::fstat(stream, &status) == 0 ? 0 : errno;
    if (err == 0) {
        written.resize(static_cast<std::size_t>(status.st_size));
        std::size_t got = 0;
        while (got < written.size()) {
            const ssize_t n = ::pread(stream, written.data() + got, written.size() - got,
                                      static_cast<off_t>(got));
            if (n <= 0) {
                if (n < 0 && errno == EINTR)
                    continue;
                err = n < 0 ? errno : 0;
                break;
            }
            got += static_cast<std::size_t>(n);
        }
        written.resize(got);
    }
    if (::dup2(saved, stream) < 0 && err == 0)
        err = errno;
    ::close(saved);
    return err;
}

int ISystem::ChangeFolder(const std::string& path) {
    return ::chdir(path.c_str()) == 0 ? 0 : errno;
}

int ISystem::SpawnDetached(const std::vector<std::string>& argv, const std::string& logPath,
                           std::uint32_t& process) {
    if (argv.empty())
        return EINVAL;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, logPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    // A session of its own: the terminal's hang-up and its Ctrl-C do not reach the service.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    std::vector<char*> args;
    for (const auto& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    // Children are not waited for: the system reaps them as they end, so that ProcessExists tells
    // of one that ended.
    ::signal(SIGCHLD, SIG_IGN);
    pid_t pid = 0;
    const int err = ::posix_spawn(&pid, args[0], &actions, &attributes, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (err == 0)
        process = static_cast<std::uint32_t>(pid);
    return err;
}

}  // namespace Velmora::os
