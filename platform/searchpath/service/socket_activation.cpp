#include "service/socket_activation.hpp"

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>

#include <systemd/sd-daemon.h>

#include <fmt/format.h>

#include <velmora/os/system.hpp>

namespace Velmora::SearchPath::detail {

HandedSocket TakeHandedSocket(const std::string& path) {
    HandedSocket handed;
    const int count = sd_listen_fds(1);
    if (count < 0) {
        handed.problem =
            fmt::format("cannot take the sockets handed over by the service manager: {}",
                        os::ErrorText(-count));
        return handed;
    }
    for (int fd = SD_LISTEN_FDS_START; fd < SD_LISTEN_FDS_START + count; ++fd) {
        if (sd_is_socket_unix(fd, SOCK_STREAM, 1, path.c_str(), 0) > 0) {
            handed.descriptor = fd;
            break;
        }
    }
    if (count > 0 && handed.descriptor < 0) {
        handed.problem = fmt::format(
            "the service manager handed over no socket listening at {}: is VPATH_PATHDEF set for "
            "it? Its units serve the usual path only",
            path);
        return handed;
    }
    // Waits for a connection are bounded: accept must never block.
    if (handed.descriptor >= 0) {
        const int flags = ::fcntl(handed.descriptor, F_GETFL);
        if (flags < 0 || ::fcntl(handed.descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
            handed.problem = fmt::format("cannot use the socket handed over at {}: {}", path,
                                         os::ErrorText(errno));
        }
    }
    return handed;
}

}  // namespace Velmora::SearchPath::detail
