#include <velmora/searchpath/service_client.hpp>

#include <velmora/os/system.hpp>

namespace Velmora::SearchPath {
namespace {

// Reads one frame's payload of at most `most` bytes.
int ReceiveFrame(int socket, std::uint32_t most, int timeoutMs, std::string& payload) {
    std::string header;
    if (const int err = os::System().SocketReceive(socket, 4, timeoutMs, header); err != 0)
        return err;
    const std::uint32_t size = FrameLength(header);
    if (size > most)
        return EMSGSIZE;
    return os::System().SocketReceive(socket, size, timeoutMs, payload);
}

class Connection {
  public:
    explicit Connection(const std::string& socket, int timeoutMs) {
        if (os::System().SocketConnect(socket, timeoutMs, m_fd) != 0)
            m_fd = -1;
    }
    ~Connection() {
        if (m_fd >= 0)
            os::System().CloseFile(m_fd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    int Descriptor() const { return m_fd; }

  private:
    int m_fd = -1;
};

}  // namespace

std::optional<ServiceReply> AskPathService(const ServicePlace& place, const ServiceRequest& request,
                                           const ServiceTimeouts& timeouts) {
    // A service folder that someone else could have planted a socket in is not asked at all.
    if (!ServiceFolderProblem(place.folder, false).empty())
        return std::nullopt;
    const Connection connection(place.socket, timeouts.greetMs);
    const int socket = connection.Descriptor();
    if (socket < 0)
        return std::nullopt;
    std::string payload;
    if (ReceiveFrame(socket, kMostRequestBytes, timeouts.greetMs, payload) != 0 ||
        !ParseHello(payload)) {
        return std::nullopt;
    }
    const std::string sent = EncodeRequest(request);
    if (sent.size() > kMostRequestBytes ||
        os::System().SocketSend(socket, Frame(sent), timeouts.replyMs) != 0 ||
        ReceiveFrame(socket, kMostReplyBytes, timeouts.replyMs, payload) != 0) {
        return std::nullopt;
    }
    auto reply = ParseReply(payload);
    if (!reply || reply->status == kDeclined)
        return std::nullopt;
    return reply;
}

bool PathServiceRuns(const ServicePlace& place) {
    ServiceRequest request;
    request.operation = ServiceOperation::Status;
    request.pathDefinition = place.pathDefinition;
    return AskPathService(place, request, {}).has_value();
}

}  // namespace Velmora::SearchPath
