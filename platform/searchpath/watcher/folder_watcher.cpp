#include "folder_watcher.hpp"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/text/ustring.hpp>

#include "sync_point.hpp"

namespace Velmora::SearchPath::detail {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

// What changes a folder's listing; the content of its files does not.
constexpr std::uint32_t kFolderMask = os::WatchCreated | os::WatchDeleted | os::WatchMovedFrom |
                                      os::WatchMovedTo | os::WatchSelfDeleted | os::WatchSelfMoved |
                                      os::WatchOnlyFolder;
// The path definition file is replaced by a rename, or written in place by an editor; a folder
// above it that did not exist is made, and one that did is removed or renamed. Added to whatever
// the folder's watch has already, in case the folder is on the path too.
constexpr std::uint32_t kPathDefinitionMask =
    os::WatchCreated | os::WatchMovedTo | os::WatchClosedWrite | os::WatchDeleted |
    os::WatchMovedFrom | os::WatchSelfDeleted | os::WatchSelfMoved | os::WatchOnlyFolder |
    0x20000000u /* IN_MASK_ADD */;
// A parent watched for a folder that does not exist yet; added to any watch the parent has.
constexpr std::uint32_t kAwaitMask = os::WatchCreated | os::WatchMovedTo | os::WatchSelfDeleted |
                                     os::WatchSelfMoved | os::WatchOnlyFolder |
                                     0x20000000u /* IN_MASK_ADD */;
// The folder holding a folder of the path: a name made, removed or renamed there may be another
// folder or a re-pointed link in the place of ours. Added to any watch the folder has.
constexpr std::uint32_t kNameMask = os::WatchCreated | os::WatchDeleted | os::WatchMovedFrom |
                                    os::WatchMovedTo | os::WatchSelfDeleted | os::WatchSelfMoved |
                                    os::WatchOnlyFolder | 0x20000000u /* IN_MASK_ADD */;
// Symbolic links can make special folders nest without end.
constexpr int kMaxDepth = 64;

bool IsSpecial(const std::string& name) {
    return PathManagement::GetPathEntryTypeFromBaseName(text::FromNative(name)) !=
           PathManagement::PathEntryType::Ordinary;
}

// The folder holding `path`, and the name `path` has in it.
std::pair<std::string, std::string> SplitLast(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return {".", path};
    return {slash == 0 ? std::string("/") : path.substr(0, slash), path.substr(slash + 1)};
}

bool OutOfWatches(int err) {
    return err == ENOSPC || err == ENOMEM;
}

bool StampChanged(const os::FileStatus& a, const os::FileStatus& b) {
    return a.modifiedNs != b.modifiedNs || a.changedNs != b.changedNs || a.inode != b.inode ||
           a.size != b.size || a.device != b.device;
}

}  // namespace

FolderWatcher::FolderWatcher(std::string pathDefinition,
                             std::function<void(const std::string&)> warn)
    : m_pathDefinition(std::move(pathDefinition)), m_warn(std::move(warn)) {}

FolderWatcher::~FolderWatcher() {
    if (m_queue >= 0)
        os::System().WatchClose(m_queue);
}

int FolderWatcher::Open() {
    if (const int err = os::System().WatchOpen(m_queue); err != 0) {
        m_queue = -1;
        // Other programs hold every inotify instance the user may have: polled, not refused.
        if (err != EMFILE && err != ENFILE && err != ENOMEM)
            return err;
        WarnOnce(
            "out of inotify instances (see fs.inotify.max_user_instances); polling every folder "
            "and the path definition file instead");
    }
    FollowPathDefinition();
    return 0;
}

void FolderWatcher::WarnOnce(std::string warning) {
    if (m_warned)
        return;
    m_warned = true;
    if (m_warn)
        m_warn(warning);
    else
        m_unheard = std::move(warning);
}

void FolderWatcher::Release(int watch) {
    if (m_queue < 0 || m_byWatch.contains(watch) || m_awaiting.contains(watch) ||
        m_named.contains(watch) || watch == m_syncWatch) {
        return;
    }
    for (const auto& leading : m_definitionWatches) {
        if (leading.watch == watch)
            return;
    }
    os::System().WatchRemove(m_queue, watch);
}

