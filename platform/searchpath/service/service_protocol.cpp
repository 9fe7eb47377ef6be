#include <velmora/searchpath/service_protocol.hpp>

#include <cstdlib>

#include "wire.hpp"

namespace Velmora::SearchPath {
namespace {

// Each message opens with four letters of its kind and the protocol's version.
constexpr std::string_view kHello = "VPhi";
constexpr std::string_view kRequest = "VPrq";
constexpr std::string_view kReply = "VPrp";

using wire::Opening;
using wire::PutBytes;
using wire::PutNumber;
using wire::Reader;

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
    if (operation < 1 || operation > 6)
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
