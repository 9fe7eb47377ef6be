#include <velmora/searchpath/main_search_path.hpp>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include <tbb/parallel_for.h>
#include <boost/container/small_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <velmora/text/ustring.hpp>

#include "file_table.hpp"
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
using searchpath_internal::IriPointerEqual;
using searchpath_internal::IriPointerHash;
using searchpath_internal::NameEqual;
using searchpath_internal::NameHash;
using searchpath_internal::NameKey;

namespace {

// Whether `entry`'s tree holds a special subfolder at `location`.
bool TreeHolds(const FolderEntry& entry, const AbsoluteIRI& location) {
    return std::any_of(entry.SubEntries().begin(), entry.SubEntries().end(), [&](const auto& sub) {
        return sub->GetLocation() == location || TreeHolds(*sub, location);
    });
}

bool SpecialName(const ustring& name) {
    return PathManagement::GetPathEntryTypeFromBaseName(name) != PathEntryType::Ordinary;
}

}  // namespace

// Nearly every folder of a long path is told ordinary by the first letter of its name as its
// location's text spells it, which costs no decoding; only a name that may be special, or that
// starts with an escape, is decoded to be sure.
bool searchpath_internal::HasSpecialName(const FolderEntry& entry) {
    const std::u16string_view text = entry.GetLocation().toString();
    const std::size_t end = text.find_last_not_of(u'/');
    if (end == std::u16string_view::npos)
        return false;
    const std::size_t slash = text.find_last_of(u'/', end);
    const char16_t first = slash == std::u16string_view::npos ? text[0] : text[slash + 1];
    if (first != u'+' && first != u'@' && first != u'p' && first != u'r' && first != u'%')
        return false;
    return SpecialName(entry.GetName());
}

struct MainSearchPath::FolderPlaces {
    boost::unordered_flat_map<AbsoluteIRI, std::size_t, IriHash> placeOf;
};

std::vector<char> MainSearchPath::HeldMains(
    const std::vector<std::shared_ptr<const FolderEntry>>& mains, const FolderPlaces* places) {
    std::vector<std::size_t> special;
    for (std::size_t i = 0; i < mains.size(); ++i) {
        if (mains[i] && searchpath_internal::HasSpecialName(*mains[i]))
            special.push_back(i);
    }
    std::vector<char> held;
    if (special.empty())
        return held;
    // The folders that can hold a special folder: those above it up to the first one with an
    // ordinary name, since only special folders hang beneath another folder's tree.
    boost::unordered_flat_map<AbsoluteIRI, std::size_t, IriHash> holderAt;
    for (const std::size_t i : special) {
        AbsoluteIRI above = mains[i]->GetLocation();
        for (;;) {
            AbsoluteIRI parent = above.getParent();
            if (parent == above)
                break;
            above = std::move(parent);
            holderAt.emplace(above, SIZE_MAX);
            if (!SpecialName(above.getName()))
                break;
        }
    }
    // Where they stand on the path, if they do.
    if (places != nullptr) {
        for (auto& [location, place] : holderAt) {
            if (const auto it = places->placeOf.find(location); it != places->placeOf.end())
                place = it->second;
        }
    } else {
        for (std::size_t i = 0; i < mains.size(); ++i) {
            if (!mains[i])
                continue;
            const auto it = holderAt.find(mains[i]->GetLocation());
            if (it != holderAt.end() && it->second == SIZE_MAX)
                it->second = i;
        }
    }
    held.assign(mains.size(), 0);
    for (const std::size_t i : special) {
        const AbsoluteIRI& location = mains[i]->GetLocation();
        AbsoluteIRI above = location.getParent();
        for (;;) {
            const auto it = holderAt.find(above);
            if (it == holderAt.end())
                break;
            const std::size_t at = it->second;
            if (at != SIZE_MAX && at != i && mains[at] && TreeHolds(*mains[at], location)) {
                held[i] = 1;
                break;
            }
            AbsoluteIRI parent = above.getParent();
            if (parent == above)
                break;
            above = std::move(parent);
        }
    }
    return held;
}

MainSearchPath::MainSearchPath() = default;
MainSearchPath::~MainSearchPath() = default;

