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
#include "path_cache/name_hash.hpp"
#include "path_cache/path_cache_image.hpp"

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

namespace {

constexpr std::uint32_t kNone = UINT32_MAX;

using SlotList = boost::container::small_vector<std::uint32_t, 2>;

struct IriHash {
    std::size_t operator()(const AbsoluteIRI& iri) const noexcept { return iri.hashValue(); }
};
struct IriPointerHash {
    std::size_t operator()(const AbsoluteIRI* iri) const noexcept { return iri->hashValue(); }
};
struct IriPointerEqual {
    bool operator()(const AbsoluteIRI* a, const AbsoluteIRI* b) const noexcept { return *a == *b; }
};

// A name split at its last separator: "+shapes/circle" is the file "circle" in the folders
// {"+shapes"}.
struct SplitName {
    std::u16string_view leaf;
    std::vector<std::u16string_view> folders;

    explicit SplitName(std::u16string_view name) {
        const std::size_t slash = name.find_last_of(u'/');
        if (slash == std::u16string_view::npos) {
            leaf = name;
        } else {
            leaf = name.substr(slash + 1);
            folders = SplitPartialName(name.substr(0, slash));
        }
    }
};

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

struct MainSearchPath::FolderPlaces {
    boost::unordered_flat_map<AbsoluteIRI, std::size_t, IriHash> placeOf;
};

std::vector<char> MainSearchPath::HeldMains(
    const std::vector<std::shared_ptr<const FolderEntry>>& mains, const FolderPlaces* places) {
    std::vector<std::size_t> special;
    for (std::size_t i = 0; i < mains.size(); ++i) {
        if (mains[i] && SpecialName(mains[i]->GetName()))
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

// A table of the path built once, on first use, by whichever thread asks first: most commands
// never ask for most tables.
template <class T>
class BuiltOnFirstUse {
  public:
    template <class Build>
    const T& Get(Build build) const {
        std::call_once(m_once, [&] { m_value = std::make_unique<const T>(build()); });
        return *m_value;
    }

  private:
    mutable std::once_flag m_once;
    mutable std::unique_ptr<const T> m_value;
};

struct MainSearchPath::Index {
    struct Slot {
        std::shared_ptr<const FolderEntry> entry;
        std::uint32_t main;
        std::uint32_t parent;  // kNone for a main entry
        PathEntryType kind;
    };
    std::vector<Slot> slots;  // every entry, in path order: each main entry, then its tree
    // The entries that hold each file name, in path order, as chains through one array of
    // postings: a name costs the map two numbers and no allocation of its own, which keeps the
    // index of a large path compact and quick to build.
    struct Posting {
        std::uint32_t slot;
        std::uint32_t next;
    };
    struct Chain {
        std::uint32_t head;
        std::uint32_t tail;
    };
    boost::unordered_flat_map<std::u16string_view, Chain, NameHash, NameEqual> byFileName;
    std::vector<Posting> postings;
    // Entries loaded from a path cache are not in byFileName: the cache's own name index answers
    // for them, its folder records mapped to the slots that hold them now. A start from an
    // unchanged cache thus reads no file name at all.
    std::shared_ptr<const CacheImage> image;
    std::vector<std::uint32_t> slotOfRecord;
    bool SavedIn(const FileTable& table) const {
        return image && table.Image() == image && table.Record() < slotOfRecord.size();
    }
    // The class folders by name without their "@", in path order; built on first use.
    using MethodsByName =
        boost::unordered_flat_map<std::u16string_view, SlotList, NameHash, NameEqual>;
    const MethodsByName& Methods() const {
        return methodsByName.Get([this] {
            MethodsByName built;
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
                if (slots[slot].kind == PathEntryType::AtFolder) {
                    const ustring& name = slots[slot].entry->GetFolderNames().back();
                    built[std::u16string_view(name).substr(1)].push_back(slot);
                }
            }
            return built;
        });
    }
    BuiltOnFirstUse<MethodsByName> methodsByName;
    // The entries by location and by canonical location, built on first use: most commands
    // never ask.
    struct Locations {
        boost::unordered_flat_map<AbsoluteIRI, std::uint32_t, IriHash> byLocation;
        boost::unordered_flat_map<AbsoluteIRI, std::uint32_t, IriHash> byCanonical;
    };
    const Locations& ByLocation() const {
        return locations.Get([this] {
            Locations built;
            built.byLocation.reserve(slots.size());
            built.byCanonical.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
                const auto& entry = *slots[slot].entry;
                built.byLocation.emplace(entry.GetLocation(), slot);
                built.byCanonical.emplace(entry.GetCanonicalAbsoluteIRI().getIRI(), slot);
            }
            return built;
        });
    }
    BuiltOnFirstUse<Locations> locations;

    bool Searchable(std::uint32_t slot, SearchScope scope) const {
        const auto kind = slots[slot].kind;
        return kind != PathEntryType::ResourcesFolder &&
               scope.Contains(static_cast<std::uint32_t>(kind));
    }
    void AddFile(std::u16string_view name, std::uint32_t slot) {
        const auto posting = static_cast<std::uint32_t>(postings.size());
        postings.push_back({slot, kNone});
        const auto [it, fresh] = byFileName.try_emplace(name, Chain{posting, posting});
        if (!fresh) {
            postings[it->second.tail].next = posting;
            it->second.tail = posting;
        }
    }
    // Calls visit(slot) for the chain's slots in path order while it returns true.
    template <class Visit>
    void ForEachSlot(const Chain& chain, Visit visit) const {
        for (auto p = chain.head; p != kNone && visit(postings[p].slot); p = postings[p].next) {
        }
    }
    // Calls visit(slot) for the slots whose files hold the name: first those of byFileName in
    // path order while visit returns true, then those of the cache, whose order follows the path
    // the cache was written for; visit must not rely on a false return ending the walk.
    template <class Visit>
    void ForEachHolder(const NameKey& key, Visit visit) const {
        // A path started from a cache has most or all of its names there: an empty map is not
        // worth hashing the name for.
        if (!byFileName.empty()) {
            if (const auto it = byFileName.find(key); it != byFileName.end())
                ForEachSlot(it->second, visit);
        }
        if (image) {
            image->ForEachHolder(key.first, key.second, [&](std::uint32_t record) {
                if (const auto slot = slotOfRecord[record]; slot != kNone)
                    visit(slot);
            });
        }
    }
    // Whether a slot that holds the name's file may answer it: searchable in the scope, not
    // rejected, and ending with the name's folders.
    bool Takes(std::uint32_t slot, SearchScope scope, const SplitName& name,
               FilenameMatchingPolicy policy, std::span<const std::uint32_t> rejected) const {
        return Searchable(slot, scope) &&
               std::find(rejected.begin(), rejected.end(), slot) == rejected.end() &&
               (name.folders.empty() || slots[slot].entry->EndsWithFolders(name.folders, policy));
    }
    // The first slot in path order that takes the name under one of `extensions`, matched
    // exactly, and in `extension` the position of the first extension it holds it under; kNone
    // when there is none.
    std::uint32_t FirstHolder(SearchScope scope, const SplitName& name,
                              std::span<const ustring> extensions, FilenameMatchingPolicy policy,
                              std::span<const std::uint32_t> rejected,
                              std::size_t& extension) const {
        std::uint32_t best = kNone;
        for (std::size_t e = 0; e < extensions.size(); ++e) {
            ForEachHolder(NameKey{name.leaf, extensions[e]}, [&](std::uint32_t slot) {
                if (slot >= best)
                    return false;
                if (!Takes(slot, scope, name, policy, rejected))
                    return true;
                best = slot;
                extension = e;
                return false;
            });
        }
        return best;
    }
    // Each entry's slot.
    using SlotOfEntry = boost::unordered_flat_map<const IPathEntry*, std::uint32_t>;
    std::uint32_t SlotOf(const IPathEntry& entry) const {
        const auto& slotOfEntry = slotOf.Get([this] {
            SlotOfEntry built;
            built.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot)
                built.emplace(slots[slot].entry.get(), slot);
            return built;
        });
        const auto it = slotOfEntry.find(&entry);
        return it == slotOfEntry.end() ? kNone : it->second;
    }
    BuiltOnFirstUse<SlotOfEntry> slotOf;

