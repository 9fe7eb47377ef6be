#pragma once
// The package registry: the packages installed under a packages folder.
//
// Each package is a folder directly under the packages folder holding a manifest, package.json:
//
//   {
//     "id": "4f1c0e9a-3b2d-4c5e-8f70-112233445566",     (required: a UUID)
//     "version": "1.2.0",                               (required: one to three numbers)
//     "name": "signal",                                 (default: the folder's name)
//     "usable": true,                                   (default: true)
//     "manualInstall": false,                           (default: false)
//     "folders": [                                      (default: none)
//       {"path": "toolbox", "tags": [0]},               (path inside the package; "" or "." is
//       {"path": "doc", "tags": [3]}                     the package folder itself)
//     ],
//     "properties": {"ManualInstall": true}             (booleans, integers, numbers, texts)
//   }
//
// Tag 0 (kSearchPathTag) marks a folder that goes on the search path. A manifest that cannot be
// read, is not valid JSON, lacks a required key, has a key it does not know or a value of the wrong
// kind, or repeats the id and version of another package is reported and skipped; the other
// packages still load.
//
//   Notification problems;
//   auto registry = PackageRegistry::Load(AbsoluteIRI(u"file:///opt/vorlan/packages"), problems);
//   auto signal = registry->FindPackage(id);   // null if no package has that id and version

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <boost/container/flat_set.hpp>

#include <foundation/core/except/message_record.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/packages/component_identifier.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PackageRegistry {

using VorlanComponents::ComponentIdentifier;

// The tag of a package folder that goes on the search path.
inline constexpr std::uint32_t kSearchPathTag = 0;

using TagSet = boost::container::flat_set<std::uint32_t>;

// PackageFolder: one folder of a package and its tags.
struct PackageFolder {
    foundation::storage::vfs::AbsoluteIRI folder;
    TagSet tags;
};

// PropertyValue: the value of a package property.
using PropertyValue = std::variant<bool, std::int64_t, double, ustring>;

// IPackage: an installed package's record. Immutable; thread-safe.
class VELMORA_PLATFORM_EXPORT IPackage {
  public:
    virtual ~IPackage();

    virtual const ComponentIdentifier& GetIdentifier() const = 0;
    // Whether the package can be used on this system.
    virtual bool IsUsable() const = 0;
    // Whether the package was installed by hand rather than by the package manager.
    virtual bool IsManualInstall() const = 0;
    // The package's folders with their tags, in manifest order.
    virtual std::shared_ptr<const std::vector<PackageFolder>> GetFolders() const = 0;
    // The property `name`; nullopt if the package has none of that name.
    virtual std::optional<PropertyValue> GetProperty(std::string_view name) const = 0;
    // The package's own folder.
    virtual foundation::storage::vfs::AbsoluteIRI GetRootFolder() const = 0;

  protected:
    IPackage() = default;
    IPackage(const IPackage&) = default;
    IPackage& operator=(const IPackage&) = default;
};

// IPackageRegistry: the installed packages. Thread-safe.
class VELMORA_PLATFORM_EXPORT IPackageRegistry {
  public:
    virtual ~IPackageRegistry();

    // FindPackage: the package with the identifier's unique id and version; null if none.
    virtual std::shared_ptr<const IPackage> FindPackage(const ComponentIdentifier& id) const = 0;
    // GetPackages: every package, ordered by unique id and version.
    virtual std::vector<std::shared_ptr<const IPackage>> GetPackages() const = 0;

  protected:
    IPackageRegistry() = default;
    IPackageRegistry(const IPackageRegistry&) = default;
    IPackageRegistry& operator=(const IPackageRegistry&) = default;
};

// Package: the host's package record.
class VELMORA_PLATFORM_EXPORT Package final : public IPackage {
  public:
    struct Parts {
        ComponentIdentifier identifier;
        bool usable = true;
        bool manualInstall = false;
        std::vector<PackageFolder> folders;
        std::map<std::string, PropertyValue, std::less<>> properties;
        foundation::storage::vfs::AbsoluteIRI root;
    };
    explicit Package(Parts parts);

    const ComponentIdentifier& GetIdentifier() const override { return m_identifier; }
    bool IsUsable() const override { return m_usable; }
    bool IsManualInstall() const override { return m_manualInstall; }
    std::shared_ptr<const std::vector<PackageFolder>> GetFolders() const override {
        return m_folders;
    }
    std::optional<PropertyValue> GetProperty(std::string_view name) const override;
    foundation::storage::vfs::AbsoluteIRI GetRootFolder() const override { return m_root; }

  private:
    ComponentIdentifier m_identifier;
    bool m_usable;
    bool m_manualInstall;
    std::shared_ptr<const std::vector<PackageFolder>> m_folders;
    std::map<std::string, PropertyValue, std::less<>> m_properties;
    foundation::storage::vfs::AbsoluteIRI m_root;
};

// PackageRegistry: the host's registry, a fixed set of packages.
class VELMORA_PLATFORM_EXPORT PackageRegistry final : public IPackageRegistry {
  public:
    // A registry of the given packages. REQUIRES: no two share unique id and version.
    explicit PackageRegistry(std::vector<std::shared_ptr<const IPackage>> packages);

    // Load: the packages whose manifests are under `packagesRoot`. Manifests that cannot be used
    // are reported in `problems` ("VELMORA:packages:badManifest") and skipped; a packages folder
    // that cannot be listed is reported ("VELMORA:packages:cannotReadPackages") and gives an
    // empty registry.
    static std::shared_ptr<const PackageRegistry> Load(
        const foundation::storage::vfs::AbsoluteIRI& packagesRoot,
        foundation::core::except::Notification& problems);

    std::shared_ptr<const IPackage> FindPackage(const ComponentIdentifier& id) const override;
    std::vector<std::shared_ptr<const IPackage>> GetPackages() const override;

  private:
    using Key = std::pair<VorlanComponents::UniqueID, VorlanComponents::ComponentVersion>;
    std::map<Key, std::shared_ptr<const IPackage>> m_packages;
};

}  // namespace Velmora::PackageRegistry

// The registry's messages.
namespace VELMORA::packages {

// badManifest: "Skipped the package manifest "{0}": {1}." (the manifest's path, the reason).
class VELMORA_PLATFORM_EXPORT badManifest : public resource_core::MessageRecord {
  public:
    badManifest(const ustring& manifest, const std::string& reason);
};

// cannotReadPackages: "Cannot read the packages folder "{0}": {1}."
class VELMORA_PLATFORM_EXPORT cannotReadPackages : public resource_core::MessageRecord {
  public:
    cannotReadPackages(const ustring& folder, const std::string& reason);
};

}  // namespace VELMORA::packages