// The file itself may be a symbolic link, as dotfile managers make it: both the link's folder and
// its target's are watched, so that re-pointing the link and replacing the target are both seen.
// A folder on the way that does not exist yet is awaited from the nearest one that does.
bool FolderWatcher::FollowPathDefinition() {
    if (m_pathDefinition.empty() || m_definitionPolled)
        return false;
    std::vector<std::string> files{m_pathDefinition};
    std::string target;
    if (os::System().RealPath(m_pathDefinition, target) == 0 && target != m_pathDefinition)
        files.push_back(std::move(target));
    std::vector<DefinitionWatch> now;
    bool unwatchable = m_queue < 0;
    for (const auto& file : files) {
        std::string below = file;
        for (int depth = 0; depth <= kMaxDepth && !unwatchable; ++depth) {
            auto [folder, name] = SplitLast(below);
            int watch = -1;
            const int err = os::System().WatchAdd(m_queue, folder, kPathDefinitionMask, watch);
            if (err == 0) {
                now.push_back({watch, std::move(name), depth == 0});
                break;
            }
            unwatchable = OutOfWatches(err);
            if (folder == "/" || folder == "." || folder == below)
                break;
            below = std::move(folder);
        }
    }
    if (unwatchable) {
        m_definitionPolled = true;
        if (os::System().Stat(m_pathDefinition, m_definitionStatus) != 0)
            m_definitionStatus = {};
        now.clear();
        WarnOnce(fmt::format(
            "out of inotify watches (see fs.inotify.max_user_watches); polling what could not be "
            "watched, starting with {}",
            m_pathDefinition));
    }
    const bool changed = now.size() != m_definitionWatches.size() ||
                         !std::equal(now.begin(), now.end(), m_definitionWatches.begin(),
                                     [](const auto& a, const auto& b) {
                                         return a.watch == b.watch && a.name == b.name;
                                     });
    auto before = std::exchange(m_definitionWatches, std::move(now));
    for (const auto& leading : before)
        Release(leading.watch);
    return changed;
}

void FolderWatcher::SetWarn(std::function<void(const std::string&)> warn) {
    m_warn = std::move(warn);
    if (m_warn && !m_unheard.empty())
        m_warn(std::exchange(m_unheard, {}));
}

void FolderWatcher::Reserve(std::size_t folders) {
    m_byWatch.reserve(folders);
    m_byNative.reserve(folders);
}

bool FolderWatcher::Watch(const AbsoluteIRI& location, const std::string& native) {
    if (!m_polled.empty() && m_polled.contains(native))
        return false;
    // Claimed before the call, so that the name is hashed once.
    const auto [claim, unseen] = m_byNative.try_emplace(native, -1);
    if (!unseen)
        return false;
    int watch = -1;
    const int err =
        m_queue < 0 ? ENOSPC : os::System().WatchAdd(m_queue, native, kFolderMask, watch);
    // The kernel gives the same watch for the same folder reached by another name: one record
    // per watch, and no second descent (a symbolic link looping back ends here).
    if (err == 0 && m_byWatch.try_emplace(watch, Watched{location, native}).second) {
        claim->second = watch;
        return true;
    }
    m_byNative.erase(claim);
    if (!OutOfWatches(err))
        return false;
    Polled polled{location, {}};
    os::System().Stat(native, polled.status);
    m_polled.emplace(native, std::move(polled));
    WarnOnce(fmt::format(
        "out of inotify watches (see fs.inotify.max_user_watches); polling what could not be "
        "watched, starting with {}",
        native));
    return true;
}

void FolderWatcher::WatchTree(const FolderEntry& entry, std::vector<AbsoluteIRI>* fresh) {
    const std::string native = text::ToNative(entry.GetLocation().getPath());
    FollowName(entry.GetLocation(), native);
    WatchEntry(entry, native, fresh);
}

void FolderWatcher::WatchEntry(const FolderEntry& entry, const std::string& native,
                               std::vector<AbsoluteIRI>* fresh) {
    if (Watch(entry.GetLocation(), native) && fresh != nullptr)
        fresh->push_back(entry.GetLocation());
    for (const auto& sub : entry.SubEntries())
        WatchEntry(*sub, text::ToNative(sub->GetLocation().getPath()), fresh);
}

