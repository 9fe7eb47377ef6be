#pragma once
// IMainSearchPathManager: the owner of the main search path.
//
// The manager holds the list of folders on the main search path and the path built over them (an
// immutable snapshot; see ipath.hpp). A change hands the manager the whole new folder list in one
// call; the manager checks it, builds the new path, keeps it, and tells the observers. Problems
// that the user must fix come back as messages in the caller's Notification, and then the path
// stays as it was: any message means no change.
//
//   Notification problems;
//   manager.ApplyPathAfterAdding(newFolders, problems);   // newFolders: e.g. a vector of IRIs
//   if (problems.empty()) { /* manager.GetPathFolderIRIs() is newFolders */ }
//
// Observers are told of each change on the thread that made it, after the new path is in place,
// one change at a time.
// A change made by an observer while it is being told of a change is refused with
// RecursivePathChangeException; readers on other threads are never blocked by a change.

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <foundation/core/except/exception.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/packages/component_identifier.hpp>
#include <velmora/pathinterfaces/any_range_adapter.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/platform/export.hpp>

namespace Velmora::PathManagement {

// RecursivePathChangeException: the path was asked to change while observers were being told of a
// change; the request was refused and the path is as the first change left it.
class VELMORA_PLATFORM_EXPORT RecursivePathChangeException
    : public foundation::core::except::InternalException {
  public:
    RecursivePathChangeException();

    std::unique_ptr<foundation::core::except::IBaseException> clone() const override;
    [[noreturn]] void rethrow() const override;
};

// The kind of a change of the main search path.
enum class PathChangeKind : std::uint8_t {
    Added,      // by ApplyPathAfterAdding
    Removed,    // by ApplyPathAfterRemoving
    Refreshed,  // the same folders, read again from disk
};

// PathChange: what an observer is told: the path before and after the change, and the number of
// the state that `after` belongs to. A manager numbers the states it publishes one after another,
// so an observer hears the generations in order, each once, and none is skipped.
struct PathChange {
    PathChangeKind kind;
    std::shared_ptr<const IPath> before;
    std::shared_ptr<const IPath> after;
    std::uint64_t generation = 0;
};

using PathChangeObserver = std::function<void(const PathChange&)>;

class VELMORA_PLATFORM_EXPORT IMainSearchPathManager {
  public:
    using FolderRange = detail::AnyRangeAdapter<foundation::storage::vfs::AbsoluteIRI>;
    using FolderList = std::vector<foundation::storage::vfs::AbsoluteIRI>;

    virtual ~IMainSearchPathManager();

    // ApplyPathAfterAdding: makes `newPath` the main search path after folders were added to it.
    // Folders of `newPath` that are not on the path yet must be existing, readable folders; each
    // one that is not is reported in `notification`, and then nothing changes. Throws
    // RecursivePathChangeException when called by an observer during a change.
    virtual void ApplyPathAfterAdding(const FolderRange& newPath,
                                      foundation::core::except::Notification& notification) = 0;
    // ApplyPathAfterRemoving: the same, after folders were removed from the path.
    virtual void ApplyPathAfterRemoving(const FolderRange& newPath,
                                        foundation::core::except::Notification& notification) = 0;
    // The same two for a new path that the caller gives up: a manager may keep the list itself
    // rather than a copy, which for a long path saves a pass over all its folders.
    void ApplyPathAfterAdding(FolderList&& newPath,
                              foundation::core::except::Notification& notification) {
        ApplyGivenPath(PathChangeKind::Added, std::move(newPath), notification);
    }
    void ApplyPathAfterRemoving(FolderList&& newPath,
                                foundation::core::except::Notification& notification) {
        ApplyGivenPath(PathChangeKind::Removed, std::move(newPath), notification);
    }

    // GetPath: the current main search path; never null.
    virtual std::shared_ptr<const IPath> GetPath() const = 0;

    // GetPackagesOnPath: the installed packages whose search-path folders are all on the path.
    virtual std::shared_ptr<const std::vector<VorlanComponents::ComponentIdentifier>>
    GetPackagesOnPath() const = 0;

    // AddPathChangeObserver: calls `observer` after every change, until removed. Returns the
    // number that removes it.
    virtual std::uint64_t AddPathChangeObserver(PathChangeObserver observer) = 0;
    // RemovePathChangeObserver: stops calling the observer that `id` names; unknown ids are
    // ignored.
    virtual void RemovePathChangeObserver(std::uint64_t id) = 0;

    // GetPathFolderIRIs: the folders on the main search path, in search order, as they were put
    // there (folders that cannot be read at the moment included).
    virtual std::shared_ptr<const FolderList> GetPathFolderIRIs() const = 0;

  protected:
    IMainSearchPathManager() = default;

    // ApplyGivenPath: what the two above do with the list given up, `kind` telling which; by
    // default the list is taken as any other range. A manager that keeps lists overrides it.
    virtual void ApplyGivenPath(PathChangeKind kind, FolderList&& newPath,
                                foundation::core::except::Notification& notification) {
        if (kind == PathChangeKind::Added)
            ApplyPathAfterAdding(FolderRange(newPath), notification);
        else
            ApplyPathAfterRemoving(FolderRange(newPath), notification);
    }
    IMainSearchPathManager(const IMainSearchPathManager&) = default;
    IMainSearchPathManager& operator=(const IMainSearchPathManager&) = default;
};

}  // namespace Velmora::PathManagement
