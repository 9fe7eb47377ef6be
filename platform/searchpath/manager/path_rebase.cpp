#include "path_rebase.hpp"

#include "main_positions.hpp"

#include <algorithm>
#include <optional>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include "main_positions.hpp"

namespace Velmora::SearchPath::detail {

using foundation::storage::vfs::AbsoluteIRI;

namespace {

// The number of items from `first` on, stepping by `step`, whose ranks rise in path order.
std::size_t RisingRun(const std::vector<std::ptrdiff_t>& ranks, std::ptrdiff_t first,
                      std::ptrdiff_t step) {
    std::size_t length = 0;
    for (std::ptrdiff_t i = first, last = -1;
         i >= 0 && i < static_cast<std::ptrdiff_t>(ranks.size()); i += step, ++length) {
        const std::ptrdiff_t rank = ranks[static_cast<std::size_t>(i)];
        if (rank < 0 || (length > 0 && (step > 0 ? rank <= last : rank >= last)))
            break;
        last = rank;
    }
    return length;
}

// Anchors, preferring the reading that an addition gives: its folders went to the front or the end
// as one block, and the rest of the path kept its order. Where a move can be read both ways (b
// moved after a, or a moved before b), the block at the front or the end is what was asked for.
std::vector<bool> ChangedBlockAnchors(const std::vector<std::ptrdiff_t>& ranks) {
    std::vector<bool> anchored = Anchors(ranks);
    const auto longest =
        static_cast<std::size_t>(std::count(anchored.begin(), anchored.end(), true));
    const std::size_t prefix = RisingRun(ranks, 0, 1);
    const std::size_t suffix = RisingRun(ranks, static_cast<std::ptrdiff_t>(ranks.size()) - 1, -1);
    if (std::max(prefix, suffix) < longest)
        return anchored;
    std::fill(anchored.begin(), anchored.end(), false);
    if (prefix >= suffix)
        std::fill(anchored.begin(), anchored.begin() + static_cast<std::ptrdiff_t>(prefix), true);
    else
        std::fill(anchored.end() - static_cast<std::ptrdiff_t>(suffix), anchored.end(), true);
    return anchored;
}

}  // namespace

FolderList RebaseChange(const FolderList& base, const FolderList& wanted,
                        const FolderList& current) {
    boost::unordered_flat_map<AbsoluteIRI, std::ptrdiff_t> inBase;
    for (std::size_t i = 0; i < base.size(); ++i)
        inBase.emplace(base[i], static_cast<std::ptrdiff_t>(i));
    std::vector<std::ptrdiff_t> ranks;
    ranks.reserve(wanted.size());
    for (const AbsoluteIRI& folder : wanted) {
        const auto it = inBase.find(folder);
        ranks.push_back(it == inBase.end() ? -1 : it->second);
    }
    const std::vector<bool> anchored = ChangedBlockAnchors(ranks);

    // Folders placed by the change, by the anchor they follow; the rest stay where `current` has
    // them, unless the change took them off.
    boost::unordered_flat_set<AbsoluteIRI> placed;
    boost::unordered_flat_set<AbsoluteIRI> kept;
    for (std::size_t i = 0; i < wanted.size(); ++i)
        (anchored[i] ? kept : placed).insert(wanted[i]);
    FolderList front, back;
    boost::unordered_flat_map<AbsoluteIRI, FolderList> after;
    const auto lastAnchor = std::find(anchored.rbegin(), anchored.rend(), true);
    const std::size_t anchorsEnd = static_cast<std::size_t>(anchored.rend() - lastAnchor);
    const boost::unordered_flat_set<AbsoluteIRI> inCurrent(current.begin(), current.end());
    std::optional<AbsoluteIRI> anchor;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (anchored[i]) {
            // An anchor that others took off meanwhile is passed over: what followed it follows
            // the anchor before.
            if (inCurrent.contains(wanted[i]))
                anchor = wanted[i];
        } else if (i >= anchorsEnd) {
            back.push_back(wanted[i]);
        } else if (anchor) {
            after[*anchor].push_back(wanted[i]);
        } else {
            front.push_back(wanted[i]);
        }
    }
    FolderList result = std::move(front);
    result.reserve(result.size() + current.size() + placed.size());
    for (const AbsoluteIRI& folder : current) {
        if (placed.contains(folder) || (inBase.contains(folder) && !kept.contains(folder)))
            continue;
        result.push_back(folder);
        if (const auto it = after.find(folder); it != after.end())
            result.insert(result.end(), it->second.begin(), it->second.end());
    }
    result.insert(result.end(), back.begin(), back.end());
    return result;
}

