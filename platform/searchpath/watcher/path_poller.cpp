#include <velmora/searchpath/path_poller.hpp>

#include <utility>

namespace Velmora::SearchPath {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

// Adds to `out` the folders under `entry` whose stamp is later than `since`.
void CollectRecent(const FolderEntry& entry, std::int64_t since, std::vector<AbsoluteIRI>& out) {
    const auto& stamp = entry.GetStamp();
    if (stamp.modifiedNs > since || stamp.changedNs > since)
        out.push_back(entry.GetAbsoluteIRI());
    for (const auto& sub : entry.SubEntries())
        CollectRecent(*sub, since, out);
}

}  // namespace

PathPoller::PathPoller(IWatchedPath& path, Options options) : m_path(path), m_options(options) {}

void PathPoller::Poll(foundation::core::except::Notification& problems) {
    // Every folder this poll reads is read after this moment: one whose stamp is not a tick older
    // may yet change within its tick.
    const auto start = std::chrono::system_clock::now();
    m_path.ReloadPathDefinition(problems);
    m_path.Refresh();
    if (!m_untrusted.empty())
        m_path.RefreshFolders(std::exchange(m_untrusted, {}));
    const std::int64_t since =
        std::chrono::duration_cast<std::chrono::nanoseconds>(start.time_since_epoch()).count() -
        m_options.granularity.count();
    for (const auto& entry : m_path.GetState()->path->GetFolderEntries())
        CollectRecent(*entry, since, m_untrusted);
}

}  // namespace Velmora::SearchPath