// The folder's own watch follows its inode, which a rename takes away and a re-pointed link never
// touches: the name is followed in the folder above. A path's folders mostly share a few parents,
// each watched once.
void FolderWatcher::FollowName(const AbsoluteIRI& location, const std::string& native) {
    if (m_queue < 0)
        return;
    const auto [at, unseen] = m_namedAt.try_emplace(native, -1);
    if (!unseen)
        return;
    const std::string_view path = native;
    const auto slash = path.rfind('/');
    const std::string_view folder = slash == std::string_view::npos ? "."
                                    : slash == 0                    ? "/"
                                                                    : path.substr(0, slash);
    auto known = m_parents.find(folder);
    if (known == m_parents.end()) {
        std::string owned(folder);
        int watch = -1;
        if (os::System().WatchAdd(m_queue, owned, kNameMask, watch) != 0) {
            m_namedAt.erase(at);
            return;  // its own watch, or its polling, still tells of a rename or removal
        }
        auto shared = std::make_shared<const std::string>(owned);
        known = m_parents.emplace(std::move(owned), Parent{watch, std::move(shared)}).first;
    }
    const int watch = known->second.watch;
    at->second = watch;
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    m_named[watch].push_back({location, known->second.folder, std::string(name)});
}

std::string FolderWatcher::Named::Native() const {
    return *folder == "/" ? "/" + name : *folder + '/' + name;
}

void FolderWatcher::UnfollowName(const std::string& native) {
    const auto at = m_namedAt.find(native);
    if (at == m_namedAt.end())
        return;
    const int watch = at->second;
    m_namedAt.erase(at);
    auto& names = m_named[watch];
    std::erase_if(names, [&](const Named& named) { return named.Native() == native; });
    if (!names.empty())
        return;
    m_named.erase(watch);
    boost::unordered::erase_if(m_parents,
                               [&](const auto& parent) { return parent.second.watch == watch; });
    Release(watch);
}

void FolderWatcher::Refollow(int watch, WatchedChanges* out) {
    const auto found = m_named.find(watch);
    if (found == m_named.end())
        return;
    const auto names = std::move(found->second);
    m_named.erase(found);
    boost::unordered::erase_if(m_parents,
                               [&](const auto& parent) { return parent.second.watch == watch; });
    for (const auto& named : names) {
        const std::string native = named.Native();
        m_namedAt.erase(native);
        FollowName(named.location, native);
        if (out != nullptr) {
            Forget(native);
            out->locations.push_back(named.location);
        }
    }
}

// Watched first, listed after: a folder made inside it meanwhile is either in the listing or
// reported by the new watch, never neither.
void FolderWatcher::WatchNewFolder(const AbsoluteIRI& location, const std::string& native,
                                   int depth) {
    if (depth > kMaxDepth || !Watch(location, native))
        return;
    os::FolderListing listing;
    if (os::System().ListFolder(native, listing) != 0)
        return;
    for (const auto& item : listing.items) {
        if (item.kind != os::EntryKind::File && item.kind != os::EntryKind::Other &&
            IsSpecial(item.name)) {
            WatchNewFolder(location.getChild(text::FromNative(item.name)), native + '/' + item.name,
                           depth + 1);
        }
    }
}

void FolderWatcher::Forget(const std::string& native) {
    const std::string below = native + '/';
    std::vector<int> gone;
    for (const auto& [watch, watched] : m_byWatch) {
        if (watched.native == native || watched.native.starts_with(below))
            gone.push_back(watch);
    }
    for (const int watch : gone) {
        m_byNative.erase(m_byWatch.at(watch).native);
        m_byWatch.erase(watch);
        // The names followed in this folder are followed in the one that has its name now.
        Refollow(watch, nullptr);
        Release(watch);
    }
    // Polled folders too: a name that comes back is looked at anew.
    boost::unordered::erase_if(m_polled, [&](const auto& polled) {
        return polled.first == native || polled.first.starts_with(below);
    });
}

void FolderWatcher::Unwatch(const FolderEntry& entry,
                            const std::function<bool(const AbsoluteIRI&)>& stays) {
    if (!stays(entry.GetAbsoluteIRI()))
        UnfollowName(text::ToNative(entry.GetAbsoluteIRI().getPath()));
    UnwatchEntry(entry, stays);
}

