// Fuzzes the path service's request parser, which reads whatever a local client sends. Whatever
// the bytes, parsing must neither crash nor read beyond them; what it accepts must encode back to
// the very same bytes (the format has one spelling per request), and its reply and hello parsers
// must hold the same for theirs. The frames of subscriptions and lookups, which an attached
// program reads, are parsed too: what their parsers accept must survive encoding and parsing again
// (a folder's location is kept in its normal form, which may be spelt otherwise on the wire).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <velmora/searchpath/served_change.hpp>
#include <velmora/searchpath/service_protocol.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Velmora::SearchPath;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto request = ParseRequest(bytes)) {
        if (EncodeRequest(*request) != bytes || ParseRequest(EncodeRequest(*request)) != request)
            std::abort();
    }
    if (const auto reply = ParseReply(bytes)) {
        if (EncodeReply(*reply) != bytes)
            std::abort();
    }
    if (const auto process = ParseHello(bytes)) {
        if (EncodeHello(*process) != bytes)
            std::abort();
    }
    if (const auto change = ParseServedChange(bytes)) {
        if (ParseServedChange(EncodeServedChange(*change)) != change)
            std::abort();
    }
    if (const auto generation = ParseSubscribed(bytes)) {
        if (EncodeSubscribed(*generation) != bytes)
            std::abort();
    }
    if (const auto answer = ParseLookupAnswer(bytes)) {
        if (EncodeLookupAnswer(*answer) != bytes)
            std::abort();
    }
    return 0;
}
