#pragma once
// How vpath resolves names, shared by which, which --explain and shadows: the file in use for a
// name and the files it shadows.

#include <optional>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/searchpath/main_search_path.hpp>

namespace vpath_cli {

// The policy of every lookup that the command makes.
inline constexpr auto kPolicy = Velmora::PathManagement::FilenameMatchingPolicy::PlatformDefault;

// SameFile: whether two items are one file (one folder, one name and extension), whichever entry
// found them.
bool SameFile(const Velmora::PathManagement::PathItem& a,
              const Velmora::PathManagement::PathItem& b);

class Resolver {
  public:
    // Names resolve on `path`, or as seen from a file in `from` when it is given.
    Resolver(const Velmora::PathManagement::IPath& path,
             std::optional<foundation::storage::vfs::AbsoluteIRI> from);

    // The file in use for the target, or nothing.
    Velmora::PathManagement::OptionalFoundItem InUse(
        const Velmora::PathManagement::detail::SearchTarget& target) const;

    // CanTellQuickly: whether QuickInUse can tell the file in use for the target: a name without
    // folders, on the host's path, not looked up as seen from a folder, and no class folder of
    // that name.
    bool CanTellQuickly(const Velmora::PathManagement::detail::SearchTarget& target) const;
    // QuickInUse: the file in use for the target, as the entry that holds it and the position of
    // its extension in the target's extensions, told by the path's index of file names alone.
    // REQUIRES: CanTellQuickly(target).
    std::optional<Velmora::SearchPath::MainSearchPath::Holder> QuickInUse(
        const Velmora::PathManagement::detail::SearchTarget& target) const;

    // Every file the target can resolve to: the one in use first, then the shadowed ones in path
    // order, each folder's in the order of the target's extensions. Empty when nothing is in use.
    std::vector<Velmora::PathManagement::FoundItem> All(
        const Velmora::PathManagement::detail::SearchTarget& target) const;

    const Velmora::PathManagement::IPath& Path() const noexcept { return m_path; }
    const std::optional<foundation::storage::vfs::AbsoluteIRI>& From() const noexcept {
        return m_from;
    }

  private:
    std::vector<Velmora::PathManagement::FoundItem> Candidates(
        const Velmora::PathManagement::detail::SearchTarget& target) const;

    const Velmora::PathManagement::IPath& m_path;
    // The same path when it is the host's, which can tell where a file is from its index alone.
    const Velmora::SearchPath::MainSearchPath* m_mainPath;
    std::optional<foundation::storage::vfs::AbsoluteIRI> m_from;
};

}  // namespace vpath_cli
