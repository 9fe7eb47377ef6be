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

}  // namespace searchpath_internal

using searchpath_internal::IriHash;
using searchpath_internal::kNone;
using searchpath_internal::NameEqual;
using searchpath_internal::NameHash;
using searchpath_internal::NameKey;
using searchpath_internal::SlotList;
using searchpath_internal::SplitName;

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

}  // namespace Velmora::SearchPath
