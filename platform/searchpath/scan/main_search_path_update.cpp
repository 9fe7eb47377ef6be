// MainSearchPath::Update: the next snapshot of a path from the one before it and the main entries
// read anew. A change event names a few folders; the path it lands in may hold a hundred thousand.

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include <algorithm>
#include <numeric>

#include <boost/unordered/unordered_flat_map.hpp>

#include <velmora/pathmanagement/search_target.hpp>

#include "main_search_path_index.hpp"

namespace Velmora::SearchPath {
namespace {

using PathManagement::PathEntryVector;

// The files that a tree adds to the path's count; those of resources folders are never found by
// name and do not count.
std::size_t FilesIn(const FolderEntry& entry) {
    std::size_t files =
        entry.GetPathEntryType() == PathEntryType::ResourcesFolder ? 0 : entry.GetFileCount();
    for (const auto& sub : entry.SubEntries())
        files += FilesIn(*sub);
    return files;
}

// Takes out of `from` (kNone) the places that are not in one longest run of ascending places: the
// trees that moved against the others, which a derived index adds anew so that its root's chains
// stay in path order.
void KeepLongestAscent(std::vector<std::uint32_t>& from) {
    std::vector<std::uint32_t> tails;  // of each length, the position that ends its lowest ascent
    std::vector<std::uint32_t> before(from.size(), kNone);
    for (std::uint32_t i = 0; i < from.size(); ++i) {
        if (from[i] == kNone)
            continue;
        const auto it =
            std::lower_bound(tails.begin(), tails.end(), from[i],
                             [&](std::uint32_t t, std::uint32_t v) { return from[t] < v; });
        before[i] = it == tails.begin() ? kNone : *(it - 1);
        if (it == tails.end())
            tails.push_back(i);
        else
            *it = i;
    }
    std::vector<char> keep(from.size(), 0);
    for (auto i = tails.empty() ? kNone : tails.back(); i != kNone; i = before[i])
        keep[i] = 1;
    for (std::uint32_t i = 0; i < from.size(); ++i) {
        if (keep[i] == 0)
            from[i] = kNone;
    }
}

}  // namespace

PathManagement::SharedPathEntryVector MainSearchPath::GetMainEntries() const {
    std::call_once(m_mainsOnce, [this] {
        m_mains =
            std::make_shared<const PathEntryVector>(m_mainFolders.begin(), m_mainFolders.end());
    });
    return m_mains;
}

PathEntryVector MainSearchPath::GetMethodEntries() const {
    PathEntryVector methods;
    for (const auto& slot : m_index->slots) {
        if (slot.kind == PathEntryType::AtFolder)
            methods.push_back(slot.entry->shared_from_this());
    }
    return methods;
}

std::unique_ptr<MainSearchPath::Index> MainSearchPath::Index::Derive(
    const MainSearchPath& previous, const std::vector<std::shared_ptr<const FolderEntry>>& mains,
    std::vector<std::uint32_t> from) {
    const Index& prev = *previous.m_index;
    std::uint32_t last = 0;
    for (const auto place : from) {
        if (place == kNone)
            continue;
        if (place < last) {
            KeepLongestAscent(from);
            break;
        }
        last = place;
    }
    const bool prevWhole = prev.root == nullptr;
    const Index& root = prevWhole ? prev : *prev.root;
    // The root's tables answer beside ours from now on: they are built here, once per root, and
    // never on a reader's thread.
    root.BuildTables();
    auto index = std::make_unique<Index>();
    index->rootPath = prevWhole ? previous.shared_from_this() : prev.rootPath;
    index->root = &root;
    // Once more of the trees added since the root have left than remain, the remaining ones are
    // added anew, so that lookups do not walk past the names of those that left.
    const std::size_t prevIds = prev.slotOfId.size();
    const bool renumber = !prevWhole && prev.goneIds > prevIds - prev.goneIds + 16;
    std::vector<char> added;  // with `renumber`, the slots of `previous` that trees added hold
    if (renumber) {
        added.assign(prev.slots.size(), 0);
        for (const auto slot : prev.slotOfId) {
            if (slot != kNone)
                added[slot] = 1;
        }
    }
    MethodsByName methods;
    Locations locations;
    SlotOfEntry ofEntry;
    FolderNames names;
    if (!prevWhole && !renumber) {
        index->byFileName = prev.byFileName;
        index->postings = prev.postings;
        index->kept = prev.kept;
        methods = prev.Methods();
        locations = prev.ByLocation();
        ofEntry = prev.OfEntry();
        names = prev.ByFolderName();
    }

    // The slots: each tree of `previous` copied as it was, renumbered; each new tree walked.
    std::vector<std::uint32_t> prevToNew(prev.slots.size(), kNone);
    std::vector<std::uint32_t> newSlots;
    index->slots.reserve(prev.slots.size() + 16);
    index->firstSlotOfMain.reserve(mains.size() + 1);
    for (std::uint32_t i = 0; i < mains.size(); ++i) {
        const auto at = static_cast<std::uint32_t>(index->slots.size());
        index->firstSlotOfMain.push_back(at);
        const std::uint32_t j = from[i];
        if (j != kNone && (!renumber || added[prev.firstSlotOfMain[j]] == 0)) {
            const std::uint32_t begin = prev.firstSlotOfMain[j];
            const std::uint32_t end = prev.firstSlotOfMain[j + 1];
            for (std::uint32_t s = begin; s < end; ++s) {
                Slot slot = prev.slots[s];
                slot.main = i;
                if (slot.parent != kNone)
                    slot.parent = slot.parent - begin + at;
                prevToNew[s] = static_cast<std::uint32_t>(index->slots.size());
                index->slots.push_back(slot);
            }
            continue;
        }
        index->kept.push_back(mains[i]);
        index->AppendTree(*mains[i], i, [&](std::uint32_t slot) { newSlots.push_back(slot); });
    }
    index->firstSlotOfMain.push_back(static_cast<std::uint32_t>(index->slots.size()));
    const auto here = [&](std::uint32_t slot) { return slot == kNone ? kNone : prevToNew[slot]; };

    // The root's slots, the numbers of the trees added since, and the cache's records, mapped to
    // the slots they hold now.
    if (prevWhole) {
        index->slotOfRoot = prevToNew;
    } else {
        index->slotOfRoot.resize(prev.slotOfRoot.size());
        std::transform(prev.slotOfRoot.begin(), prev.slotOfRoot.end(), index->slotOfRoot.begin(),
                       here);
    }
    last = 0;
    for (const auto slot : index->slotOfRoot) {
        if (slot == kNone) {
            ++index->goneFromRoot;
        } else {
            index->rootInOrder = index->rootInOrder && slot >= last;
            last = slot;
        }
    }
    if (!prevWhole && !renumber) {
        index->slotOfId.resize(prevIds);
        std::transform(prev.slotOfId.begin(), prev.slotOfId.end(), index->slotOfId.begin(), here);
        index->goneIds = static_cast<std::uint32_t>(
            std::count(index->slotOfId.begin(), index->slotOfId.end(), kNone));
    }
    // A path that has moved far from its root is made whole again.
    const std::size_t live = index->slotOfId.size() - index->goneIds + newSlots.size();
    if (index->goneFromRoot + live > root.slots.size() / 8 + 16)
        return nullptr;
    index->image = prev.image;
    index->slotOfRecord.resize(prev.slotOfRecord.size());
    std::transform(prev.slotOfRecord.begin(), prev.slotOfRecord.end(), index->slotOfRecord.begin(),
                   here);

    for (const auto slot : newSlots) {
        const auto id = static_cast<std::uint32_t>(index->slotOfId.size());
        index->slotOfId.push_back(slot);
        if (!index->TakeRecord(slot)) {
            for (const ustring& name : index->slots[slot].entry->GetFileNames())
                index->AddFile(name, id);
        }
        index->AddMethod(methods, slot, id);
        index->AddLocation(locations, slot, id, true);
        ofEntry.insert_or_assign(index->slots[slot].entry, id);
        index->AddFolderNames(names, slot, id);
    }
    index->methodsByName.Set(std::move(methods));
    index->locations.Set(std::move(locations));
    index->slotOf.Set(std::move(ofEntry));
    index->folderNames.Set(std::move(names));
    return index;
}

void MainSearchPath::PrepareForChanges() const {
    (m_index->root != nullptr ? *m_index->root : *m_index).BuildTables();
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Derive(
    const MainSearchPath& previous, std::vector<std::shared_ptr<const FolderEntry>> mainEntries,
    const std::vector<std::uint32_t>& from, std::size_t fileCount) {
    auto index = from.empty() ? nullptr : Index::Derive(previous, mainEntries, from);
    if (!index) {
        auto whole = Create(std::move(mainEntries));
        whole->m_index->BuildTables();
        return whole;
    }
    std::shared_ptr<MainSearchPath> path(new MainSearchPath());
    path->m_mainFolders = std::move(mainEntries);
    path->m_fileCount = fileCount;
    path->m_index = std::move(index);
    return path;
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Update(
    const MainSearchPath& previous, const std::vector<Replacement>& replaced) {
    auto folders = previous.m_mainFolders;
    std::vector<std::uint32_t> from(folders.size());
    std::iota(from.begin(), from.end(), 0U);
    // A folder read anew may now hold or let go of a special folder that is on the path itself:
    // such paths are made whole.
    bool whole = previous.m_specialMains;
    bool vanished = false;
    std::size_t files = previous.m_fileCount;
    for (const auto& [position, entry] : replaced) {
        auto& old = folders.at(position);
        whole = whole || (entry && entry->GetAbsoluteIRI() != old->GetAbsoluteIRI());
        vanished = vanished || !entry;
        files -= FilesIn(*old);
        if (entry)
            files += FilesIn(*entry);
        old = entry;
        from[position] = kNone;
    }
    if (whole)
        from.clear();
    if (vanished) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < folders.size(); ++i) {
            if (folders[i]) {
                folders[kept] = std::move(folders[i]);
                from[kept++] = from[i];
            }
        }
        folders.resize(kept);
        from.resize(whole ? 0 : kept);
    }
    return Derive(previous, std::move(folders), from, files);
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Rearrange(
    const MainSearchPath& previous, std::vector<std::shared_ptr<const FolderEntry>> mainEntries) {
    std::erase(mainEntries, nullptr);
    // Which folders a path of special folders leaves out can change with any change of it.
    if (previous.m_specialMains)
        return Derive(previous, std::move(mainEntries), {}, 0);
    const auto& old = previous.m_mainFolders;
    // The runs of the same entries in the same places at the front and the back are the same
    // files; only the entries between them can differ.
    const auto [front, back] = SharedRuns(old, mainEntries);
    std::vector<std::uint32_t> from(mainEntries.size());
    std::iota(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(front), 0U);
    for (std::size_t k = 0; k < back; ++k) {
        from[mainEntries.size() - 1 - k] = static_cast<std::uint32_t>(old.size() - 1 - k);
    }
    boost::unordered_flat_map<const FolderEntry*, std::uint32_t> gone;
    for (std::size_t i = front; i < old.size() - back; ++i)
        gone.emplace(old[i].get(), static_cast<std::uint32_t>(i));
    std::size_t files = previous.m_fileCount;
    for (std::size_t i = front; i < mainEntries.size() - back; ++i) {
        const FolderEntry& entry = *mainEntries[i];
        if (const auto it = gone.find(&entry); it != gone.end()) {
            from[i] = it->second;
            gone.erase(it);
            continue;
        }
        // A new folder with a special name may be a special subfolder of another folder on the
        // path, which Create leaves out: that path is made whole.
        if (searchpath_internal::HasSpecialName(entry)) {
            return Derive(previous, std::move(mainEntries), {}, 0);
        }
        from[i] = kNone;
        files += FilesIn(entry);
    }
    for (const auto& [entry, place] : gone)
        files -= FilesIn(*entry);
    return Derive(previous, std::move(mainEntries), from, files);
}

}  // namespace Velmora::SearchPath
