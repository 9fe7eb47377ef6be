// vpath_bench_socket serve SOCKET | ask SOCKET [ROUNDS]: the Unix-socket baseline that the path
// service's benchmark prints beside `vpath which` through the service.
//
//   serve  binds SOCKET, prints "ready" once it listens, and answers connections one at a time, as
//          the service does: a greeting frame on accept, then one reply frame per request frame,
//          until the client closes. It runs until it is killed.
//   ask    is the fresh client: it connects, reads the greeting, sends one request of the size of
//          a `vpath which NAME` request, reads the reply and prints the answer it carries. With
//          ROUNDS it then sends ROUNDS more requests on the same connection, one at a time, and
//          prints the median round trip in nanoseconds on a second line.
//
// Frames are those of the service (a 4-byte little-endian length, then the payload), so that the
// baseline does the same system calls as a client of the service and nothing else: no path, no
// watcher, no command. It links nothing but the C library's calls, so that its start is as cheap
// as a process's start gets.

#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr char kAnswer[] = "/home/user/toolbox/d05000/area.vl\n";

bool WriteAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t done = write(fd, data, size);
        if (done <= 0)
            return false;
        data += done;
        size -= static_cast<std::size_t>(done);
    }
    return true;
}

bool ReadAll(int fd, char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t done = read(fd, data, size);
        if (done <= 0)
            return false;
        data += done;
        size -= static_cast<std::size_t>(done);
    }
    return true;
}

// One frame in a single write, as the service and its client send them.
bool SendFrame(int fd, const char* payload, std::uint32_t size) {
    std::vector<char> frame(4 + size);
    for (int i = 0; i < 4; ++i)
        frame[static_cast<std::size_t>(i)] = static_cast<char>((size >> (8 * i)) & 0xFF);
    std::memcpy(frame.data() + 4, payload, size);
    return WriteAll(fd, frame.data(), frame.size());
}

bool ReceiveFrame(int fd, std::vector<char>& payload) {
    unsigned char length[4];
    if (!ReadAll(fd, reinterpret_cast<char*>(length), 4))
        return false;
    const std::uint32_t size = length[0] | (length[1] << 8) | (length[2] << 16) |
                               (static_cast<std::uint32_t>(length[3]) << 24);
    if (size > (1u << 20))
        return false;
    payload.resize(size);
    return ReadAll(fd, payload.data(), size);
}

sockaddr_un AddressOf(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    return address;
}

int Serve(const char* path) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf(path);
    unlink(path);
    if (listener < 0 ||
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 64) != 0) {
        std::perror("vpath_bench_socket: serve");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    const char hello[] = "VPhi\1\0\0\0\0\0\0\0";
    std::vector<char> request;
    for (;;) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        if (SendFrame(client, hello, sizeof(hello) - 1)) {
            while (ReceiveFrame(client, request)) {
                if (!SendFrame(client, kAnswer, sizeof(kAnswer) - 1))
                    break;
            }
        }
        close(client);
    }
}

long long NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

int Ask(const char* path, long rounds) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf(path);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        std::perror("vpath_bench_socket: ask");
        return 1;
    }
    // About what `vpath which NAME` sends: the path definition file, the current folder, the
    // arguments.
    char request[160];
    std::memset(request, 'r', sizeof(request));
    std::memcpy(request, "VPrq", 4);
    std::vector<char> reply;
    if (!ReceiveFrame(fd, reply) || !SendFrame(fd, request, sizeof(request)) ||
        !ReceiveFrame(fd, reply)) {
        std::fprintf(stderr, "vpath_bench_socket: the server did not answer\n");
        return 1;
    }
    std::fwrite(reply.data(), 1, reply.size(), stdout);
    if (rounds > 0) {
        std::vector<long long> times;
        times.reserve(static_cast<std::size_t>(rounds));
        for (long i = 0; i < rounds; ++i) {
            const long long start = NowNs();
            if (!SendFrame(fd, request, sizeof(request)) || !ReceiveFrame(fd, reply))
                return 1;
            times.push_back(NowNs() - start);
        }
        std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
        std::printf("%lld\n", times[static_cast<std::size_t>(rounds / 2)]);
    }
    close(fd);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0)
        return Serve(argv[2]);
    if ((argc == 3 || argc == 4) && std::strcmp(argv[1], "ask") == 0)
        return Ask(argv[2], argc == 4 ? std::strtol(argv[3], nullptr, 10) : 0);
    std::fprintf(stderr, "usage: %s serve SOCKET | ask SOCKET [ROUNDS]\n", argv[0]);
    return 2;
}
