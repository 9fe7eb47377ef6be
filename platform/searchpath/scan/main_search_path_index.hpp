#pragma once
// Internal to the scan: MainSearchPath's index of its entries and file names, shared by the file
// that builds a path (main_search_path.cpp) and the one that answers lookups on it
// (main_search_path_lookup.cpp).

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include <boost/container/small_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/text/ustring.hpp>

#include "file_table.hpp"
#include "path_cache/name_hash.hpp"
#include "path_cache/path_cache_image.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using PathManagement::IPathEntry;
using PathManagement::SearchScope;

namespace searchpath_internal {

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

// Whether a folder of the path has the name of a special folder (private, resources, +..., @...).
bool HasSpecialName(const FolderEntry& entry);

}  // namespace searchpath_internal

using searchpath_internal::IriHash;
using searchpath_internal::kNone;
using searchpath_internal::NameEqual;
using searchpath_internal::NameHash;
using searchpath_internal::NameKey;
using searchpath_internal::SlotList;
using searchpath_internal::SplitName;

// A table of the path built once, on first use, by whichever thread asks first: most commands
// never ask for most tables. A snapshot made by a change has its tables set when it is made.
template <class T>
class BuiltOnFirstUse {
  public:
    template <class Build>
    const T& Get(Build build) const {
        std::call_once(m_once, [&] { m_value = std::make_unique<const T>(build()); });
        return *m_value;
    }
    void Set(T value) {
        std::call_once(m_once, [&] { m_value = std::make_unique<const T>(std::move(value)); });
    }

  private:
    mutable std::once_flag m_once;
    mutable std::unique_ptr<const T> m_value;
};

// The index of a path. Made whole by Create, it holds every entry's file names itself (or maps a
// path cache's records to its slots). A change of a long path makes a derived index instead, in
// time that follows the change: it answers from the last whole index (its root, never itself
// derived), whose slots it maps to its own, and from tables of its own for the trees added since.
// Either way every table is complete when the snapshot is published.
struct MainSearchPath::Index {
    struct Slot {
        const FolderEntry* entry;  // held by the path's main entries
        std::uint32_t main;
        std::uint32_t parent;  // kNone for a main entry
        PathEntryType kind;
    };
    std::vector<Slot> slots;  // every entry, in path order: each main entry, then its tree
    // The first slot of each main entry's tree, and one past the last tree.
    std::vector<std::uint32_t> firstSlotOfMain;

    // The tables below number their entries: in a whole index by slot; in a derived one, the
    // trees added since its root in the order they came, `slotOfId` mapping them to slots (kNone
    // for one that has left the path).
    std::vector<std::uint32_t> slotOfId;
    std::uint32_t SlotOfId(std::uint32_t id) const {
        return slotOfId.empty() && !root ? id : slotOfId[id];
    }
    // Of a derived index: the path that owns the root (keeping its entries alive), the root, and
    // each root slot's slot here (kNone for an entry that has left the path). While no entry
    // moved, the mapping keeps the root's order and its chains may stop at the first fit.
    std::shared_ptr<const MainSearchPath> rootPath;
    const Index* root = nullptr;
    std::vector<std::uint32_t> slotOfRoot;
    bool rootInOrder = true;
    // The main entries of the trees added since the root, left or not: their names are keys here.
    std::vector<std::shared_ptr<const FolderEntry>> kept;
    std::uint32_t goneFromRoot = 0;
    std::uint32_t goneIds = 0;

    // The entries that hold each file name, as chains through one array of postings: a name
    // costs the map two numbers and no allocation of its own, which keeps the index of a large
    // path compact and quick to build. In a whole index the chains are in path order.
    struct Posting {
        std::uint32_t slot;  // an id in a derived index
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
    // Whether the names of the entry at `slot` need no place in byFileName: those of a resources
    // folder, never found by name, and those of an entry loaded from the index's cache, which
    // this takes the entry's record for.
    bool TakeRecord(std::uint32_t slot) {
        if (slots[slot].kind == PathEntryType::ResourcesFolder)
            return true;
        const auto& table = *slots[slot].entry->GetFileTable();
        if (table.Image() && !image) {
            image = table.Image();
            slotOfRecord.assign(image->RecordCount(), kNone);
        }
        if (SavedIn(table) && slotOfRecord[table.Record()] == kNone) {
            slotOfRecord[table.Record()] = slot;
            return true;
        }
        return false;
    }
    // Appends the slots of `main`'s tree as Create lays them out, depth first with sub-entries in
    // name order so that every tree stays together; calls added(slot) for each.
    template <class Added>
    void AppendTree(const FolderEntry& main, std::uint32_t mainIndex, Added added) {
        boost::container::small_vector<std::pair<const FolderEntry*, std::uint32_t>, 8> stack;
        stack.emplace_back(&main, kNone);
        while (!stack.empty()) {
            const auto [entry, parent] = stack.back();
            stack.pop_back();
            const auto slot = static_cast<std::uint32_t>(slots.size());
            slots.push_back({entry, mainIndex, parent, entry->GetPathEntryType()});
            const auto& subs = entry->SubEntries();
            for (auto it = subs.rbegin(); it != subs.rend(); ++it)
                stack.emplace_back(it->get(), slot);
            added(slot);
        }
    }

