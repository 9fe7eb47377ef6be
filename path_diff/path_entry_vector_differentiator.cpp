#include <velmora/pathmanagement/path_diff.hpp>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include <tbb/parallel_sort.h>

#include "less_than_by_functor.hpp"
#include "longest_common_subsequence.hpp"

namespace Velmora::PathManagement {

namespace {

using foundation::storage::vfs::AbsoluteIRI;

void SortByAddress(PathEntryVector& entries) {
    tbb::parallel_sort(entries.begin(), entries.end(), std::less<PathEntryPtr>());
}

// The comparator asks both entries for their IRI at every comparison and keeps nothing: only the
// entries that identity left unmatched, a few in a large list, are sorted this way.
void SortByIRI(PathEntryVector& entries) {
    const detail::LessThanByFunctorImpl byIRI{
        [](const PathEntryPtr& entry) { return entry->GetAbsoluteIRI(); }};
    tbb::parallel_sort(entries.begin(), entries.end(), byIRI);
}

// Room for `more` entries. The lists accumulate across levels and calls, so the capacity grows
// geometrically: reserving exactly size + more each time would copy the whole list at every level.
void ReserveMore(PathEntryVector& list, std::size_t more) {
    const std::size_t needed = list.size() + more;
    if (needed > list.capacity())
        list.reserve(std::max(needed, 2 * list.capacity()));
}

// Every non-null special subfolder of `entries`, entry by entry, in accessor order.
PathEntryVector SpecialSubfolders(const PathEntryVector& entries) {
    using Accessor = PathEntryPtr (IPathEntry::*)() const;
    static constexpr Accessor kAccessors[] = {
        &IPathEntry::GetPrivateSubEntry,  &IPathEntry::GetSpecialSubEntry2,
        &IPathEntry::GetSpecialSubEntry3, &IPathEntry::GetSpecialSubEntry4,
        &IPathEntry::GetSpecialSubEntry5,
    };
    PathEntryVector specials;
    for (const PathEntryPtr& entry : entries) {
        for (const Accessor accessor : kAccessors) {
            if (PathEntryPtr special = ((*entry).*accessor)())
                specials.push_back(std::move(special));
        }
    }
    return specials;
}

// The entries of two address-sorted lists split by identity, as a merge pairs them: a pointer
// that one list holds more often than the other pairs off once per copy in both. The common
// entries, nearly all of a large list, are only walked once more, so they are referred to in
// `before` rather than copied, which would cost two atomic counts each.
struct IdentitySplit {
    PathEntryVector beforeOnly;
    PathEntryVector afterOnly;
    std::vector<const PathEntryPtr*> common;
};

IdentitySplit SplitByIdentity(const PathEntryVector& before, const PathEntryVector& after) {
    IdentitySplit split;
    split.common.reserve(std::min(before.size(), after.size()));
    const std::less<PathEntryPtr> less;
    auto x = before.begin();
    auto y = after.begin();
    while (x != before.end() && y != after.end()) {
        if (less(*x, *y)) {
            split.beforeOnly.push_back(*x++);
        } else if (less(*y, *x)) {
            split.afterOnly.push_back(*y++);
        } else {
            split.common.push_back(&*x);
            ++x, ++y;
        }
    }
    split.beforeOnly.insert(split.beforeOnly.end(), x, before.end());
    split.afterOnly.insert(split.afterOnly.end(), y, after.end());
    return split;
}

// Appends to `reordered` the entries of `common` that `subsequence` does not account for; both
// are in address order and the subsequence is contained in `common`, counting repeats.
void AppendOffSubsequence(const std::vector<const PathEntryPtr*>& common,
                          const PathEntryVector& subsequence, PathEntryVector& reordered) {
    ReserveMore(reordered, common.size() - std::min(common.size(), subsequence.size()));
    const std::less<PathEntryPtr> less;
    auto c = common.begin();
    auto s = subsequence.begin();
    while (c != common.end() && s != subsequence.end()) {
        if (less(**c, *s)) {
            reordered.push_back(**c++);
        } else if (less(*s, **c)) {
            ++s;
        } else {
            ++c, ++s;
        }
    }
    for (; c != common.end(); ++c)
        reordered.push_back(**c);
}

// The result lists that pairing by folder appends to.
struct FolderResults {
    PathEntryVector& removed;
    PathEntryVector& added;
    PathEntryVector& refreshedBefore;
    PathEntryVector& refreshedAfter;
};

// Pairs the IRI-sorted unmatched entries by folder, as a merge does. Each comparison asks both
// entries for their IRI again, in a fixed order so that it is known whose failure surfaces: the
// first comparison asks the after entry first, the second the before entry.
void PairByFolder(const PathEntryVector& beforeOnly, const PathEntryVector& afterOnly,
                  const FolderResults& out) {
    ReserveMore(out.removed, beforeOnly.size());
    ReserveMore(out.added, afterOnly.size());
    ReserveMore(out.refreshedBefore, std::min(beforeOnly.size(), afterOnly.size()));
    ReserveMore(out.refreshedAfter, std::min(beforeOnly.size(), afterOnly.size()));
    auto x = beforeOnly.begin();
    auto y = afterOnly.begin();
    while (x != beforeOnly.end() && y != afterOnly.end()) {
        const AbsoluteIRI yKey = (*y)->GetAbsoluteIRI();
        const AbsoluteIRI xKey = (*x)->GetAbsoluteIRI();
        if (xKey < yKey) {
            out.removed.push_back(*x++);
            continue;
        }
        const AbsoluteIRI xAgain = (*x)->GetAbsoluteIRI();
        const AbsoluteIRI yAgain = (*y)->GetAbsoluteIRI();
        if (yAgain < xAgain) {
            out.added.push_back(*y++);
        } else {
            out.refreshedBefore.push_back(*x++);
            out.refreshedAfter.push_back(*y++);
        }
    }
    out.removed.insert(out.removed.end(), x, beforeOnly.end());
    out.added.insert(out.added.end(), y, afterOnly.end());
}

}  // namespace

PathEntryVectorDifferentiator::PathEntryVectorDifferentiator()
    : m_added(std::make_shared<PathEntryVector>()),
      m_removed(std::make_shared<PathEntryVector>()),
      m_reordered(std::make_shared<PathEntryVector>()),
      m_refreshedAfter(std::make_shared<PathEntryVector>()),
      m_refreshedBefore(std::make_shared<PathEntryVector>()) {}

PathEntryVectorDifferentiator::~PathEntryVectorDifferentiator() = default;

void PathEntryVectorDifferentiator::Compare(PathEntryVector before, PathEntryVector after,
                                            ComparisonFilter filter) {
    CompareHelper(std::move(before), std::move(after), filter, true);
}

void PathEntryVectorDifferentiator::CompareHelper(PathEntryVector&& before, PathEntryVector&& after,
                                                  ComparisonFilter filter, bool detectReordering) {
    if (before.empty() && after.empty())
        return;

    // The subsequence is taken on the lists in their given order, before the sorts below.
    PathEntryVector subsequence;
    if (detectReordering) {
        subsequence = detail::LongestCommonSubsequence<PathEntryPtr, PathEntryVector>(before, after)
                          .GetLongestCommonSubsequence();
        SortByAddress(subsequence);
    }
    SortByAddress(before);
    SortByAddress(after);

    IdentitySplit split = SplitByIdentity(before, after);
    if (detectReordering)
        AppendOffSubsequence(split.common, subsequence, *m_reordered);

    // Folder identity, among the entries that object identity left unmatched only: the IRI is
    // the expensive key.
    SortByIRI(split.beforeOnly);
    SortByIRI(split.afterOnly);
    PairByFolder(split.beforeOnly, split.afterOnly,
                 {*m_removed, *m_added, *m_refreshedBefore, *m_refreshedAfter});

    // Exactly 1: the filter is a value, not a set of bits.
    if (filter == IncludeSpecialSubfolders) {
        PathEntryVector afterSpecials = SpecialSubfolders(split.afterOnly);
        PathEntryVector beforeSpecials = SpecialSubfolders(split.beforeOnly);
        CompareHelper(std::move(beforeSpecials), std::move(afterSpecials), filter, false);
    }
}

SharedPathEntryVector PathEntryVectorDifferentiator::GetAdded() const {
    return m_added;
}

SharedPathEntryVector PathEntryVectorDifferentiator::GetRemoved() const {
    return m_removed;
}

SharedPathEntryVector PathEntryVectorDifferentiator::GetReordered() const {
    return m_reordered;
}

SharedPathEntryVector PathEntryVectorDifferentiator::GetRefreshedAfter() const {
    return m_refreshedAfter;
}

SharedPathEntryVector PathEntryVectorDifferentiator::GetRefreshedBefore() const {
    return m_refreshedBefore;
}

}  // namespace Velmora::PathManagement
