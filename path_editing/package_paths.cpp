#include <algorithm>
#include <variant>

#include <velmora/pathmanagement/path_editing.hpp>

namespace Velmora::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;
using Velmora::VorlanComponents::ComponentIdentifier;

bool PackageIsOnPath(const ComponentIdentifier& component, const IMainSearchPathManager& manager) {
    const auto packages = manager.GetPackagesOnPath();
    for (const ComponentIdentifier& onPath : *packages) {
        if (onPath.GetUniqueID() == component.GetUniqueID() &&
            onPath.GetVersion() == component.GetVersion()) {
            return true;
        }
    }
    return false;
}

std::vector<AbsoluteIRI> GetPathFoldersForPackages(
    const Velmora::PackageRegistry::IPackageRegistry& registry,
    std::span<const ComponentIdentifier> components) {
    using Velmora::PackageRegistry::kSearchPathTag;
    std::vector<AbsoluteIRI> folders;
    for (const ComponentIdentifier& component : components) {
        const auto package = registry.FindPackage(component);
        if (!package || !package->IsUsable())
            continue;
        if (!package->IsManualInstall()) {
            const auto records = package->GetFolders();
            const auto onPath = [](const auto& record) {
                return record.tags.contains(kSearchPathTag);
            };
            folders.reserve(folders.size() + static_cast<std::size_t>(std::count_if(
                                                 records->begin(), records->end(), onPath)));
            for (const auto& record : *records) {
                if (onPath(record))
                    folders.push_back(record.folder);
            }
            continue;
        }
        // A manual install is on the path as a whole, when its property says so.
        const auto manual = package->GetProperty("ManualInstall");
        if (manual && std::get<bool>(*manual))
            folders.push_back(package->GetRootFolder());
    }
    folders.shrink_to_fit();
    return folders;
}

}  // namespace Velmora::PathManagement
