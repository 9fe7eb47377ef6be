#include <velmora/searchpath/service_client.hpp>

#include <utility>

#include <velmora/os/system.hpp>

#include "wire.hpp"

namespace Velmora::SearchPath {
namespace {

using wire::ReceiveFrame;

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
    int Release() { return std::exchange(m_fd, -1); }

  private:
    int m_fd = -1;
};

// Connects to the service at `place`, is greeted, sends `request` and takes the first reply; the
// connection is left open in `connection`.
std::optional<ServiceReply> Converse(const ServicePlace& place, const ServiceRequest& request,
                                     const ServiceTimeouts& timeouts,
                                     std::optional<Connection>& connection) {
    // A service folder that someone else could have planted a socket in is not asked at all.
    if (!ServiceFolderProblem(place.folder, false).empty())
        return std::nullopt;
    connection.emplace(place.socket, timeouts.greetMs);
    const int socket = connection->Descriptor();
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

}  // namespace

std::optional<ServiceReply> AskPathService(const ServicePlace& place, const ServiceRequest& request,
                                           const ServiceTimeouts& timeouts) {
    std::optional<Connection> connection;
    return Converse(place, request, timeouts, connection);
}

std::unique_ptr<PathServiceBatch> PathServiceBatch::Open(const ServicePlace& place,
                                                         const ServiceRequest& request,
                                                         const ServiceTimeouts& timeouts,
                                                         ServiceReply& opening) {
    std::optional<Connection> connection;
    auto reply = Converse(place, request, timeouts, connection);
    if (!reply)
        return nullptr;
    opening = std::move(*reply);
    return std::unique_ptr<PathServiceBatch>(
        new PathServiceBatch(connection->Release(), timeouts.replyMs));
}

PathServiceBatch::PathServiceBatch(int socket, int replyMs)
    : m_socket(socket), m_replyMs(replyMs) {}

PathServiceBatch::~PathServiceBatch() {
    if (m_socket < 0)
        return;
    // An empty piece ends the batch; the service may be gone already, which is as good.
    os::System().SocketSend(m_socket, Frame({}), 100);
    os::System().CloseFile(m_socket);
}

std::optional<ServiceReply> PathServiceBatch::Ask(std::string_view names) {
    if (m_socket < 0 || names.empty() || names.size() > kMostRequestBytes)
        return std::nullopt;
    std::string payload;
    std::optional<ServiceReply> reply;
    if (os::System().SocketSend(m_socket, Frame(names), m_replyMs) == 0 &&
        ReceiveFrame(m_socket, kMostReplyBytes, m_replyMs, payload) == 0) {
        reply = ParseReply(payload);
    }
    if (!reply || reply->status == kDeclined) {
        os::System().CloseFile(std::exchange(m_socket, -1));
        return std::nullopt;
    }
    return reply;
}

bool PathServiceRuns(const ServicePlace& place) {
    ServiceRequest request;
    request.operation = ServiceOperation::Status;
    request.pathDefinition = place.pathDefinition;
    return AskPathService(place, request, {}).has_value();
}

}  // namespace Velmora::SearchPath