    // The entries by the last folder name of their location and by the last two, case folded, in
    // path order; a "+" or "@" folder is also listed without that character, since a partial
    // pathname may leave it out. Built on the first partial pathname query.
    using FolderNameIndex = boost::unordered_flat_map<ustring, SlotList>;
    struct FolderNames {
        FolderNameIndex last;
        FolderNameIndex lastTwo;  // "parent/name"
    };
    static boost::container::small_vector<ustring, 2> Spellings(const ustring& name) {
        boost::container::small_vector<ustring, 2> spellings{text::FoldCase(name)};
        if (name.starts_with(u'+') || name.starts_with(u'@'))
            spellings.push_back(spellings.front().substr(1));
        return spellings;
    }
    const FolderNames& ByFolderName() const {
        return folderNames.Get([this] {
            FolderNames index;
            index.last.reserve(slots.size());
            index.lastTwo.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot) {
                const auto& names = slots[slot].entry->GetFolderNames();
                if (names.empty())
                    continue;
                const auto lasts = Spellings(names.back());
                for (const ustring& last : lasts)
                    index.last[last].push_back(slot);
                if (names.size() < 2)
                    continue;
                for (const ustring& parent : Spellings(names[names.size() - 2])) {
                    for (const ustring& last : lasts)
                        index.lastTwo[parent + u'/' + last].push_back(slot);
                }
            }
            return index;
        });
    }
    BuiltOnFirstUse<FolderNames> folderNames;
};

