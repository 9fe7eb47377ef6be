#pragma once
// What the path service tells the clients that stay with it: the changes of the path, one frame
// each, and the files that names resolve to (docs/service-protocol.md describes the frames).
//
// A change is told by its folders, which any process can read, rather than by entries, which
// live in the service:
//
//   manager.AddPathChangeObserver([](const PathChange& change) {
//       const ServedChange told = DescribeChange(change);
//       for (const auto& folder : told.refreshed) ...  // folders read anew
//   });
//
// Every parser takes any bytes, never reads beyond them, and gives none for what is malformed or
// of another version of the protocol.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathinterfaces/main_search_path_manager.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/path_change_report.hpp>

namespace Velmora::SearchPath {

// ServedChange: one change of the path as its folders show it.
struct ServedChange {
    PathManagement::PathChangeKind kind = PathManagement::PathChangeKind::Refreshed;
    // The number of the state the change led to (PathChange::generation): one more than the
    // change before it.
    std::uint64_t generation = 0;
    std::vector<foundation::storage::vfs::AbsoluteIRI> added;      // in location order
    std::vector<foundation::storage::vfs::AbsoluteIRI> removed;    // in location order
    std::vector<foundation::storage::vfs::AbsoluteIRI> moved;      // in their order after it
    std::vector<foundation::storage::vfs::AbsoluteIRI> refreshed;  // read anew; location order

    // empty: no folder changed (the path was read again and found as it was).
    bool empty() const noexcept {
        return added.empty() && removed.empty() && moved.empty() && refreshed.empty();
    }
    bool operator==(const ServedChange&) const = default;
};

// DescribeChange: the folders of ComparePaths(before, after), the moved ones put in their order
// on `after`.
VELMORA_SEARCHPATH_EXPORT ServedChange DescribeChange(const PathChangeReport& report,
                                                      const PathManagement::IPath& after);
VELMORA_SEARCHPATH_EXPORT ServedChange DescribeChange(const PathManagement::PathChange& change);

// The frame of a change, as a subscriber is sent it.
VELMORA_SEARCHPATH_EXPORT std::string EncodeServedChange(const ServedChange& change);
VELMORA_SEARCHPATH_EXPORT std::optional<ServedChange> ParseServedChange(std::string_view payload);

// The first frame of a subscription: the generation of the state from which on the subscriber
// hears of every change (the first change it is sent leads to the next generation).
VELMORA_SEARCHPATH_EXPORT std::string EncodeSubscribed(std::uint64_t generation);
VELMORA_SEARCHPATH_EXPORT std::optional<std::uint64_t> ParseSubscribed(std::string_view payload);

// ServedFile: the file a name resolves to.
struct ServedFile {
    std::string path;  // its native path (bytes), as `vpath which NAME` prints it
    std::string iri;   // its location (file:///...), as UTF-8 text

    bool operator==(const ServedFile&) const = default;
};

// LookupAnswer: the files that the names of a Lookup resolve to, in the order of the names (none
// for a name that resolves to nothing), on the state of the given generation.
struct LookupAnswer {
    std::uint64_t generation = 0;
    std::vector<std::optional<ServedFile>> files;

    bool operator==(const LookupAnswer&) const = default;
};

VELMORA_SEARCHPATH_EXPORT std::string EncodeLookupAnswer(const LookupAnswer& answer);
VELMORA_SEARCHPATH_EXPORT std::optional<LookupAnswer> ParseLookupAnswer(std::string_view payload);

// ResolveOnPath: the file `name` (native bytes) resolves to on `path`, as `vpath which NAME`
// finds it: the name under the language's extensions, one it carries itself first, searched on
// the path with the platform's matching policy; none when it resolves to nothing.
VELMORA_SEARCHPATH_EXPORT std::optional<ServedFile> ResolveOnPath(const PathManagement::IPath& path,
                                                                  std::string_view name);

}  // namespace Velmora::SearchPath
