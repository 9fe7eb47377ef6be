#pragma once
// The path service's wire format, shared by its messages: little-endian numbers, strings behind
// their length, and a reader that marks a message malformed at any read past its end.

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/service_protocol.hpp>

namespace Velmora::SearchPath::wire {

inline void PutNumber(std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

inline void PutWide(std::string& out, std::uint64_t value) {
    PutNumber(out, static_cast<std::uint32_t>(value));
    PutNumber(out, static_cast<std::uint32_t>(value >> 32));
}

inline void PutBytes(std::string& out, std::string_view bytes) {
    PutNumber(out, static_cast<std::uint32_t>(bytes.size()));
    out += bytes;
}

// Opening: a message's four letters of its kind and the protocol's version.
inline std::string Opening(std::string_view kind) {
    std::string out(kind);
    PutNumber(out, kServiceProtocolVersion);
    return out;
}

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
    std::uint64_t Wide() {
        const std::uint64_t low = Number();
        return low | (std::uint64_t{Number()} << 32);
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
    // Count: a number of items of at least `least` bytes each, checked against what is left, so
    // that a forged count cannot make the reader reserve more than the message holds.
    std::uint32_t Count(std::size_t least = 4) {
        const std::uint32_t count = Number();
        if (count > m_rest.size() / least)
            return Fail(), 0;
        return count;
    }
    bool Done() const { return m_good && m_rest.empty(); }
    bool Good() const { return m_good; }
    bool Fail() {
        m_good = false;
        m_rest = {};
        return false;
    }

  private:
    std::string_view m_rest;
    bool m_good = true;
};

// ReceiveFrame: reads one frame from `socket` into `payload`, waiting at most `timeoutMs` for
// each part; EMSGSIZE when its payload would be over `most` bytes.
inline int ReceiveFrame(int socket, std::uint32_t most, int timeoutMs, std::string& payload) {
    std::string header;
    if (const int err = os::System().SocketReceive(socket, 4, timeoutMs, header); err != 0)
        return err;
    const std::uint32_t size = FrameLength(header);
    if (size > most)
        return EMSGSIZE;
    return os::System().SocketReceive(socket, size, timeoutMs, payload);
}

}  // namespace Velmora::SearchPath::wire
