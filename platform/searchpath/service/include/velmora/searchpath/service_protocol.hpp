#pragma once
// The path service's protocol: what a client and the service say to each other over the
// service's Unix socket (docs/service-protocol.md describes it for other clients).
//
// Every message is a frame: its length as a 4-byte little-endian number, then that many bytes.
// On each connection the service speaks first, with a hello; the client sends one request; the
// service answers it with one reply and closes the connection (a batch goes on, see Batch).
//
//   std::string frame = Frame(EncodeRequest(request));
//   ...
//   if (const auto request = ParseRequest(payload)) { ... }  // none: malformed, or too large
//
// A request is capped at kMostRequestBytes; its parser takes any bytes and never reads beyond
// them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <velmora/searchpath/export.hpp>

namespace Velmora::SearchPath {

// The protocol's version: a hello, a request and a reply each carry it, and a side that meets
// another version treats the message as malformed.
inline constexpr std::uint32_t kServiceProtocolVersion = 1;
// The most bytes of a request's payload, and of a reply's.
inline constexpr std::uint32_t kMostRequestBytes = std::uint32_t{1} << 20;
inline constexpr std::uint32_t kMostReplyBytes = std::uint32_t{1} << 30;

enum class ServiceOperation : std::uint8_t {
    Run = 1,     // run a vpath command on the service's path and give its output
    Status = 2,  // tell what the service holds
    Stop = 3,    // end the service once the reply is sent
    // Batch: answer `which --batch` for a client that sends its names in pieces: the service
    // replies to the request (status 0: go on), then to each frame of names (each name ended by
    // the batch's separator) with their answers, until an empty frame ends the batch.
    Batch = 4,
};

struct ServiceRequest {
    ServiceOperation operation = ServiceOperation::Run;
    // The path definition file the client means (an absolute native path): a service of another
    // path declines.
    std::string pathDefinition;
    // Run: the client's current folder and its arguments (without the program's name).
    std::string folder;
    std::vector<std::string> arguments;
    // Run: the client's environment variables that shape answers (name, value; a variable that is
    // not set is left out): a service whose own differ declines. Names that start with ':' tell
    // what the client's streams are instead (kTerminalSetting).
    std::vector<std::pair<std::string, std::string>> settings;

    bool operator==(const ServiceRequest&) const = default;
};

// kTerminalSetting: a setting present when the client's standard output is a terminal, so that
// the command run for it writes what it would write to one.
inline constexpr const char* kTerminalSetting = ":terminal";

// kDeclined: the status of a reply by which the service declines to answer; the client answers
// from the disk itself.
inline constexpr std::int32_t kDeclined = -1;

struct ServiceReply {
    std::int32_t status = 0;  // the command's exit status, or kDeclined
    std::string out;          // its standard output
    std::string err;          // its standard error

    bool operator==(const ServiceReply&) const = default;
};

// Frame: `payload` behind its length.
VELMORA_SEARCHPATH_EXPORT std::string Frame(std::string_view payload);
// FrameLength: the payload length a frame's first 4 bytes give.
VELMORA_SEARCHPATH_EXPORT std::uint32_t FrameLength(std::string_view header);

VELMORA_SEARCHPATH_EXPORT std::string EncodeHello(std::uint32_t process);
// ParseHello: the service's process id; none when `payload` is no hello of this version.
VELMORA_SEARCHPATH_EXPORT std::optional<std::uint32_t> ParseHello(std::string_view payload);

VELMORA_SEARCHPATH_EXPORT std::string EncodeRequest(const ServiceRequest& request);
// ParseRequest: the request in `payload`; none when it is malformed, of another version, or
// larger than kMostRequestBytes.
VELMORA_SEARCHPATH_EXPORT std::optional<ServiceRequest> ParseRequest(std::string_view payload);

// AnswerSettings: this process's values of the environment variables that shape answers, as a
// request's settings carries them (without the streams' settings).
VELMORA_SEARCHPATH_EXPORT std::vector<std::pair<std::string, std::string>> AnswerSettings();

VELMORA_SEARCHPATH_EXPORT std::string EncodeReply(const ServiceReply& reply);
VELMORA_SEARCHPATH_EXPORT std::optional<ServiceReply> ParseReply(std::string_view payload);

}  // namespace Velmora::SearchPath