void FolderWatcher::UnwatchEntry(const FolderEntry& entry,
                                 const std::function<bool(const AbsoluteIRI&)>& stays) {
    if (!stays(entry.GetAbsoluteIRI())) {
        const std::string native = text::ToNative(entry.GetAbsoluteIRI().getPath());
        if (const auto found = m_byNative.find(native); found != m_byNative.end()) {
            const int watch = found->second;
            m_byWatch.erase(watch);
            m_byNative.erase(found);
            Release(watch);
        }
        m_polled.erase(native);
    }
    for (const auto& sub : entry.SubEntries())
        UnwatchEntry(*sub, stays);
}

void FolderWatcher::Await(const AbsoluteIRI& folder) {
    const std::string native = text::ToNative(folder.getPath());
    if (!m_awaitedAt.contains(native))
        AwaitFrom(folder, native);
}

// Watched first, looked for after, as for new folders: a parent made in between is seen either way.
void FolderWatcher::AwaitFrom(const AbsoluteIRI& folder, const std::string& native) {
    m_awaitedAt.erase(native);
    std::string parent = native;
    for (int depth = 0; depth <= kMaxDepth; ++depth) {
        os::FileStatus status;
        if (os::System().Stat(native, status) == 0 && status.IsFolder()) {
            m_appeared.push_back(folder);
            return;
        }
        const auto slash = parent.rfind('/');
        if (slash == std::string::npos)
            return;
        parent = slash == 0 ? std::string("/") : parent.substr(0, slash);
        int watch = -1;
        const int err =
            m_queue < 0 ? ENOSPC : os::System().WatchAdd(m_queue, parent, kAwaitMask, watch);
        if (OutOfWatches(err)) {
            m_awaitPolled.push_back({folder, native});
            m_awaitedAt.emplace(native, -1);
            WarnOnce(fmt::format(
                "out of inotify watches (see fs.inotify.max_user_watches); polling what could not "
                "be watched, starting with {}",
                parent));
            return;
        }
        if (err != 0)
            continue;
        m_awaiting[watch].push_back({folder, native});
        m_awaitedAt.emplace(native, watch);
        // Made meanwhile: the watch came too late to tell.
        if (os::System().Stat(native, status) == 0 && status.IsFolder())
            Reawait(watch, false);
        return;
    }
}

void FolderWatcher::Reawait(int watch, bool gone) {
    const auto found = m_awaiting.find(watch);
    if (found == m_awaiting.end())
        return;
    const auto awaited = std::move(found->second);
    m_awaiting.erase(found);
    for (const auto& folder : awaited)
        AwaitFrom(folder.location, folder.native);
    // A parent that no awaited folder needs any more, and that is watched for nothing else.
    if (!gone)
        Release(watch);
}

int FolderWatcher::WatchSyncFolder(const std::string& native, std::string prefix) {
    if (m_queue < 0)
        return ENOSYS;
    int watch = -1;
    if (const int err =
            os::System().WatchAdd(m_queue, native, os::WatchCreated | os::WatchOnlyFolder, watch);
        err != 0) {
        return err;
    }
    // The kernel gives one watch per folder: one the path uses already cannot tell sync files.
    if (m_byWatch.contains(watch) || m_awaiting.contains(watch) || m_named.contains(watch))
        return EEXIST;
    m_syncWatch = watch;
    m_syncPrefix = std::move(prefix);
    return 0;
}

