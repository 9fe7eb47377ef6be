#include <velmora/pathmanagement/path_views.hpp>

#include <algorithm>

namespace Velmora::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;

namespace {

// Path order as a sort order: an element's key is the entry it stands for.
const IPathEntry& EntryOf(const PathEntryPtr& entry) {
    return *entry;
}
const IPathEntry& EntryOf(const FoundItem& found) {
    return *found.GetPathEntry();
}

// Erases from `list` the run of elements that sort equal to `masked` in the path's order. The
// list is in path order, and everything beneath a main entry sorts equal to it, so the run is
// contiguous and two binary searches find it.
template <class T>
void EraseRunOf(std::vector<T>& list, const IPathEntry& masked, const IPath& path) {
    const auto first = std::lower_bound(
        list.begin(), list.end(), masked, [&](const T& element, const IPathEntry& m) {
            return path.FirstEntryIsBeforeSecondOnPath(EntryOf(element), m);
        });
    const auto last =
        std::upper_bound(first, list.end(), masked, [&](const IPathEntry& m, const T& element) {
            return path.FirstEntryIsBeforeSecondOnPath(m, EntryOf(element));
        });
    list.erase(first, last);
}

}  // namespace

MultiMaskedPath::MultiMaskedPath(std::shared_ptr<const IPath> path,
                                 std::vector<std::shared_ptr<const IPathEntry>> masked)
    : m_path(std::move(path)),
      m_masked(std::move(masked)),
      m_maskedSet(m_masked.begin(), m_masked.end()) {}

MultiMaskedPath::~MultiMaskedPath() = default;

bool MultiMaskedPath::IsMasked(const IPathEntry& entry) const {
    // Entries that are not on the path cost one call.
    if (!m_path->IsEntryOnPath(entry))
        return false;
    return m_maskedSet.contains(m_path->GetMainEntryForEntry(entry));
}

PathEntryVector MultiMaskedPath::RemoveMaskedEntries(PathEntryVector entries) const {
    for (const auto& masked : m_masked)
        EraseRunOf(entries, *masked, *m_path);
    return entries;
}

SharedPathEntryVector MultiMaskedPath::GetMainEntries() const {
    boost::call_once(m_once, [this] {
        const auto mains = m_path->GetMainEntries();
        PathEntryVector kept;
        kept.reserve(mains->size());
        for (const auto& entry : *mains) {
            if (!m_maskedSet.contains(entry))
                kept.push_back(entry);
        }
        m_mainEntries = std::make_shared<const PathEntryVector>(std::move(kept));
        m_published.store(true, std::memory_order_release);
    });
    // As in ConcatenatedPath: the flag states the once flag's ordering in the language's terms.
    (void)m_published.load(std::memory_order_acquire);
    return m_mainEntries;
}

PathEntryVector MultiMaskedPath::GetMethodEntries() const {
    return RemoveMaskedEntries(m_path->GetMethodEntries());
}

PathEntryVector MultiMaskedPath::GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                        FilenameMatchingPolicy policy) const {
    return RemoveMaskedEntries(m_path->GetMethodEntriesByName(scope, name, policy));
}

PathEntryVector MultiMaskedPath::GetPartiallyMatchingEntries(SearchScope scope,
                                                             const ustring& partialName,
                                                             FilenameMatchingPolicy policy) const {
    return RemoveMaskedEntries(m_path->GetPartiallyMatchingEntries(scope, partialName, policy));
}

std::shared_ptr<const IPathEntry> MultiMaskedPath::GetMainEntryForEntry(
    const IPathEntry& entry) const {
    return m_path->GetMainEntryForEntry(entry);
}

std::shared_ptr<const IPathEntry> MultiMaskedPath::GetParentEntryForEntry(
    const IPathEntry& entry) const {
    return m_path->GetParentEntryForEntry(entry);
}

std::shared_ptr<const IPathEntry> MultiMaskedPath::GetPathEntryFromAbsoluteIRI(
    const AbsoluteIRI& location, FilenameMatchingPolicy policy) const {
    auto entry = m_path->GetPathEntryFromAbsoluteIRI(location, policy);
    return entry && IsMasked(*entry) ? nullptr : entry;
}

std::shared_ptr<const IPathEntry> MultiMaskedPath::GetPathEntryFromAbsoluteIRI(
    const CanonicalAbsoluteIRI& location) const {
    auto entry = m_path->GetPathEntryFromAbsoluteIRI(location);
    return entry && IsMasked(*entry) ? nullptr : entry;
}

OptionalFoundItem MultiMaskedPath::FindFirstInScope(SearchScope scope,
                                                    const detail::SearchTarget& target,
                                                    FilenameMatchingPolicy policy) const {
    auto first = m_path->FindFirstInScope(scope, target, policy);
    if (!first || !IsMasked(*first->GetPathEntry()))
        return first;
    const auto all = m_path->FindAllInScope(scope, target, policy);
    if (m_masked.empty())
        return boost::none;
    // Only the match directly after each masked entry's run is a candidate, and the masked
    // entries are tried in the order they were given; a full scan is deliberately not made.
    for (const auto& masked : m_masked) {
        const auto after = std::upper_bound(
            all.begin(), all.end(), *masked, [&](const IPathEntry& m, const FoundItem& found) {
                return m_path->FirstEntryIsBeforeSecondOnPath(m, *found.GetPathEntry());
            });
        if (after != all.end() && !IsMasked(*after->GetPathEntry()))
            return *after;
    }
    return boost::none;
}

std::vector<FoundItem> MultiMaskedPath::FindAllInScope(SearchScope scope,
                                                       const detail::SearchTarget& target,
                                                       FilenameMatchingPolicy policy) const {
    auto all = m_path->FindAllInScope(scope, target, policy);
    for (const auto& masked : m_masked)
        EraseRunOf(all, *masked, *m_path);
    return all;
}

EntryCallback MultiMaskedPath::SkippingMasked(const EntryCallback& callback) const {
    return [this, &callback](const std::shared_ptr<const IPathEntry>& entry) {
        return IsMasked(*entry) ? false : callback(entry);
    };
}

bool MultiMaskedPath::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    return m_path->ForEachEntry(scope, SkippingMasked(callback));
}

bool MultiMaskedPath::ConcurrentForEachEntry(SearchScope scope,
                                             const EntryCallback& callback) const {
    return m_path->ConcurrentForEachEntry(scope, SkippingMasked(callback));
}

bool MultiMaskedPath::FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                                     const IPathEntry& second) const {
    return m_path->FirstEntryIsBeforeSecondOnPath(first, second);
}

bool MultiMaskedPath::IsEntryOnPath(const IPathEntry& entry) const {
    return !IsMasked(entry) && m_path->IsEntryOnPath(entry);
}

}  // namespace Velmora::PathManagement
