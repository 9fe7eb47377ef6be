#include <velmora/searchpath/service_protocol.hpp>

#include <cstdlib>

namespace Velmora::SearchPath {
namespace {

// Each message opens with four letters of its kind and the protocol's version.
constexpr std::string_view kHello = "VPhi";
constexpr std::string_view kRequest = "VPrq";
constexpr std::string_view kReply = "VPrp";

void PutNumber(std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

void PutBytes(std::string& out, std::string_view bytes) {
    PutNumber(out, static_cast<std::uint32_t>(bytes.size()));
    out += bytes;
}

std::string Opening(std::string_view kind) {
    std::string out(kind);
    PutNumber(out, kServiceProtocolVersion);
    return out;
}

// Reads a message front to back; any read past its end marks it malformed.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : m_rest(bytes) {}

    bool Opening(std::string_view kind) {
        if (!m_rest.starts_with(kind))
            return Fail();
        m_rest.remove_prefix(kind.size());
        return Number() == kServiceProtocolVersion && m_good;
    }
    std::uint32_t Number() {
        if (m_rest.size() < 4)
            return Fail(), 0;
        const std::uint32_t value = FrameLength(m_rest);
        m_rest.remove_prefix(4);
        return value;
    }
    std::uint8_t Byte() {
        if (m_rest.empty())
            return Fail(), 0;
        const auto value = static_cast<std::uint8_t>(m_rest[0]);
        m_rest.remove_prefix(1);
        return value;
    }
    std::string Bytes() {
        const std::uint32_t size = Number();
        if (size > m_rest.size())
            return Fail(), std::string();
        std::string value(m_rest.substr(0, size));
        m_rest.remove_prefix(size);
        return value;
    }
    // Count: a number of items of at least 4 bytes each, checked against what is left, so that
    // a forged count cannot make the reader reserve more than the message holds.
    std::uint32_t Count() {
        const std::uint32_t count = Number();
        if (count > m_rest.size() / 4)
            return Fail(), 0;
        return count;
    }
    bool Done() const { return m_good && m_rest.empty(); }
    bool Good() const { return m_good; }

  private:
    bool Fail() {
        m_good = false;
        m_rest = {};
        return false;
    }
    std::string_view m_rest;
    bool m_good = true;
};

}  // namespace

std::string Frame(std::string_view payload) {
    std::string out;
    out.reserve(4 + payload.size());
    PutNumber(out, static_cast<std::uint32_t>(payload.size()));
    out += payload;
    return out;
}

std::uint32_t FrameLength(std::string_view header) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | static_cast<std::uint8_t>(header[static_cast<std::size_t>(i)]);
    return value;
}

std::string EncodeHello(std::uint32_t process) {
    std::string out = Opening(kHello);
    PutNumber(out, process);
    return out;
}

std::optional<std::uint32_t> ParseHello(std::string_view payload) {
    Reader in(payload);
    if (!in.Opening(kHello))
        return std::nullopt;
    const std::uint32_t process = in.Number();
    return in.Done() ? std::optional(process) : std::nullopt;
}

std::string EncodeRequest(const ServiceRequest& request) {
    std::string out = Opening(kRequest);
    out += static_cast<char>(request.operation);
    PutBytes(out, request.pathDefinition);
    PutBytes(out, request.folder);
    PutNumber(out, static_cast<std::uint32_t>(request.arguments.size()));
    for (const auto& argument : request.arguments)
        PutBytes(out, argument);
    PutNumber(out, static_cast<std::uint32_t>(request.settings.size()));
    for (const auto& [name, value] : request.settings) {
        PutBytes(out, name);
        PutBytes(out, value);
    }
    return out;
}

std::optional<ServiceRequest> ParseRequest(std::string_view payload) {
    if (payload.size() > kMostRequestBytes)
        return std::nullopt;
    Reader in(payload);
    if (!in.Opening(kRequest))
        return std::nullopt;
    ServiceRequest request;
    const std::uint8_t operation = in.Byte();
    if (operation < 1 || operation > 4)
        return std::nullopt;
    request.operation = static_cast<ServiceOperation>(operation);
    request.pathDefinition = in.Bytes();
    request.folder = in.Bytes();
    const std::uint32_t arguments = in.Count();
    for (std::uint32_t i = 0; i < arguments && in.Good(); ++i)
        request.arguments.push_back(in.Bytes());
    const std::uint32_t settings = in.Count();
    for (std::uint32_t i = 0; i < settings && in.Good(); ++i) {
        std::string name = in.Bytes();
        request.settings.emplace_back(std::move(name), in.Bytes());
    }
    return in.Done() ? std::optional(std::move(request)) : std::nullopt;
}

std::vector<std::pair<std::string, std::string>> AnswerSettings() {
    // What decides how names resolve beyond the path itself.
    static constexpr const char* kNames[] = {"VPATH_AT_FOLDER_PRECEDENCE"};
    std::vector<std::pair<std::string, std::string>> settings;
    for (const char* name : kNames) {
        if (const char* value = std::getenv(name))
            settings.emplace_back(name, value);
    }
    return settings;
}

std::string EncodeReply(const ServiceReply& reply) {
    std::string out = Opening(kReply);
    out.reserve(out.size() + 12 + reply.out.size() + reply.err.size());
    PutNumber(out, static_cast<std::uint32_t>(reply.status));
    PutBytes(out, reply.out);
    PutBytes(out, reply.err);
    return out;
}

std::optional<ServiceReply> ParseReply(std::string_view payload) {
    Reader in(payload);
    if (!in.Opening(kReply))
        return std::nullopt;
    ServiceReply reply;
    reply.status = static_cast<std::int32_t>(in.Number());
    reply.out = in.Bytes();
    reply.err = in.Bytes();
    return in.Done() ? std::optional(std::move(reply)) : std::nullopt;
}

}  // namespace Velmora::SearchPath
