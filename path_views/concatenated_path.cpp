#include <velmora/pathmanagement/path_views.hpp>

#include <algorithm>
#include <cassert>

#include "list_building.hpp"

namespace Velmora::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;

ConcatenatedPath::ConcatenatedPath(std::vector<std::shared_ptr<const IPath>>&& paths)
    : m_paths(std::move(paths)) {}

ConcatenatedPath::ConcatenatedPath(const std::shared_ptr<const IPath>& first,
                                   const std::shared_ptr<const IPath>& second)
    : ConcatenatedPath(std::vector<std::shared_ptr<const IPath>>{first, second}) {}

ConcatenatedPath::~ConcatenatedPath() = default;

SharedPathEntryVector ConcatenatedPath::CachedMainEntries(
    const std::function<PathEntryVector()>& build) const {
    // A throwing build leaves the flag unset, so the next caller builds again.
    boost::call_once(m_once, [&] {
        m_mainEntries = std::make_shared<const PathEntryVector>(build());
        m_published.store(true, std::memory_order_release);
    });
    // The once flag orders the fill before every return; reading the flag that the fill set
    // states that order in the language's own terms as well.
    (void)m_published.load(std::memory_order_acquire);
    return m_mainEntries;
}

SharedPathEntryVector ConcatenatedPath::PublishedMainEntries() const {
    return m_published.load(std::memory_order_acquire) ? m_mainEntries : nullptr;
}

SharedPathEntryVector ConcatenatedPath::GetMainEntries() const {
    return CachedMainEntries([this] {
        return detail::Concatenate<PathEntryPtr>(m_paths,
                                                 [](const IPath& p) { return p.GetMainEntries(); });
    });
}

PathEntryVector ConcatenatedPath::GetMethodEntries() const {
    return detail::Concatenate<PathEntryPtr>(m_paths,
                                             [](const IPath& p) { return p.GetMethodEntries(); });
}

PathEntryVector ConcatenatedPath::GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                         FilenameMatchingPolicy policy) const {
    return detail::Concatenate<PathEntryPtr>(
        m_paths, [&](const IPath& p) { return p.GetMethodEntriesByName(scope, name, policy); });
}

PathEntryVector ConcatenatedPath::GetPartiallyMatchingEntries(SearchScope scope,
                                                              const ustring& partialName,
                                                              FilenameMatchingPolicy policy) const {
    return detail::Concatenate<PathEntryPtr>(m_paths, [&](const IPath& p) {
        return p.GetPartiallyMatchingEntries(scope, partialName, policy);
    });
}

std::vector<FoundItem> ConcatenatedPath::FindAllInScope(SearchScope scope,
                                                        const detail::SearchTarget& target,
                                                        FilenameMatchingPolicy policy) const {
    return detail::Concatenate<FoundItem>(
        m_paths, [&](const IPath& p) { return p.FindAllInScope(scope, target, policy); });
}

OptionalFoundItem ConcatenatedPath::FindFirstInScope(SearchScope scope,
                                                     const detail::SearchTarget& target,
                                                     FilenameMatchingPolicy policy) const {
    for (const auto& path : m_paths) {
        if (auto found = path->FindFirstInScope(scope, target, policy))
            return found;
    }
    return boost::none;
}

std::shared_ptr<const IPathEntry> ConcatenatedPath::GetPathEntryFromAbsoluteIRI(
    const CanonicalAbsoluteIRI& location) const {
    for (const auto& path : m_paths) {
        if (auto entry = path->GetPathEntryFromAbsoluteIRI(location))
            return entry;
    }
    return nullptr;
}

std::shared_ptr<const IPathEntry> ConcatenatedPath::GetPathEntryFromAbsoluteIRI(
    const AbsoluteIRI& location, FilenameMatchingPolicy policy) const {
    // The canonical form first on every sub-path, through the virtual call so that a derived
    // view's own canonical lookup is the one used.
    const CanonicalAbsoluteIRI canonical(location, ustring());
    const IPath& self = *this;
    if (auto entry = self.GetPathEntryFromAbsoluteIRI(canonical))
        return entry;
    for (const auto& path : m_paths) {
        if (auto entry = path->GetPathEntryFromAbsoluteIRI(location, policy))
            return entry;
    }
    return nullptr;
}

bool ConcatenatedPath::IsEntryOnPath(const IPathEntry& entry) const {
    return std::any_of(m_paths.begin(), m_paths.end(),
                       [&](const auto& path) { return path->IsEntryOnPath(entry); });
}

const IPath& ConcatenatedPath::OwningSubPath(const IPathEntry& entry) const {
    const auto owner = std::find_if(m_paths.begin(), m_paths.end(),
                                    [&](const auto& path) { return path->IsEntryOnPath(entry); });
    // Callers ask only about entries on the path; there is deliberately no answer for others.
    assert(owner != m_paths.end() && "the entry is on no sub-path");
    return **owner;
}

std::shared_ptr<const IPathEntry> ConcatenatedPath::GetMainEntryForEntry(
    const IPathEntry& entry) const {
    return OwningSubPath(entry).GetMainEntryForEntry(entry);
}

std::shared_ptr<const IPathEntry> ConcatenatedPath::GetParentEntryForEntry(
    const IPathEntry& entry) const {
    return OwningSubPath(entry).GetParentEntryForEntry(entry);
}

bool ConcatenatedPath::FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                                      const IPathEntry& second) const {
    for (const auto& path : m_paths) {
        const bool firstOn = path->IsEntryOnPath(first);
        const bool secondOn = path->IsEntryOnPath(second);
        if (firstOn && !secondOn)
            return true;
        if (firstOn && secondOn)
            return path->FirstEntryIsBeforeSecondOnPath(first, second);
        if (secondOn)
            return false;
    }
    return false;
}

bool ConcatenatedPath::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    for (const auto& path : m_paths) {
        if (path->ForEachEntry(scope, callback))
            return true;
    }
    return false;
}

bool ConcatenatedPath::ConcurrentForEachEntry(SearchScope scope,
                                              const EntryCallback& callback) const {
    for (const auto& path : m_paths) {
        if (path->ConcurrentForEachEntry(scope, callback))
            return true;
    }
    return false;
}

}  // namespace Velmora::PathManagement