std::shared_ptr<const MainSearchPath> MainSearchPath::Create(
    std::vector<std::shared_ptr<const FolderEntry>> mainEntries) {
    return Create(std::move(mainEntries), nullptr);
}

// With `places`, the main entries are one per folder, each at its folder's place, and no two of
// one folder. A folder that another folder of the path holds as a special subfolder is left out
// wherever it stands: it is reached through its holder only, so that each file is reached through
// one entry and what a special folder means does not depend on the order of the path.
std::shared_ptr<const MainSearchPath> MainSearchPath::Create(
    std::vector<std::shared_ptr<const FolderEntry>> mainEntries, const FolderPlaces* places) {
    std::shared_ptr<MainSearchPath> path(new MainSearchPath());
    auto index = std::make_unique<Index>();
    // One walk over the entries, which on a large path are far apart in memory: each is visited
    // once, and counted references are moved, never copied.
    std::size_t fileNames = 0;
    std::size_t unsaved = 0;
    std::vector<std::uint32_t> unsavedSlots;  // those whose names the index must hold itself
    const std::vector<char> held = HeldMains(mainEntries, places);
    // Without `places`, the locations of the main entries so far: a repeated one is left out.
    boost::unordered_flat_set<const AbsoluteIRI*, IriPointerHash, IriPointerEqual> seen;
    if (places == nullptr)
        seen.reserve(mainEntries.size());
    index->slots.reserve(mainEntries.size());
    index->firstSlotOfMain.reserve(mainEntries.size() + 1);
    std::size_t kept = 0;
    for (std::size_t place = 0; place < mainEntries.size(); ++place) {
        auto& main = mainEntries[place];
        if (!main || (!held.empty() && held[place] != 0) ||
            (places == nullptr && !seen.insert(&main->GetLocation()).second)) {
            continue;
        }
        path->m_specialMains = path->m_specialMains || searchpath_internal::HasSpecialName(*main);
        const auto mainIndex = static_cast<std::uint32_t>(kept);
        if (&mainEntries[kept] != &main)
            mainEntries[kept] = std::move(main);
        index->firstSlotOfMain.push_back(static_cast<std::uint32_t>(index->slots.size()));
        index->AppendTree(*mainEntries[kept++], mainIndex, [&](std::uint32_t slot) {
            const auto& entry = *index->slots[slot].entry;
            if (index->slots[slot].kind == PathEntryType::ResourcesFolder)
                return;
            fileNames += entry.GetFileCount();
            // The files of entries from one path cache are found through its index; only the
            // others' names are read.
            if (!index->TakeRecord(slot)) {
                unsaved += entry.GetFileTable()->Count();
                unsavedSlots.push_back(slot);
            }
        });
    }
    index->firstSlotOfMain.push_back(static_cast<std::uint32_t>(index->slots.size()));
    mainEntries.resize(kept);
    index->byFileName.reserve(unsaved);
    index->postings.reserve(unsaved);
    for (const std::uint32_t slot : unsavedSlots) {
        for (const ustring& name : index->slots[slot].entry->GetFileNames())
            index->AddFile(name, slot);
    }
    path->m_mainFolders = std::move(mainEntries);
    path->m_fileCount = fileNames;
    path->m_index = std::move(index);
    return path;
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Scan(const std::vector<AbsoluteIRI>& folders,
                                                           ScanReport& report,
                                                           const EntryCache* cache) {
    return Revalidate(folders, {}, report, cache);
}

std::shared_ptr<const MainSearchPath> MainSearchPath::Revalidate(
    const std::vector<AbsoluteIRI>& folders,
    const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
    const EntryCache* cache, std::size_t fresh) {
    FolderPlaces places;
    auto entries = RevalidateEntries(folders, known, report, cache, fresh, &places);
    return Create(std::move(entries), &places);
}

std::vector<std::shared_ptr<const FolderEntry>> MainSearchPath::RevalidateEntries(
    const std::vector<AbsoluteIRI>& folders,
    const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
    const EntryCache* cache, std::size_t fresh, bool foldersAreUnique) {
    FolderPlaces places;
    return RevalidateEntries(folders, known, report, cache, fresh,
                             foldersAreUnique ? nullptr : &places);
}

namespace {

// How many entries ahead a pass over a path's entries asks for the memory it will read: the entries
// lie all over the heap, and each one read only when its turn comes would cost a wait each.
constexpr std::size_t kAhead = 16;

// Asks for the start of an entry, beside which make_shared keeps its counts.
void Prefetch(const FolderEntry* entry) {
    if (entry != nullptr)
        __builtin_prefetch(entry);
}

}  // namespace

std::vector<std::shared_ptr<const FolderEntry>> MainSearchPath::RevalidateEntries(
    const std::vector<AbsoluteIRI>& folders,
    const std::vector<std::shared_ptr<const FolderEntry>>& known, ScanReport& report,
    const EntryCache* cache, std::size_t fresh, FolderPlaces* places) {
    std::vector<AbsoluteIRI> deduplicated;
    ScanReport duplicates;
    if (places != nullptr) {
        auto& seen = places->placeOf;
        seen.reserve(folders.size());
        deduplicated.reserve(folders.size());
        for (const auto& folder : folders) {
            if (seen.emplace(folder, deduplicated.size()).second) {
                deduplicated.push_back(folder);
            } else {
                duplicates.Add(ScanProblem{ScanProblem::Kind::Duplicate, folder, 0});
            }
        }
    }
    const std::vector<AbsoluteIRI>& unique = places != nullptr ? deduplicated : folders;
    // The known entries are matched to the folders in order, passing over folders that have none
    // (a folder missing when they were read); a path in another order is matched by location.
    // Each match that is unchanged is taken as it is.
    std::vector<std::shared_ptr<const FolderEntry>> entries(unique.size());
    std::vector<char> checked(unique.size(), 0);
    // Where the known entries are all of one kind, each folder's at most once (all read just now,
    // or all from a cache), the run they share with the folders at the back is matched first: a
    // folder added at the front then costs no lookup of the others.
    std::size_t back = 0;
    if (fresh == 0 || fresh >= known.size()) {
        while (back < unique.size() && back < known.size()) {
            const auto& entry = known[known.size() - 1 - back];
            if (back + kAhead < known.size())
                Prefetch(known[known.size() - 1 - back - kAhead].get());
            const std::size_t i = unique.size() - 1 - back;
            if (!entry || entry->GetLocation() != unique[i])
                break;
            checked[i] = fresh != 0;
            entries[i] = entry;
            ++back;
        }
    }
    const std::size_t knownEnd = known.size() - back;
    std::size_t next = 0;
    boost::unordered_flat_map<const AbsoluteIRI*, std::size_t, IriPointerHash, IriPointerEqual>
        byLocation;
    for (std::size_t i = 0; i < unique.size() - back && next < knownEnd; ++i) {
        if (next + kAhead < knownEnd)
            Prefetch(known[next + kAhead].get());
        if (known[next] && known[next]->GetLocation() == unique[i]) {
            checked[i] = next < fresh;
            entries[i] = known[next++];
            continue;
        }
        if (byLocation.empty()) {
            for (std::size_t k = 0; k < knownEnd; ++k) {
                if (known[k])
                    byLocation.emplace(&known[k]->GetLocation(), k);
            }
        }
        if (const auto it = byLocation.find(&unique[i]); it != byLocation.end()) {
            checked[i] = it->second < fresh;
            entries[i] = known[it->second];
        }
    }
    tbb::parallel_for(std::size_t{0}, unique.size(), [&](std::size_t i) {
        if (entries[i] && !checked[i] && !FolderScanner::Unchanged(*entries[i]))
            entries[i] = nullptr;
    });
    std::vector<AbsoluteIRI> stale;
    std::vector<std::size_t> staleAt;
    for (std::size_t i = 0; i < unique.size(); ++i) {
        if (!entries[i]) {
            stale.push_back(unique[i]);
            staleAt.push_back(i);
        }
    }
    auto scanned = FolderScanner(cache).ScanMainEntries(stale, report);
    for (std::size_t k = 0; k < scanned.size(); ++k)
        entries[staleAt[k]] = std::move(scanned[k]);
    report.Append(duplicates);
    return entries;
}

}  // namespace Velmora::SearchPath
