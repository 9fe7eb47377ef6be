// MainSearchPath's lookups: files by name, entries by location, method and partial-pathname
// entries, and the walks over all entries. The path they read is built in main_search_path.cpp.

#include <velmora/searchpath/main_search_path.hpp>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include <tbb/parallel_for.h>

#include <velmora/text/ustring.hpp>

#include "main_search_path_index.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using PathManagement::EntryCallback;
using PathManagement::FoundItem;
using PathManagement::IPathEntry;
using PathManagement::OptionalFoundItem;
using PathManagement::PathEntryVector;
using PathManagement::SearchScope;
using searchpath_internal::NameEqual;
using searchpath_internal::NameHash;
using searchpath_internal::NameKey;

std::size_t MainSearchPath::GetEntryCount() const noexcept {
    return m_index->slots.size();
}

PathEntryVector MainSearchPath::GetMethodEntriesByName(SearchScope scope, const ustring& name,
                                                       FilenameMatchingPolicy policy) const {
    PathEntryVector result;
    auto take = [&](std::uint32_t slot) {
        const auto parent = m_index->slots[slot].parent;
        if (parent != kNone &&
            scope.Contains(static_cast<std::uint32_t>(m_index->slots[parent].kind))) {
            result.push_back(m_index->slots[slot].entry->shared_from_this());
        }
    };
    if (policy != FilenameMatchingPolicy::IgnoreCase) {
        std::vector<std::uint32_t> slots;
        m_index->ForEachListed(
            [&](const Index& index) -> const SlotList* {
                const auto it = index.Methods().find(std::u16string_view(name));
                return it == index.Methods().end() ? nullptr : &it->second;
            },
            [&](std::uint32_t slot) { slots.push_back(slot); });
        std::sort(slots.begin(), slots.end());
        for (const auto slot : slots)
            take(slot);
        return result;
    }
    for (std::uint32_t slot = 0; slot < m_index->slots.size(); ++slot) {
        const auto& s = m_index->slots[slot];
        if (s.kind == PathEntryType::AtFolder &&
            text::EqualsIgnoringCase(
                std::u16string_view(s.entry->GetFolderNames().back()).substr(1), name)) {
            take(slot);
        }
    }
    return result;
}