void FolderWatcher::Handle(const os::WatchEvent& event, WatchedChanges& out) {
    if (event.watch == m_syncWatch && m_syncWatch >= 0 && !(event.mask & os::WatchOverflow)) {
        if (const auto ticket = SyncTicketOf(event.name, m_syncPrefix))
            out.synced = std::max(out.synced, *ticket);
        // The sync folder may be on the path too, under the same watch: its events count there.
        if (!m_byWatch.contains(event.watch) && !m_awaiting.contains(event.watch) &&
            !m_named.contains(event.watch)) {
            return;
        }
    }
    if (event.mask & os::WatchOverflow) {
        out.overflow = true;
        // What the awaited folders' parents reported may be lost with the rest.
        std::vector<int> awaiting;
        for (const auto& [watch, folders] : m_awaiting)
            awaiting.push_back(watch);
        for (const int watch : awaiting)
            Reawait(watch, false);
        return;
    }
    // A symbolic link made in the place of an awaited folder is no folder to the kernel: any new
    // name is looked at.
    if (m_awaiting.contains(event.watch) &&
        (event.mask & (os::WatchIsFolder | os::WatchCreated | os::WatchMovedTo | os::WatchIgnored |
                       os::WatchSelfDeleted | os::WatchSelfMoved))) {
        Reawait(event.watch, (event.mask & os::WatchIgnored) != 0);
    }
    for (const auto& leading : m_definitionWatches) {
        if (leading.watch != event.watch)
            continue;
        if (leading.direct && event.name == leading.name)
            out.pathDefinitionChanged = true;
        // A folder on the way made or gone, a link re-pointed: the way is looked at again.
        if (event.name.empty() || event.name == leading.name)
            m_refollow = true;
    }
    if (const auto named = m_named.find(event.watch); named != m_named.end()) {
        if (event.mask & (os::WatchSelfDeleted | os::WatchSelfMoved | os::WatchIgnored)) {
            Refollow(event.watch, &out);
        } else {
            std::vector<Named> taken;
            for (const auto& name : named->second) {
                if (name.name == event.name)
                    taken.push_back(name);
            }
            for (const auto& name : taken) {
                Forget(name.Native());
                out.locations.push_back(name.location);
            }
        }
    }
    const auto found = m_byWatch.find(event.watch);
    if (found == m_byWatch.end())
        return;
    const Watched watched = found->second;
    if (event.mask & os::WatchIgnored) {
        m_byNative.erase(watched.native);
        m_byWatch.erase(found);
        return;
    }
    if (event.name.empty()) {
        // The folder renamed away or removed: what has its name now, if anything, is another
        // folder, read and watched anew; this one is let go.
        if (event.mask & (os::WatchSelfDeleted | os::WatchSelfMoved))
            Forget(watched.native);
        out.locations.push_back(watched.location);
        return;
    }
    const AbsoluteIRI child = watched.location.getChild(text::FromNative(event.name));
    const std::string childNative = watched.native + '/' + event.name;
    if ((event.mask & os::WatchIsFolder) && IsSpecial(event.name)) {
        if (event.mask & (os::WatchCreated | os::WatchMovedTo))
            WatchNewFolder(child, childNative, 0);
        else if (event.mask & os::WatchMovedFrom)
            Forget(childNative);
    }
    out.locations.push_back(child);
}

void FolderWatcher::Wait(std::chrono::milliseconds timeout, WatchedChanges& out) {
    if (m_queue < 0) {
        // Polled only: the caller's pace is kept all the same.
        std::this_thread::sleep_for(timeout);
    } else if (os::System().WatchRead(m_queue, static_cast<int>(timeout.count()), m_events) == 0) {
        for (const auto& event : m_events)
            Handle(event, out);
    }
    if (std::exchange(m_refollow, false) && FollowPathDefinition()) {
        // Watched first, looked at after: a file that came with its folder is read now.
        os::FileStatus status;
        if (os::System().Stat(m_pathDefinition, status) == 0)
            out.pathDefinitionChanged = true;
    }
    out.appeared.insert(out.appeared.end(), m_appeared.begin(), m_appeared.end());
    m_appeared.clear();
}

void FolderWatcher::Poll(WatchedChanges& out) {
    for (auto& [native, polled] : m_polled) {
        os::FileStatus now;
        if (os::System().Stat(native, now) != 0)
            now = {};
        if (StampChanged(now, polled.status)) {
            polled.status = now;
            out.locations.push_back(polled.location);
        }
    }
    if (m_definitionPolled) {
        os::FileStatus now;
        if (os::System().Stat(m_pathDefinition, now) != 0)
            now = {};
        if (StampChanged(now, m_definitionStatus)) {
            m_definitionStatus = now;
            out.pathDefinitionChanged = true;
        }
    }
    std::erase_if(m_awaitPolled, [&](const Awaited& awaited) {
        os::FileStatus now;
        if (os::System().Stat(awaited.native, now) != 0 || !now.IsFolder())
            return false;
        m_awaitedAt.erase(awaited.native);
        out.appeared.push_back(awaited.location);
        return true;
    });
}

}  // namespace Velmora::SearchPath::detail
