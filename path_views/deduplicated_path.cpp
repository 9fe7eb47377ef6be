#include <velmora/pathmanagement/path_views.hpp>

#include <functional>
#include <unordered_set>
#include <utility>

#include <boost/container_hash/hash.hpp>
#include <boost/unordered_set.hpp>

#include <foundation/log/diagnostic_logger.hpp>

#include "list_building.hpp"

namespace Velmora::PathManagement {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

// Kept for diagnostics of repeated folders; created when the library is loaded.
const foundation::log::DiagnosticLogger g_deduplicatedPathLog(
    "searchpath::utilities::deduplicatedpath");

// The locations seen by one call; starts with one bucket and grows by rehashing.
class SeenLocations {
  public:
    SeenLocations() : m_seen(1) { m_seen.max_load_factor(1.0f); }
    // Whether the entry's location is new (and now seen).
    bool Insert(const IPathEntry& entry) { return m_seen.insert(entry.GetAbsoluteIRI()).second; }

  private:
    std::unordered_set<AbsoluteIRI> m_seen;
};

// The entries of every list that `get` returns, in path order, each location once.
template <class Get>
PathEntryVector Deduplicate(const std::vector<std::shared_ptr<const IPath>>& paths, Get get) {
    PathEntryVector result;
    SeenLocations seen;
    for (const auto& path : paths) {
        const auto part = get(*path);
        const PathEntryVector& entries = detail::Elements(part);
        result.reserve(result.size() + entries.size());
        for (const auto& entry : entries) {
            if (seen.Insert(*entry))
                result.push_back(entry);
        }
    }
    result.shrink_to_fit();
    return result;
}

}  // namespace

DeduplicatedPath::DeduplicatedPath(std::vector<std::shared_ptr<const IPath>>&& paths)
    : ConcatenatedPath(std::move(paths)) {}

DeduplicatedPath::~DeduplicatedPath() = default;

SharedPathEntryVector DeduplicatedPath::GetMainEntries() const {
    return CachedMainEntries([this] {
        return Deduplicate(SubPaths(), [](const IPath& p) { return p.GetMainEntries(); });
    });
}

PathEntryVector DeduplicatedPath::GetMethodEntries() const {
    return Deduplicate(SubPaths(), [](const IPath& p) { return p.GetMethodEntries(); });
}

PathEntryVector DeduplicatedPath::GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                         FilenameMatchingPolicy policy) const {
    return Deduplicate(
        SubPaths(), [&](const IPath& p) { return p.GetMethodEntriesByName(scope, name, policy); });
}

PathEntryVector DeduplicatedPath::GetPartiallyMatchingEntries(SearchScope scope,
                                                              const ustring& partialName,
                                                              FilenameMatchingPolicy policy) const {
    return Deduplicate(SubPaths(), [&](const IPath& p) {
        return p.GetPartiallyMatchingEntries(scope, partialName, policy);
    });
}

std::vector<FoundItem> DeduplicatedPath::FindAllInScope(SearchScope scope,
                                                        const detail::SearchTarget& target,
                                                        FilenameMatchingPolicy policy) const {
    // A file is its folder's location and its whole name.
    using FileKey = std::pair<AbsoluteIRI, ustring>;
    boost::unordered_set<FileKey, boost::hash<FileKey>> seen;
    std::vector<FoundItem> result;
    for (const auto& path : SubPaths()) {
        const auto part = path->FindAllInScope(scope, target, policy);
        result.reserve(result.size() + part.size());
        for (const auto& found : part) {
            const auto& item = *found.GetPathItem();
            if (seen.emplace(item.GetLocation(), item.GetName() + item.GetExtension()).second) {
                result.push_back(found);
            }
        }
    }
    result.shrink_to_fit();
    return result;
}

bool DeduplicatedPath::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    // The cached main entries are already free of repeats; walk them when there are some.
    const auto cached = PublishedMainEntries();
    if (cached && !cached->empty()) {
        for (const auto& entry : *cached) {
            if (entry->ForEachEntry(scope, callback))
                return true;
        }
        return false;
    }
    SeenLocations seen;
    const EntryCallback firstVisits = [&](const std::shared_ptr<const IPathEntry>& entry) {
        return seen.Insert(*entry) ? callback(entry) : false;
    };
    for (const auto& path : SubPaths()) {
        if (path->ForEachEntry(scope, firstVisits))
            return true;
    }
    return false;
}

bool DeduplicatedPath::ConcurrentForEachEntry(SearchScope scope,
                                              const EntryCallback& callback) const {
    const IPath& self = *this;
    return self.ForEachEntry(scope, callback);
}

}  // namespace Velmora::PathManagement
