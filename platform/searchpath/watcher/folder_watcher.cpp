#include "folder_watcher.hpp"

#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include <velmora/pathmanagement/search_target.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::SearchPath::detail {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

// What changes a folder's listing; the content of its files does not.
constexpr std::uint32_t kFolderMask = os::WatchCreated | os::WatchDeleted | os::WatchMovedFrom |
                                      os::WatchMovedTo | os::WatchSelfDeleted | os::WatchSelfMoved |
                                      os::WatchOnlyFolder;
// The path definition file is replaced by a rename, or written in place by an editor. Added to
// whatever the folder's watch has already, in case the folder is on the path too.
constexpr std::uint32_t kPathDefinitionMask =
    os::WatchCreated | os::WatchMovedTo | os::WatchClosedWrite | os::WatchDeleted |
    os::WatchMovedFrom | os::WatchOnlyFolder | 0x20000000u /* IN_MASK_ADD */;
// A parent watched for a folder that does not exist yet; added to any watch the parent has.
constexpr std::uint32_t kAwaitMask = os::WatchCreated | os::WatchMovedTo | os::WatchSelfDeleted |
                                     os::WatchSelfMoved | os::WatchOnlyFolder |
                                     0x20000000u /* IN_MASK_ADD */;
// Symbolic links can make special folders nest without end.
constexpr int kMaxDepth = 64;

bool IsSpecial(const std::string& name) {
    return PathManagement::GetPathEntryTypeFromBaseName(text::FromNative(name)) !=
           PathManagement::PathEntryType::Ordinary;
}

bool StampChanged(const os::FileStatus& a, const os::FileStatus& b) {
    return a.modifiedNs != b.modifiedNs || a.changedNs != b.changedNs || a.inode != b.inode ||
           a.size != b.size || a.device != b.device;
}

}  // namespace

FolderWatcher::FolderWatcher(std::string pathDefinition,
                             std::function<void(const std::string&)> warn)
    : m_pathDefinition(std::move(pathDefinition)), m_warn(std::move(warn)) {
    const auto slash = m_pathDefinition.rfind('/');
    m_pathDefinitionName =
        slash == std::string::npos ? m_pathDefinition : m_pathDefinition.substr(slash + 1);
}

FolderWatcher::~FolderWatcher() {
    if (m_queue >= 0)
        os::System().WatchClose(m_queue);
}

int FolderWatcher::Open() {
    if (const int err = os::System().WatchOpen(m_queue); err != 0)
        return err;
    if (!m_pathDefinition.empty()) {
        const auto slash = m_pathDefinition.rfind('/');
        const std::string folder = slash == std::string::npos ? std::string(".")
                                   : slash == 0               ? std::string("/")
                                                              : m_pathDefinition.substr(0, slash);
        // A folder that does not exist yet cannot be watched; the path is then taken as it stands.
        int watch = -1;
        if (os::System().WatchAdd(m_queue, folder, kPathDefinitionMask, watch) == 0)
            m_pathDefinitionWatch = watch;
    }
    return 0;
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
    const int err = os::System().WatchAdd(m_queue, native, kFolderMask, watch);
    // The kernel gives the same watch for the same folder reached by another name: one record
    // per watch, and no second descent (a symbolic link looping back ends here).
    if (err == 0 && m_byWatch.try_emplace(watch, Watched{location, native}).second) {
        claim->second = watch;
        return true;
    }
    m_byNative.erase(claim);
    if (err != ENOSPC && err != ENOMEM)
        return false;
    Polled polled{location, {}};
    os::System().Stat(native, polled.status);
    m_polled.emplace(native, std::move(polled));
    if (!m_warned) {
        std::string warning = fmt::format(
            "out of inotify watches (see fs.inotify.max_user_watches); polling the folders that "
            "could not be watched, starting with {}",
            native);
        if (m_warn)
            m_warn(warning);
        else
            m_unheard = std::move(warning);
    }
    m_warned = true;
    return true;
}

void FolderWatcher::WatchTree(const FolderEntry& entry, std::vector<AbsoluteIRI>* fresh) {
    const std::string native = text::ToNative(entry.GetAbsoluteIRI().getPath());
    if (Watch(entry.GetAbsoluteIRI(), native) && fresh != nullptr)
        fresh->push_back(entry.GetAbsoluteIRI());
    for (const auto& sub : entry.SubEntries())
        WatchTree(*sub, fresh);
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
        os::System().WatchRemove(m_queue, watch);
        m_byNative.erase(m_byWatch.at(watch).native);
        m_byWatch.erase(watch);
    }
}

void FolderWatcher::Unwatch(const FolderEntry& entry,
                            const std::function<bool(const AbsoluteIRI&)>& stays) {
    if (!stays(entry.GetAbsoluteIRI())) {
        const std::string native = text::ToNative(entry.GetAbsoluteIRI().getPath());
        if (const auto found = m_byNative.find(native); found != m_byNative.end()) {
            os::System().WatchRemove(m_queue, found->second);
            m_byWatch.erase(found->second);
            m_byNative.erase(found);
        }
        m_polled.erase(native);
    }
    for (const auto& sub : entry.SubEntries())
        Unwatch(*sub, stays);
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
        if (os::System().WatchAdd(m_queue, parent, kAwaitMask, watch) != 0)
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
    if (!gone && !m_awaiting.contains(watch) && !m_byWatch.contains(watch) &&
        watch != m_pathDefinitionWatch) {
        os::System().WatchRemove(m_queue, watch);
    }
}

void FolderWatcher::Handle(const os::WatchEvent& event, WatchedChanges& out) {
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
    if (m_awaiting.contains(event.watch) &&
        (event.mask &
         (os::WatchIsFolder | os::WatchIgnored | os::WatchSelfDeleted | os::WatchSelfMoved))) {
        Reawait(event.watch, (event.mask & os::WatchIgnored) != 0);
    }
    if (event.watch == m_pathDefinitionWatch && event.name == m_pathDefinitionName)
        out.pathDefinitionChanged = true;
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
    if (m_queue < 0)
        return;
    if (os::System().WatchRead(m_queue, static_cast<int>(timeout.count()), m_events) != 0)
        return;
    for (const auto& event : m_events)
        Handle(event, out);
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
}

}  // namespace Velmora::SearchPath::detail
