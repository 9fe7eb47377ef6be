#include <velmora/packages/package_registry.hpp>

#include <algorithm>
#include <cerrno>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>

#include "manifest.hpp"

namespace Velmora::PackageRegistry {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

constexpr const char* kManifestName = "package.json";

// The names of the folders directly under `native`, symbolic links to folders included, in name
// order. Returns the errno of a failed listing.
int SubfolderNames(const std::string& native, std::vector<std::string>& names) {
    os::FolderListing listing;
    if (const int err = os::System().ListFolder(native, listing); err != 0)
        return err;
    for (const auto& item : listing.items) {
        bool isFolder = item.kind == os::EntryKind::Folder;
        if (item.kind == os::EntryKind::Symlink || item.kind == os::EntryKind::Unknown) {
            os::FileStatus status;
            isFolder =
                os::System().Stat(native + "/" + item.name, status) == 0 && status.IsFolder();
        }
        if (isFolder)
            names.push_back(item.name);
    }
    std::sort(names.begin(), names.end());
    return 0;
}

}  // namespace

IPackage::~IPackage() = default;
IPackageRegistry::~IPackageRegistry() = default;

Package::Package(Parts parts)
    : m_identifier(std::move(parts.identifier)),
      m_usable(parts.usable),
      m_manualInstall(parts.manualInstall),
      m_folders(std::make_shared<const std::vector<PackageFolder>>(std::move(parts.folders))),
      m_properties(std::move(parts.properties)),
      m_root(std::move(parts.root)) {}

std::optional<PropertyValue> Package::GetProperty(std::string_view name) const {
    const auto it = m_properties.find(name);
    if (it == m_properties.end())
        return std::nullopt;
    return it->second;
}

PackageRegistry::PackageRegistry(std::vector<std::shared_ptr<const IPackage>> packages) {
    for (auto& package : packages) {
        const auto& id = package->GetIdentifier();
        m_packages.emplace(Key{id.GetUniqueID(), id.GetVersion()}, std::move(package));
    }
}

std::shared_ptr<const PackageRegistry> PackageRegistry::Load(
    const AbsoluteIRI& packagesRoot, foundation::core::except::Notification& problems) {
    const ustring rootPath = foundation::storage::vfs::fromAbsoluteIRI(packagesRoot);
    const std::string native = text::ToNative(rootPath);
    std::vector<std::string> names;
    if (const int err = SubfolderNames(native, names); err != 0) {
        problems.Add(VELMORA::packages::cannotReadPackages(rootPath, os::ErrorText(err)));
        return std::make_shared<const PackageRegistry>(
            std::vector<std::shared_ptr<const IPackage>>{});
    }

    std::vector<std::shared_ptr<const IPackage>> packages;
    std::map<Key, std::string> seen;
    for (const std::string& name : names) {
        const std::string manifestPath = native + "/" + name + "/" + kManifestName;
        std::string json;
        const int err = os::System().ReadFile(manifestPath, json);
        if (err == ENOENT)
            continue;  // a folder without a manifest is no package
        const auto report = [&](const std::string& reason) {
            problems.Add(VELMORA::packages::badManifest(text::FromNative(manifestPath), reason));
        };
        if (err != 0) {
            report(os::ErrorText(err));
            continue;
        }
        try {
            auto package = packages_internal::ParseManifest(
                packagesRoot.getChild(text::FromNative(name)), json);
            const auto& id = package->GetIdentifier();
            const auto [it, added] = seen.emplace(Key{id.GetUniqueID(), id.GetVersion()}, name);
            if (!added) {
                report("the package in \"" + it->second + "\" has the same id and version");
                continue;
            }
            packages.push_back(std::move(package));
        } catch (const packages_internal::ManifestError& e) {
            report(e.what());
        }
    }
    return std::make_shared<const PackageRegistry>(std::move(packages));
}

std::shared_ptr<const IPackage> PackageRegistry::FindPackage(const ComponentIdentifier& id) const {
    const auto it = m_packages.find(Key{id.GetUniqueID(), id.GetVersion()});
    return it == m_packages.end() ? nullptr : it->second;
}

std::vector<std::shared_ptr<const IPackage>> PackageRegistry::GetPackages() const {
    std::vector<std::shared_ptr<const IPackage>> packages;
    packages.reserve(m_packages.size());
    for (const auto& [key, package] : m_packages)
        packages.push_back(package);
    return packages;
}

}  // namespace Velmora::PackageRegistry

namespace VELMORA::packages {

badManifest::badManifest(const ustring& manifest, const std::string& reason)
    : MessageRecord("VELMORA:packages", "badManifest", {manifest, reason}) {}

cannotReadPackages::cannotReadPackages(const ustring& folder, const std::string& reason)
    : MessageRecord("VELMORA:packages", "cannotReadPackages", {folder, reason}) {}

}  // namespace VELMORA::packages