    // The class folders by name without their "@".
    using MethodsByName =
        boost::unordered_flat_map<std::u16string_view, SlotList, NameHash, NameEqual>;
    const MethodsByName& Methods() const {
        return methodsByName.Get([this] {
            MethodsByName built;
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot)
                AddMethod(built, slot, slot);
            return built;
        });
    }
    void AddMethod(MethodsByName& methods, std::uint32_t slot, std::uint32_t id) const {
        if (slots[slot].kind == PathEntryType::AtFolder) {
            const ustring& name = slots[slot].entry->GetFolderNames().back();
            methods[std::u16string_view(name).substr(1)].push_back(id);
        }
    }
    BuiltOnFirstUse<MethodsByName> methodsByName;
    // The entries by location and by canonical location.
    struct Locations {
        boost::unordered_flat_map<AbsoluteIRI, std::uint32_t, IriHash> byLocation;
        boost::unordered_flat_map<AbsoluteIRI, std::uint32_t, IriHash> byCanonical;
    };
    const Locations& ByLocation() const {
        return locations.Get([this] {
            Locations built;
            built.byLocation.reserve(slots.size());
            built.byCanonical.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot)
                AddLocation(built, slot, slot, false);
            return built;
        });
    }
    // Where two entries share a location, a whole index keeps the first in path order; a derived
    // one keeps the last it was given, the one that replaced the other.
    void AddLocation(Locations& built, std::uint32_t slot, std::uint32_t id, bool last) const {
        const auto& entry = *slots[slot].entry;
        if (last) {
            built.byLocation.insert_or_assign(entry.GetLocation(), id);
            built.byCanonical.insert_or_assign(entry.GetCanonicalAbsoluteIRI().getIRI(), id);
        } else {
            built.byLocation.emplace(entry.GetLocation(), id);
            built.byCanonical.emplace(entry.GetCanonicalAbsoluteIRI().getIRI(), id);
        }
    }
    BuiltOnFirstUse<Locations> locations;
    // Each entry's number.
    using SlotOfEntry = boost::unordered_flat_map<const IPathEntry*, std::uint32_t>;
    const SlotOfEntry& OfEntry() const {
        return slotOf.Get([this] {
            SlotOfEntry built;
            built.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot)
                built.emplace(slots[slot].entry, slot);
            return built;
        });
    }
    BuiltOnFirstUse<SlotOfEntry> slotOf;

    // The entries by the last folder name of their location and by the last two, case folded; a
    // "+" or "@" folder is also listed without that character, since a partial pathname may leave
    // it out.
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
    // The last two folder names are worked out from the location alone: asking the entry for all
    // of them would have every entry of the path keep its names for as long as it lives.
    void AddFolderNames(FolderNames& index, std::uint32_t slot, std::uint32_t id) const {
        const ustring path = slots[slot].entry->GetLocation().getPath();
        const auto names = SplitPartialName(path);
        if (names.empty())
            return;
        const auto lasts = Spellings(ustring(names.back()));
        for (const ustring& last : lasts)
            index.last[last].push_back(id);
        if (names.size() < 2)
            return;
        for (const ustring& parent : Spellings(ustring(names[names.size() - 2]))) {
            for (const ustring& last : lasts)
                index.lastTwo[parent + u'/' + last].push_back(id);
        }
    }
    const FolderNames& ByFolderName() const {
        return folderNames.Get([this] {
            FolderNames index;
            index.last.reserve(slots.size());
            index.lastTwo.reserve(slots.size());
            for (std::uint32_t slot = 0; slot < slots.size(); ++slot)
                AddFolderNames(index, slot, slot);
            return index;
        });
    }
    BuiltOnFirstUse<FolderNames> folderNames;
    // Builds every table now, on the thread that makes the snapshot.
    void BuildTables() const {
        Methods();
        ByLocation();
        OfEntry();
        ByFolderName();
    }

    // Calls visit(slot) for each slot that a table of this index or of its root gives, for `find`
    // over one table: find(index) returns the list of numbers (or null).
    template <class Find, class Visit>
    void ForEachListed(Find find, Visit visit) const {
        if (const auto* list = find(*this)) {
            for (const auto id : *list) {
                if (const auto slot = SlotOfId(id); slot != kNone)
                    visit(slot);
            }
        }
        if (root) {
            if (const auto* list = find(*root)) {
                for (const auto r : *list) {
                    if (const auto slot = slotOfRoot[r]; slot != kNone)
                        visit(slot);
                }
            }
        }
    }
    // The first slot in path order of those that this index's table and its root's give for one
    // key, find(index) giving the number there (or kNone); kNone when neither has one.
    template <class Find>
    std::uint32_t FirstListed(Find find) const {
        std::uint32_t best = kNone;
        for (const Index* index : {this, root}) {
            if (index == nullptr)
                continue;
            if (const auto id = find(*index); id != kNone)
                best = std::min(best, index == this ? SlotOfId(id) : slotOfRoot[id]);
        }
        return best;
    }
    std::uint32_t SlotOf(const IPathEntry& entry) const {
        return FirstListed([&](const Index& index) {
            const auto& table = index.OfEntry();
            const auto it = table.find(&entry);
            return it == table.end() ? kNone : it->second;
        });
    }

    bool Searchable(std::uint32_t slot, SearchScope scope) const {
        const auto kind = slots[slot].kind;
        return kind != PathEntryType::ResourcesFolder &&
               scope.Contains(static_cast<std::uint32_t>(kind));
    }
    void AddFile(std::u16string_view name, std::uint32_t id) {
        const auto posting = static_cast<std::uint32_t>(postings.size());
        postings.push_back({id, kNone});
        const auto [it, fresh] = byFileName.try_emplace(name, Chain{posting, posting});
        if (!fresh) {
            postings[it->second.tail].next = posting;
            it->second.tail = posting;
        }
    }
    // Calls visit(slot) for the chain's slots, mapped through `here` (kNone passed over); in
    // order, the walk ends when visit returns false.
    template <class Visit>
    void ForEachSlot(const Chain& chain, std::span<const std::uint32_t> here, bool inOrder,
                     Visit visit) const {
        for (auto p = chain.head; p != kNone; p = postings[p].next) {
            const auto slot = here.empty() ? postings[p].slot : here[postings[p].slot];
            if (slot != kNone && !visit(slot) && inOrder)
                return;
        }
    }
    // Calls visit(slot) for the slots whose files hold the name: from byFileName, the root's and
    // the cache's; visit must not rely on a false return ending the walk, nor on any order.
    template <class Visit>
    void ForEachHolder(const NameKey& key, Visit visit) const {
        // A path started from a cache has most or all of its names there: an empty map is not
        // worth hashing the name for.
        if (!byFileName.empty()) {
            if (const auto it = byFileName.find(key); it != byFileName.end())
                ForEachSlot(it->second, slotOfId, !root, visit);
        }
        if (root && !root->byFileName.empty()) {
            if (const auto it = root->byFileName.find(key); it != root->byFileName.end())
                root->ForEachSlot(it->second, slotOfRoot, rootInOrder, visit);
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

    // Derive: the index of a path whose main entries are `mains`, from `previous`'s; `from[i]` is
    // the place of mains[i] on `previous` (kNone for an entry new to it); trees that moved against
    // the others are added anew. Null when the path is better made whole: too much of it has
    // changed since the root.
    static std::unique_ptr<Index> Derive(
        const MainSearchPath& previous,
        const std::vector<std::shared_ptr<const FolderEntry>>& mains,
        std::vector<std::uint32_t> from);
};

// Built on first use by a lookup that ignores case.
struct MainSearchPath::FoldedIndex {
    boost::unordered_flat_map<ustring, SlotList> byFileName;
};

}  // namespace Velmora::SearchPath
