#pragma once
// Path change analysis: what changed between the entry list of a search path before a change and
// the entry list after it.
//
//   PathEntryVectorDifferentiator diff;
//   diff.Compare(before, after, PathEntryVectorDifferentiator::EntriesOnly);
//   for (const auto& entry : *diff.GetAdded()) ...
//
// An entry is identified in two ways. By object: two shared pointers name the same entry when they
// hold the same address; that decides added, removed and reordered. By folder: two entry objects
// stand for the same folder when neither's GetAbsoluteIRI() is less than the other's; among the
// entries left unmatched by object, that pairs an old object with the new one that replaced it
// (refreshed). The host gives a refreshed folder a new entry object and keeps the objects of
// unchanged folders, which is what makes this truthful.
//
//   before            after              added  removed  reordered  refreshed (before => after)
//   P, Q, R           P, Q, R            -      -        -          -
//   P, Q              Q, P               -      -        P          -
//   P, Q, R           R, P, Q            -      -        R          -
//   P, Q, R           Q, R, P            -      -        P          -
//   P, Q              P, Q, S            S      -        -          -
//   P, Q, R           P, R               -      Q        -          -
//   P, Q, R           Q2, P, R           -      -        -          Q => Q2
//
// (Q2 is a new object for Q's folder.)

#include <cstdint>
#include <memory>

#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathmanagement/export.hpp>

namespace Velmora::PathManagement {

// PathEntryVectorDifferentiator: sorts the differences between two entry lists into five result
// lists. Construct it, call Compare, read the results.
//
// The results accumulate: Compare and CompareHelper only append, so a second call's results
// follow the first's in every list. One comparison at a time may run on an object, and its lists
// must not be read while one runs.
//
// The sorts run on oneTBB's worker threads beside the calling thread, so GetAbsoluteIRI and the
// IRI comparison are called concurrently on different entries (as IPathEntry allows).
//
// Failures: whatever an entry or the allocator raises (from GetAbsoluteIRI or a special-subfolder
// accessor, std::bad_alloc, ...) passes out unchanged. Nothing is rolled back: results appended
// before the failure stay.
class VELMORA_PATHMANAGEMENT_EXPORT PathEntryVectorDifferentiator {
  public:
    // ComparisonFilter: how far a comparison goes. Only IncludeSpecialSubfolders has an effect;
    // every other value, whether named here or not, compares the given lists only.
    enum ComparisonFilter : std::uint32_t {
        // Compare the two given lists only.
        EntriesOnly = 0,
        // Compare the two given lists, then the special subfolders (GetPrivateSubEntry and
        // GetSpecialSubEntry2 to 5) of the entries that were added, removed or refreshed, then
        // theirs, level after level, until a level has none. Deeper levels report added, removed
        // and refreshed entries behind the level above and never report reordered ones.
        IncludeSpecialSubfolders = 1,
    };

    // Five empty result lists.
    PathEntryVectorDifferentiator();
    // A copy would share the result lists with the original; neither copies nor moves are useful.
    PathEntryVectorDifferentiator(const PathEntryVectorDifferentiator&) = delete;
    PathEntryVectorDifferentiator& operator=(const PathEntryVectorDifferentiator&) = delete;
    ~PathEntryVectorDifferentiator();

    // Compare: compares `before` with `after` and appends the differences to the result lists;
    // CompareHelper with reordering detected.
    //
    // REQUIRES: no null entries.
    //
    //   Compare({P, Q, R}, {Q2, P, R, S}, EntriesOnly)
    //     => added S; refreshed-before Q and refreshed-after Q2; nothing removed or reordered
    void Compare(PathEntryVector before, PathEntryVector after, ComparisonFilter filter);

    // CompareHelper: the comparison itself. It consumes its arguments: on return (or on a
    // failure) both vectors hold their entries in an order of its sorts, not in their former order.
    // With `detectReordering` false, nothing is appended to the reordered list.
    //
    // REQUIRES: no null entries.
    void CompareHelper(PathEntryVector&& before, PathEntryVector&& after, ComparisonFilter filter,
                       bool detectReordering);

    // GetAdded: the entries of `after` that `before` lacks and that no refreshed pair took, in
    // ascending IRI order within one comparison level.
    SharedPathEntryVector GetAdded() const;
    // GetRemoved: the entries of `before` that `after` lacks and that no refreshed pair took, in
    // ascending IRI order within one comparison level.
    SharedPathEntryVector GetRemoved() const;
    // GetReordered: the entries that both lists hold but that lie off one longest common
    // subsequence of the two: the fewest that must move to turn `before`'s order of the shared
    // entries into `after`'s. A pointer held several times by both lists counts as often as both
    // hold it. Treat it as a set: its order carries no meaning.
    SharedPathEntryVector GetReordered() const;
    // GetRefreshedAfter: for each refreshed pair, the new object (from `after`). Position k of
    // this list and of GetRefreshedBefore are the two objects of one folder, in ascending IRI
    // order within one comparison level. Among several unmatched objects of one folder, which
    // pair up is not specified.
    SharedPathEntryVector GetRefreshedAfter() const;
    // GetRefreshedBefore: for each refreshed pair, the old object (from `before`).
    SharedPathEntryVector GetRefreshedBefore() const;

  private:
    // Each getter hands out the shared pointer itself, so a caller's copy sees later appends.
    std::shared_ptr<PathEntryVector> m_added;
    std::shared_ptr<PathEntryVector> m_removed;
    std::shared_ptr<PathEntryVector> m_reordered;
    std::shared_ptr<PathEntryVector> m_refreshedAfter;
    std::shared_ptr<PathEntryVector> m_refreshedBefore;
};

}  // namespace Velmora::PathManagement
