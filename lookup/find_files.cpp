#include <velmora/pathmanagement/lookup.hpp>

#include <functional>

#include <velmora/packages/vorlan_packages.hpp>
#include <velmora/pathinterfaces/constants.hpp>

namespace Velmora::PathManagement {
namespace {

// Class folders and folders are looked up by their exact names, whatever the caller's policy.
constexpr auto kExactFolderNames = FilenameMatchingPolicy::Exact;

// A name with separators is a partial pathname; returns the answer for it when it is one.
bool IsPartialPathname(const detail::SearchTarget& target) {
    return target.baseName->find_last_of(Constants::PathnameSeparatorStr) != ustring::npos;
}

OptionalFoundItem FindPartialPathname(const IPath& path, const detail::SearchTarget& target,
                                      FilenameMatchingPolicy policy) {
    const std::uint32_t full[] = {0, 1, 2, 3, 4};
    return path.FindFirstInScope(SearchScope(full), target, policy);
}

// The first class folder named like the target that holds the target's file.
OptionalFoundItem FirstInClassFolders(const IPath& path, const detail::SearchTarget& target,
                                      FilenameMatchingPolicy policy) {
    const std::uint32_t primary = 0;
    const auto classFolders = path.GetMethodEntriesByName(SearchScope(&primary, &primary + 1),
                                                          *target.baseName, kExactFolderNames);
    for (const auto& entry : classFolders) {
        if (auto item = entry->FindFile(target, policy))
            return FoundItem(std::move(item), entry);
    }
    return boost::none;
}

OptionalFoundItem FirstInMainEntries(const IPath& path, const detail::SearchTarget& target,
                                     FilenameMatchingPolicy policy) {
    const std::uint32_t primary = 0;
    return path.FindFirstInScope(SearchScope(&primary, &primary + 1), target, policy);
}

}  // namespace

OptionalFoundItem FindFirstFileVisibleOnPath(const IPath& path, const detail::SearchTarget& target,
                                             FilenameMatchingPolicy policy) {
    if (IsPartialPathname(target))
        return FindPartialPathname(path, target, policy);
    auto scopeHit = FirstInMainEntries(path, target, policy);
    auto methodHit = FirstInClassFolders(path, target, policy);
    if (!methodHit)
        return scopeHit;
    if (!scopeHit)
        return methodHit;
    // A tie (the same entry, or neither before the other) goes to the main entries.
    return path.FirstEntryIsBeforeSecondOnPath(*methodHit->GetPathEntry(),
                                               *scopeHit->GetPathEntry())
               ? methodHit
               : scopeHit;
}

OptionalFoundItem FindFirstFileVisibleFromFolder(
    const IPath& path, const foundation::storage::vfs::AbsoluteIRI& folder,
    const detail::SearchTarget& target, FilenameMatchingPolicy policy) {
    if (IsPartialPathname(target))
        return FindPartialPathname(path, target, policy);
    // The folder's private folder shadows the whole path.
    if (const auto entry = path.GetPathEntryFromAbsoluteIRI(folder, kExactFolderNames)) {
        if (const auto privateEntry = entry->GetPrivateSubEntry()) {
            if (auto item = privateEntry->FindFile(target, policy)) {
                return FoundItem(std::move(item), privateEntry);
            }
        }
    }
    if (VorlanPackages::isAtFolderPrecedenceFeatureOn()) {
        return FindFirstFileVisibleOnPath(path, target, policy);
    }
    // Without the setting a class folder's file wins wherever it stands; this differs from the
    // lookup on the path on purpose.
    if (auto methodHit = FirstInClassFolders(path, target, policy))
        return methodHit;
    return FirstInMainEntries(path, target, policy);
}

OptionalFoundItem FindFirstFileVisibleFromFolder(const IPath& path,
                                                 const foundation::storage::vfs::Folder& folder,
                                                 const detail::SearchTarget& target,
                                                 FilenameMatchingPolicy policy) {
    return FindFirstFileVisibleFromFolder(path, folder.getLocation(), target, policy);
}

namespace {

void AppendFilesByExtensions(const std::shared_ptr<const IPathEntry>& entry,
                             const std::vector<ustring>& extensions, FilenameMatchingPolicy policy,
                             std::vector<FoundItem>& result) {
    const auto matcher = entry->GetExtensionMatcher(policy);
    const auto items = entry->GetItems();
    for (const auto& item : *items) {
        for (const ustring& extension : extensions) {
            // A missing matcher is an empty one: calling it is the error.
            if (!matcher)
                throw std::bad_function_call();
            if ((*matcher)(extension, item->GetExtension()))
                result.emplace_back(item, entry);
        }
    }
}

}  // namespace

std::vector<FoundItem> FindFilesByExtensions(const std::shared_ptr<const IPathEntry>& entry,
                                             const std::vector<ustring>& extensions,
                                             FilenameMatchingPolicy policy) {
    std::vector<FoundItem> result;
    AppendFilesByExtensions(entry, extensions, policy, result);
    return result;
}

std::vector<FoundItem> FindFilesByExtensions(const IPath& path, SearchScope scope,
                                             const std::vector<ustring>& extensions,
                                             FilenameMatchingPolicy policy) {
    std::vector<FoundItem> result;
    // One result for the whole walk: the sequential walk calls back on one thread at a time.
    path.ForEachEntry(scope, [&](const std::shared_ptr<const IPathEntry>& entry) {
        AppendFilesByExtensions(entry, extensions, policy, result);
        return false;
    });
    return result;
}

}  // namespace Velmora::PathManagement
