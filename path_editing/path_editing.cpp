#include <velmora/pathmanagement/path_editing.hpp>

#include <optional>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_set.hpp>

#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

namespace Velmora::PathManagement {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::current_working_folder::ICurrentWorkingFolder;

struct IRIHash {
    std::size_t operator()(const AbsoluteIRI& iri) const noexcept { return iri.hashValue(); }
};

using IRISet = boost::unordered_set<AbsoluteIRI, IRIHash>;

// A set that starts with one bucket and grows at a load factor of 1, so that a short list costs
// almost nothing.
IRISet SmallSet() {
    IRISet set(1);
    set.max_load_factor(1.0f);
    return set;
}

// Each folder the first time it comes, in input order; `seen` ends holding them all.
std::vector<AbsoluteIRI> FirstOccurrences(const detail::AnyRangeAdapter<AbsoluteIRI>& folders,
                                          IRISet& seen) {
    std::vector<AbsoluteIRI> unique;
    for (const AbsoluteIRI& folder : folders) {
        if (seen.insert(folder).second)
            unique.push_back(folder);
    }
    return unique;
}

constexpr std::size_t kAhead = 16;

// The folders of `current` that are in neither set, in order; those of the first set that it holds
// go to `found`, when given.
std::vector<AbsoluteIRI> FoldersOutside(const std::vector<AbsoluteIRI>& current,
                                        const IRISet& first, const IRISet& second,
                                        IRISet* found = nullptr) {
    std::vector<AbsoluteIRI> kept;
    kept.reserve(current.size());
    for (std::size_t i = 0; i < current.size(); ++i) {
        // Each folder's text lies elsewhere in memory: asked for a few folders ahead, so that the
        // waits for them overlap.
        if (i + kAhead < current.size())
            __builtin_prefetch(&current[i + kAhead].toString());
        const AbsoluteIRI& folder = current[i];
        if (!first.empty() && first.contains(folder)) {
            if (found != nullptr)
                found->insert(folder);
        } else if (second.empty() || !second.contains(folder)) {
            kept.push_back(folder);
        }
    }
    return kept;
}

// Those of `wanted` that the path `current` holds. One pass over the path with a set of the few
// folders asked about, rather than a set of the whole path.
IRISet OnPath(const std::vector<AbsoluteIRI>& current, const IRISet& wanted) {
    IRISet found = SmallSet();
    if (wanted.empty())
        return found;
    for (const AbsoluteIRI& folder : current) {
        if (wanted.contains(folder))
            found.insert(folder);
    }
    return found;
}

// Hands the new path to the manager. A recursive change is the manager's way of refusing a change
// made while it tells observers of another; the caller's change is then simply not made.
template <class Apply>
void HandOver(Apply apply) {
    try {
        apply();
    } catch (const RecursivePathChangeException&) {
    }
}

}  // namespace

Notification AddFoldersToVorlanPath(const detail::AnyRangeAdapter<ustring>& folders,
                                    const ICurrentWorkingFolder& currentFolder,
                                    IMainSearchPathManager& manager, Position position) {
    Notification notification;
    const auto locations = ConvertUstringRangeToAbsoluteIRIs(folders, currentFolder, notification);
    if (!notification.empty())
        return notification;
    return AddIRIsToVorlanPath(locations, manager, position);
}

Notification AddIRIsToVorlanPath(const detail::AnyRangeAdapter<AbsoluteIRI>& folders,
                                 IMainSearchPathManager& manager, Position position) {
    Notification result;
    const auto current = manager.GetPathFolderIRIs();
    IRISet added = SmallSet();
    std::vector<AbsoluteIRI> block = FirstOccurrences(folders, added);
    // Folders being added leave their old place: adding a folder that is on the path moves it.
    std::vector<AbsoluteIRI> path = FoldersOutside(*current, added, IRISet());
    path.insert(position == Position::Front ? path.begin() : path.end(),
                std::make_move_iterator(block.begin()), std::make_move_iterator(block.end()));
    HandOver([&] { manager.ApplyPathAfterAdding(std::move(path), result); });
    return result;
}

Notification RemoveFoldersFromVorlanPath(const detail::AnyRangeAdapter<ustring>& folders,
                                         const ICurrentWorkingFolder& currentFolder,
                                         IMainSearchPathManager& manager) {
    Notification notification;
    const auto locations = ConvertUstringRangeToAbsoluteIRIs(folders, currentFolder, notification);
    if (!notification.empty())
        return notification;
    return RemoveIRIsFromVorlanPath(locations, manager);
}

Notification RemoveIRIsFromVorlanPath(const detail::AnyRangeAdapter<AbsoluteIRI>& folders,
                                      IMainSearchPathManager& manager) {
    Notification result;
    const auto current = manager.GetPathFolderIRIs();
    IRISet given = SmallSet();
    for (const AbsoluteIRI& folder : folders)
        given.insert(folder);
    // One pass takes the given folders off and finds which of them the path holds: nearly
    // always all of them, as written.
    IRISet onPath = SmallSet();
    std::vector<AbsoluteIRI> path = FoldersOutside(*current, given, IRISet(), &onPath);
    // Those not on the path as written: perhaps there through another name of the same folder. A
    // folder without a canonical form is not on the path in that form either; only that failure
    // is swallowed.
    IRISet canonical = SmallSet();
    std::vector<std::pair<const AbsoluteIRI*, std::optional<AbsoluteIRI>>> elsewhere;
    for (const AbsoluteIRI& folder : folders) {
        if (onPath.contains(folder))
            continue;
        std::optional<AbsoluteIRI> real;
        try {
            real = GetCanonicalIRI(folder);
        } catch (...) {
        }
        if (real)
            canonical.insert(*real);
        elsewhere.emplace_back(&folder, std::move(real));
    }
    const IRISet canonicalOnPath = OnPath(*current, canonical);
    for (const auto& [folder, real] : elsewhere) {
        if (!real || !canonicalOnPath.contains(*real))
            result.Add(VORLAN::rmpath::DirNotFound(GetStringFromIRI(*folder)));
    }
    if (!result.empty())
        return result;
    if (!canonical.empty())
        path = FoldersOutside(path, canonical, IRISet());
    HandOver([&] { manager.ApplyPathAfterRemoving(std::move(path), result); });
    return result;
}

}  // namespace Velmora::PathManagement
