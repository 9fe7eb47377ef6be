#pragma once
// The listening socket that the user's service manager opened for the path service and handed
// over as it started it (systemd's socket activation: LISTEN_FDS and LISTEN_PID), so that the
// socket listens while no service runs and a client's connection starts one.

#include <string>

namespace Velmora::SearchPath::detail {

struct HandedSocket {
    int descriptor = -1;  // the listening socket, non-blocking; -1 when none was handed over
    std::string problem;  // why the sockets handed over cannot be served; empty when they can
};

// TakeHandedSocket: the socket handed over that is a Unix stream socket listening at `path`.
// None when no socket was handed over; a problem when sockets were, but none of them is that one
// (the socket unit and the service disagree on the path served). Clears the handing-over from the
// environment, so that a program this one starts does not take the sockets for its own.
HandedSocket TakeHandedSocket(const std::string& path);

}  // namespace Velmora::SearchPath::detail