bool RebaseOnSavedFile(const PathDefinitionFile& file, std::shared_ptr<const FolderList>& base,
                       FolderList& wanted, foundation::core::except::Notification& problems) {
    // Nearly always, no one else changed the file: it holds what it held when it was read.
    if (file.Holds(*base))
        return true;
    auto saved = file.Load(problems);
    if (saved.outcome == PathDefinitionFile::Outcome::Failed)
        return false;
    // With no file yet, the path that was started from is what is saved.
    if (saved.outcome == PathDefinitionFile::Outcome::Loaded && saved.folders != *base) {
        wanted = RebaseChange(*base, wanted, saved.folders);
        base = std::make_shared<const FolderList>(std::move(saved.folders));
    }
    return true;
}

FolderList FoldersNotIn(const FolderList& after, const FolderList& before) {
    const auto [front, back] = SharedRuns(after, before);
    const boost::unordered_flat_set<AbsoluteIRI> old(
        before.begin() + static_cast<std::ptrdiff_t>(front),
        before.end() - static_cast<std::ptrdiff_t>(back));
    FolderList fresh;
    for (std::size_t i = front; i < after.size() - back; ++i) {
        if (!old.contains(after[i]))
            fresh.push_back(after[i]);
    }
    return fresh;
}

namespace {

std::optional<FolderId> IdOf(const AbsoluteIRI& folder) {
    try {
        const auto native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(folder));
        os::FileStatus status;
        if (os::System().Stat(native, status) != 0 || !status.IsFolder())
            return std::nullopt;
        return FolderId{status.device, status.inode};
    } catch (const foundation::storage::vfs::Exception&) {
        return std::nullopt;
    }
}

}  // namespace

void DropOtherNamesOf(FolderList& folders, const FolderList& added, const MainSearchPath& current,
                      const FolderList& currentFolders, const MainPositions& positions) {
    boost::unordered_flat_set<FolderId> ids;
    // Whether an entry of the path may have been read from one of the added folders under another
    // name: the table counts the entries of each folder on disk, and an added folder that is on
    // the path already under its own name has one there itself.
    bool otherEntries = false;
    for (const AbsoluteIRI& folder : added) {
        const auto id = IdOf(folder);
        if (!id)
            continue;
        ids.insert(*id);
        const auto place = positions.At(folder);
        const bool itself = place && IdOf(*current.GetFolderEntries()[*place]) == *id;
        otherEntries = otherEntries || positions.EntriesOf(*id) > (itself ? 1 : 0);
    }
    if (ids.empty())
        return;
    const boost::unordered_flat_set<AbsoluteIRI> isAdded(added.begin(), added.end());
    // The other names: folders with an entry by the entry's stamp, which costs no lookup of the
    // path's folders; the few folders without one (missing when the path was read, or put on the
    // path by another process since) by a stat. Those lie between the runs that the folders and
    // the entries share at the front and at the back.
    boost::unordered_flat_set<AbsoluteIRI> others;
    const auto& entries = current.GetFolderEntries();
    // The entries lie all over the heap: each one's stamp is asked for a few entries ahead, so
    // that the waits for them overlap.
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; otherEntries && i < entries.size(); ++i) {
        if (i + kAhead < entries.size())
            __builtin_prefetch(&entries[i + kAhead]->GetStamp());
        const FolderEntry& entry = *entries[i];
        if (ids.contains(IdOf(entry)) && !isAdded.contains(entry.GetLocation()))
            others.insert(entry.GetLocation());
    }
    // A path with an entry for each of its folders has them in the same places: the folders are
    // compared, not the entries, which would be read one by one.
    const auto [front, back] =
        entries.size() == currentFolders.size()
            ? SharedRuns(folders, currentFolders)
            : SharedRuns(folders, entries, [](const AbsoluteIRI& folder, const auto& entry) {
                  return folder == entry->GetLocation();
              });
    boost::unordered_flat_set<AbsoluteIRI> withEntry;
    for (std::size_t i = front; i < entries.size() - back; ++i)
        withEntry.insert(entries[i]->GetLocation());
    for (std::size_t i = front; i < folders.size() - back; ++i) {
        if (isAdded.contains(folders[i]) || withEntry.contains(folders[i]))
            continue;
        if (const auto id = IdOf(folders[i]); id && ids.contains(*id))
            others.insert(folders[i]);
    }
    if (!others.empty())
        std::erase_if(folders, [&](const AbsoluteIRI& folder) { return others.contains(folder); });
}

}  // namespace Velmora::SearchPath::detail
