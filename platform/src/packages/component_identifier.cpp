#include <velmora/packages/component_identifier.hpp>

#include <charconv>

namespace Velmora::VorlanComponents {
namespace {

int HexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool IsDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

std::optional<UniqueID> UniqueID::Parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    UniqueID id;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (IsDashPosition(i)) {
            if (text[i] != '-')
                return std::nullopt;
            ++i;
            continue;
        }
        const int high = HexValue(text[i]);
        const int low = HexValue(text[i + 1]);
        if (high < 0 || low < 0 || IsDashPosition(i + 1))
            return std::nullopt;
        id.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return id;
}

std::string UniqueID::ToString() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
}

std::optional<ComponentVersion> ComponentVersion::Parse(std::string_view text) {
    std::uint32_t parts[3] = {0, 0, 0};
    std::size_t count = 0;
    const char* p = text.data();
    const char* const end = text.data() + text.size();
    for (;;) {
        if (count == 3 || p == end || *p < '0' || *p > '9')
            return std::nullopt;
        const auto [next, error] = std::from_chars(p, end, parts[count]);
        if (error != std::errc())
            return std::nullopt;
        ++count;
        p = next;
        if (p == end)
            break;
        if (*p != '.')
            return std::nullopt;
        ++p;
    }
    return ComponentVersion{parts[0], parts[1], parts[2]};
}

std::string ComponentVersion::ToString() const {
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

ComponentIdentifier::ComponentIdentifier(UniqueID id, ComponentVersion version, ustring name)
    : m_id(id), m_version(version), m_name(std::move(name)) {}

}  // namespace Velmora::VorlanComponents