PathEntryVector MainSearchPath::GetPartiallyMatchingEntries(SearchScope scope,
                                                            const ustring& partialName,
                                                            FilenameMatchingPolicy policy) const {
    PathEntryVector result;
    const auto parts = SplitPartialName(partialName);
    if (parts.empty())
        return result;
    // Only the entries whose last folders the last parts can name are candidates.
    const bool two = parts.size() > 1;
    ustring key = text::FoldCase(parts.back());
    if (two)
        key = text::FoldCase(parts[parts.size() - 2]) + u'/' + key;
    std::vector<std::uint32_t> slots;
    m_index->ForEachListed(
        [&](const Index& index) -> const SlotList* {
            const auto& byName = two ? index.ByFolderName().lastTwo : index.ByFolderName().last;
            const auto it = byName.find(key);
            return it == byName.end() ? nullptr : &it->second;
        },
        [&](std::uint32_t slot) { slots.push_back(slot); });
    std::sort(slots.begin(), slots.end());
    for (const auto slot : slots) {
        const auto& s = m_index->slots[slot];
        if (scope.Contains(static_cast<std::uint32_t>(s.kind)) &&
            s.entry->EndsWithFolders(parts, policy)) {
            result.push_back(s.entry->shared_from_this());
        }
    }
    return result;
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetMainEntryForEntry(
    const IPathEntry& entry) const {
    const auto slot = m_index->SlotOf(entry);
    return slot == kNone ? nullptr : m_mainFolders[m_index->slots[slot].main];
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetParentEntryForEntry(
    const IPathEntry& entry) const {
    const auto slot = m_index->SlotOf(entry);
    if (slot == kNone || m_index->slots[slot].parent == kNone)
        return nullptr;
    return m_index->slots[m_index->slots[slot].parent].entry->shared_from_this();
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetPathEntryFromAbsoluteIRI(
    const AbsoluteIRI& location, FilenameMatchingPolicy policy) const {
    const auto slot = m_index->FirstListed([&](const Index& index) {
        const auto& byLocation = index.ByLocation().byLocation;
        const auto it = byLocation.find(location);
        return it == byLocation.end() ? kNone : it->second;
    });
    if (slot != kNone)
        return m_index->slots[slot].entry->shared_from_this();
    if (policy != FilenameMatchingPolicy::IgnoreCase)
        return nullptr;
    for (const auto& s : m_index->slots) {
        if (text::EqualsIgnoringCase(s.entry->GetAbsoluteIRI().toString(), location.toString())) {
            return s.entry->shared_from_this();
        }
    }
    return nullptr;
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetPathEntryFromAbsoluteIRI(
    const CanonicalAbsoluteIRI& location) const {
    const auto slot = m_index->FirstListed([&](const Index& index) {
        const auto& byCanonical = index.ByLocation().byCanonical;
        const auto it = byCanonical.find(location.getIRI());
        return it == byCanonical.end() ? kNone : it->second;
    });
    return slot == kNone ? nullptr : m_index->slots[slot].entry->shared_from_this();
}

const MainSearchPath::FoldedIndex& MainSearchPath::Folded() const {
    std::call_once(m_foldedOnce, [this] {
        auto folded = std::make_unique<FoldedIndex>();
        const Index& index = *m_index;
        for (const Index* source : {&index, index.root}) {
            if (source == nullptr)
                continue;
            const std::span<const std::uint32_t> here =
                source == &index ? std::span<const std::uint32_t>(index.slotOfId)
                                 : std::span<const std::uint32_t>(index.slotOfRoot);
            for (const auto& [name, chain] : source->byFileName) {
                auto& list = folded->byFileName[text::FoldCase(name)];
                source->ForEachSlot(chain, here, false, [&](std::uint32_t slot) {
                    list.push_back(slot);
                    return true;
                });
            }
        }
        if (index.image) {
            index.image->ForEachName([&](std::string_view name, std::uint32_t record) {
                if (const auto slot = index.slotOfRecord[record]; slot != kNone)
                    folded->byFileName[text::FoldCase(text::FromNative(name))].push_back(slot);
            });
        }
        // Names that fold alike come from several lists; keep each list in path order.
        for (auto& [name, slots] : folded->byFileName) {
            std::sort(slots.begin(), slots.end());
            slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
        }
        m_folded = std::move(folded);
    });
    return *m_folded;
}

OptionalFoundItem MainSearchPath::FindFirstInScope(
    SearchScope scope, const PathManagement::detail::SearchTarget& target,
    FilenameMatchingPolicy policy) const {
    const SplitName name(*target.baseName);
    const std::vector<ustring>& extensions = *target.extensions;
    std::uint32_t best = kNone;
    // The first extension, in the target's order, under which the index named `best`: the file
    // the folder's own table then answers first.
    std::size_t bestExtension = 0;
    // Slots that an index named but whose files turned out not to hold the name: only a path
    // cache written wrongly can name such a slot, and the search then goes on without it.
    boost::container::small_vector<std::uint32_t, 2> rejected;
    for (;;) {
        if (policy == FilenameMatchingPolicy::IgnoreCase) {
            const auto& folded = Folded();
            for (const ustring& extension : extensions) {
                ustring key = text::FoldCase(name.leaf);
                key += text::FoldCase(extension);
                const auto it = folded.byFileName.find(key);
                if (it == folded.byFileName.end())
                    continue;
                // The first slot of the list, in path order, that can hold the file.
                for (const auto slot : it->second) {
                    if (slot >= best)
                        break;
                    if (m_index->Takes(slot, scope, name, policy, rejected)) {
                        best = slot;
                        break;
                    }
                }
            }
        } else {
            best = m_index->FirstHolder(scope, name, extensions, policy, rejected, bestExtension);
        }
        if (best == kNone)
            return boost::none;
        const FolderEntry& entry = *m_index->slots[best].entry;
        // No extension before the one the index named is in that folder, unless the index is
        // wrong; the folder's whole list is the answer then.
        if (auto item = entry.FindFileNamed(
                name.leaf, std::span(extensions).subspan(bestExtension, 1), policy)) {
            return FoundItem(std::move(item), entry.shared_from_this());
        }
        if (auto item = entry.FindFileNamed(name.leaf, extensions, policy))
            return FoundItem(std::move(item), entry.shared_from_this());
        rejected.push_back(std::exchange(best, kNone));
    }
}

std::optional<MainSearchPath::Holder> MainSearchPath::FindFirstHolderInScope(
    SearchScope scope, const PathManagement::detail::SearchTarget& target) const {
    const SplitName name(*target.baseName);
    std::size_t extension = 0;
    const std::uint32_t slot = m_index->FirstHolder(scope, name, *target.extensions,
                                                    FilenameMatchingPolicy::Exact, {}, extension);
    if (slot == kNone)
        return std::nullopt;
    return Holder{m_index->slots[slot].entry, extension};
}

std::vector<FoundItem> MainSearchPath::FindAllInScope(
    SearchScope scope, const PathManagement::detail::SearchTarget& target,
    FilenameMatchingPolicy policy) const {
    const SplitName name(*target.baseName);
    const std::vector<ustring>& extensions = *target.extensions;
    std::vector<std::uint32_t> candidates;
    if (policy == FilenameMatchingPolicy::IgnoreCase) {
        const auto& folded = Folded();
        for (const ustring& extension : extensions) {
            const auto it =
                folded.byFileName.find(text::FoldCase(name.leaf) + text::FoldCase(extension));
            if (it != folded.byFileName.end()) {
                candidates.insert(candidates.end(), it->second.begin(), it->second.end());
            }
        }
    } else {
        for (const ustring& extension : extensions) {
            m_index->ForEachHolder(NameKey{name.leaf, extension}, [&](std::uint32_t slot) {
                candidates.push_back(slot);
                return true;
            });
        }
    }
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());

    std::vector<FoundItem> result;
    result.reserve(candidates.size());
    for (const auto slot : candidates) {
        if (!m_index->Searchable(slot, scope))
            continue;
        const FolderEntry& entry = *m_index->slots[slot].entry;
        if (!name.folders.empty() && !entry.EndsWithFolders(name.folders, policy))
            continue;
        if (auto item = entry.FindFileNamed(name.leaf, extensions, policy)) {
            result.emplace_back(std::move(item), entry.shared_from_this());
        }
    }
    return result;
}

bool MainSearchPath::ForEachEntry(SearchScope scope, const EntryCallback& callback) const {
    for (const auto& main : m_mainFolders) {
        if (main->ForEachEntry(scope, callback))
            return true;
    }
    return false;
}

bool MainSearchPath::ConcurrentForEachEntry(SearchScope scope,
                                            const EntryCallback& callback) const {
    std::atomic<bool> stopped{false};
    // Once one call asks to stop, the other threads stop at their next entry.
    const EntryCallback guarded = [&](const std::shared_ptr<const IPathEntry>& entry) {
        if (stopped.load(std::memory_order_relaxed))
            return true;
        if (callback(entry)) {
            stopped.store(true, std::memory_order_relaxed);
            return true;
        }
        return false;
    };
    tbb::parallel_for(std::size_t{0}, m_mainFolders.size(), [&](std::size_t i) {
        if (!stopped.load(std::memory_order_relaxed))
            m_mainFolders[i]->ForEachEntry(scope, guarded);
    });
    return stopped.load();
}

bool MainSearchPath::FirstEntryIsBeforeSecondOnPath(const IPathEntry& first,
                                                    const IPathEntry& second) const {
    const auto a = m_index->SlotOf(first);
    if (a == kNone)
        return false;
    const auto b = m_index->SlotOf(second);
    // Entries on the path come before those that are not; an entry beneath a main entry sorts
    // equal to it.
    if (b == kNone)
        return true;
    return m_index->slots[a].main < m_index->slots[b].main;
}

bool MainSearchPath::IsEntryOnPath(const IPathEntry& entry) const {
    return m_index->SlotOf(entry) != kNone;
}

}  // namespace Velmora::SearchPath
