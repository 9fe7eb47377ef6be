#pragma once
// How vpath resolves names, shared by which, which --explain and shadows: the file in use for a
// name and the files it shadows.

#include <optional>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/search_target.hpp>

namespace vpath_cli {

// The policy of every lookup that the command makes.
inline constexpr auto kPolicy = Velmora::PathManagement::FilenameMatchingPolicy::PlatformDefault;

class Resolver {
  public:
    // Names resolve on `path`, or as seen from a file in `from` when it is given.
    Resolver(const Velmora::PathManagement::IPath& path,
             std::optional<foundation::storage::vfs::AbsoluteIRI> from);

    // The file in use for the target, or nothing.
    Velmora::PathManagement::OptionalFoundItem InUse(
        const Velmora::PathManagement::detail::SearchTarget& target) const;

    // Every file the target can resolve to: the one in use first, then the shadowed ones in path
    // order. Empty when nothing is in use.
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
    std::optional<foundation::storage::vfs::AbsoluteIRI> m_from;
};

}  // namespace vpath_cli