// Built on first use by a lookup that ignores case.
struct MainSearchPath::FoldedIndex {
    boost::unordered_flat_map<ustring, SlotList> byFileName;
};

MainSearchPath::MainSearchPath() = default;
MainSearchPath::~MainSearchPath() = default;

MainSearchPath::IndexSlot::IndexSlot(const MainSearchPath& owner) : m_owner(owner) {}
MainSearchPath::IndexSlot::~IndexSlot() = default;

void MainSearchPath::IndexSlot::Set(std::unique_ptr<const Index> index) {
    m_index = std::move(index);
    m_ready.store(m_index.get(), std::memory_order_release);
}

const MainSearchPath::Index* MainSearchPath::IndexSlot::Build() const {
    std::call_once(m_once, [this] {
        if (!m_index) {
            const auto whole = Create(m_owner.m_mainFolders);
            m_index = std::move(whole->m_index.m_index);
            m_owner.m_methods = std::move(whole->m_methods);
        }
        m_ready.store(m_index.get(), std::memory_order_release);
    });
    return m_index.get();
}

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
    std::vector<std::pair<const std::shared_ptr<const FolderEntry>*, std::uint32_t>> stack;
    std::size_t kept = 0;
    for (std::size_t place = 0; place < mainEntries.size(); ++place) {
        auto& main = mainEntries[place];
        if (!main || (!held.empty() && held[place] != 0) ||
            (places == nullptr && !seen.insert(&main->GetLocation()).second)) {
            continue;
        }
        path->m_specialMains = path->m_specialMains || SpecialName(main->GetName());
        const auto mainIndex = static_cast<std::uint32_t>(kept);
        if (&mainEntries[kept] != &main)
            mainEntries[kept] = std::move(main);
        // Depth first, sub-entries in name order, so that every tree stays together.
        stack.emplace_back(&mainEntries[kept++], kNone);
        while (!stack.empty()) {
            const auto [entry, parent] = stack.back();
            stack.pop_back();
            const auto slot = static_cast<std::uint32_t>(index->slots.size());
            const auto kind = (*entry)->GetPathEntryType();
            index->slots.push_back({*entry, mainIndex, parent, kind});
            const auto& subs = (*entry)->SubEntries();
            for (auto it = subs.rbegin(); it != subs.rend(); ++it)
                stack.emplace_back(&*it, slot);
            if (kind == PathEntryType::ResourcesFolder)
                continue;
            fileNames += (*entry)->GetFileCount();
            if (kind == PathEntryType::AtFolder)
                path->m_methods.push_back(*entry);
            // The files of entries from one path cache are found through its index; only the
            // others' names are read.
            const auto& table = *(*entry)->GetFileTable();
            if (table.Image() && !index->image) {
                index->image = table.Image();
                index->slotOfRecord.assign(index->image->RecordCount(), kNone);
            }
            if (index->SavedIn(table) && index->slotOfRecord[table.Record()] == kNone) {
                index->slotOfRecord[table.Record()] = slot;
            } else {
                unsaved += table.Count();
                unsavedSlots.push_back(slot);
            }
        }
    }
    mainEntries.resize(kept);
    index->byFileName.reserve(unsaved);
    index->postings.reserve(unsaved);
    for (const std::uint32_t slot : unsavedSlots) {
        for (const ustring& name : index->slots[slot].entry->GetFileNames())
            index->AddFile(name, slot);
    }
    path->m_mainFolders = std::move(mainEntries);
    path->m_fileCount = fileNames;
    path->m_index.Set(std::move(index));
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
            result.push_back(m_index->slots[slot].entry);
        }
    };
    if (policy != FilenameMatchingPolicy::IgnoreCase) {
        const auto it = m_index->Methods().find(std::u16string_view(name));
        if (it != m_index->Methods().end()) {
            for (const auto slot : it->second)
                take(slot);
        }
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
    const auto& byName = m_index->ByFolderName();
    const bool two = parts.size() > 1;
    const auto& index = two ? byName.lastTwo : byName.last;
    ustring key = text::FoldCase(parts.back());
    if (two)
        key = text::FoldCase(parts[parts.size() - 2]) + u'/' + key;
    const auto it = index.find(key);
    if (it == index.end())
        return result;
    for (const auto slot : it->second) {
        const auto& s = m_index->slots[slot];
        if (scope.Contains(static_cast<std::uint32_t>(s.kind)) &&
            s.entry->EndsWithFolders(parts, policy)) {
            result.push_back(s.entry);
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
    return m_index->slots[m_index->slots[slot].parent].entry;
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetPathEntryFromAbsoluteIRI(
    const AbsoluteIRI& location, FilenameMatchingPolicy policy) const {
    const auto& byLocation = m_index->ByLocation().byLocation;
    const auto it = byLocation.find(location);
    if (it != byLocation.end())
        return m_index->slots[it->second].entry;
    if (policy != FilenameMatchingPolicy::IgnoreCase)
        return nullptr;
    for (const auto& s : m_index->slots) {
        if (text::EqualsIgnoringCase(s.entry->GetAbsoluteIRI().toString(), location.toString())) {
            return s.entry;
        }
    }
    return nullptr;
}

std::shared_ptr<const IPathEntry> MainSearchPath::GetPathEntryFromAbsoluteIRI(
    const CanonicalAbsoluteIRI& location) const {
    const auto& byCanonical = m_index->ByLocation().byCanonical;
    const auto it = byCanonical.find(location.getIRI());
    return it == byCanonical.end() ? nullptr : m_index->slots[it->second].entry;
}

const MainSearchPath::FoldedIndex& MainSearchPath::Folded() const {
    std::call_once(m_foldedOnce, [this] {
        auto folded = std::make_unique<FoldedIndex>();
        for (const auto& [name, chain] : m_index->byFileName) {
            auto& list = folded->byFileName[text::FoldCase(name)];
            m_index->ForEachSlot(chain, [&](std::uint32_t slot) {
                list.push_back(slot);
                return true;
            });
        }
        if (m_index->image) {
            m_index->image->ForEachName([&](std::string_view name, std::uint32_t record) {
                if (const auto slot = m_index->slotOfRecord[record]; slot != kNone)
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
        const auto& entry = m_index->slots[best].entry;
        // No extension before the one the index named is in that folder, unless the index is
        // wrong; the folder's whole list is the answer then.
        if (auto item = entry->FindFileNamed(
                name.leaf, std::span(extensions).subspan(bestExtension, 1), policy)) {
            return FoundItem(std::move(item), entry);
        }
        if (auto item = entry->FindFileNamed(name.leaf, extensions, policy))
            return FoundItem(std::move(item), entry);
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
    return Holder{m_index->slots[slot].entry.get(), extension};
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
        const auto& entry = m_index->slots[slot].entry;
        if (!name.folders.empty() && !entry->EndsWithFolders(name.folders, policy))
            continue;
        if (auto item = entry->FindFileNamed(name.leaf, extensions, policy)) {
            result.emplace_back(std::move(item), entry);
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
