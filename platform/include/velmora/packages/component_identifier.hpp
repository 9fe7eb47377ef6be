#pragma once
// Component identifiers: which package, and which version of it.
//
// A component is identified by a 16-byte unique id (written as a UUID text) and a version. Two
// versions of one package share the unique id.
//
//   auto id = UniqueID::Parse("4f1c0e9a-3b2d-4c5e-8f70-112233445566");   // engaged
//   UniqueID::Parse("4f1c0e9a")                                          => nullopt
//   ComponentVersion::Parse("1.2")      => 1.2.0
//   ComponentVersion::Parse("1.2.0") == ComponentVersion::Parse("1.2")   => true
//   ComponentVersion::Parse("1.x")      => nullopt

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::VorlanComponents {

// UniqueID: 16 bytes, compared as one 128-bit value.
struct VELMORA_PLATFORM_EXPORT UniqueID {
    std::array<std::uint8_t, 16> bytes{};

    // Parse: the id of a UUID text (32 hexadecimal digits, in groups of 8-4-4-4-12 joined by "-",
    // either case); nullopt for any other text.
    static std::optional<UniqueID> Parse(std::string_view text);
    // ToString: the UUID text, lower case.
    std::string ToString() const;

    friend bool operator==(const UniqueID&, const UniqueID&) = default;
    friend std::strong_ordering operator<=>(const UniqueID&, const UniqueID&) = default;
};

// ComponentVersion: major.minor.patch.
struct VELMORA_PLATFORM_EXPORT ComponentVersion {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t patch = 0;

    // Parse: one to three decimal numbers joined by "."; missing parts are 0. nullopt for any
    // other text.
    static std::optional<ComponentVersion> Parse(std::string_view text);
    // ToString: "1.2.0".
    std::string ToString() const;

    friend bool operator==(const ComponentVersion&, const ComponentVersion&) = default;
    friend std::strong_ordering operator<=>(const ComponentVersion&,
                                            const ComponentVersion&) = default;
};

// ComponentIdentifier: a unique id, a version and, for people, a name. Two identifiers name the
// same component when their unique ids and versions are equal; the name takes no part.
class VELMORA_PLATFORM_EXPORT ComponentIdentifier {
  public:
    ComponentIdentifier() = default;
    ComponentIdentifier(UniqueID id, ComponentVersion version, ustring name = {});

    const UniqueID& GetUniqueID() const noexcept { return m_id; }
    const ComponentVersion& GetVersion() const noexcept { return m_version; }
    const ustring& GetName() const noexcept { return m_name; }

    friend bool operator==(const ComponentIdentifier& a, const ComponentIdentifier& b) noexcept {
        return a.m_id == b.m_id && a.m_version == b.m_version;
    }

  private:
    UniqueID m_id;
    ComponentVersion m_version;
    ustring m_name;
};

}  // namespace Velmora::VorlanComponents
