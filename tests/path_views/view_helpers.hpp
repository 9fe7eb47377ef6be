#pragma once
// Helpers shared by the tests of the path views.

#include <memory>
#include <string>
#include <vector>

#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "support/fake_path.hpp"

namespace vpath_test {

using Velmora::PathManagement::EntryCallback;
using Velmora::PathManagement::IPath;
using Velmora::PathManagement::PathEntryVector;
using Velmora::PathManagement::SearchScope;

inline constexpr std::uint32_t kAllKinds[] = {0, 1, 2, 3, 4, 5};
inline const std::vector<ustring> kVl = {u".vl"};

// The last names of the entries' locations, in order: {"a", "@m", "b"}.
inline std::vector<std::string> Names(const PathEntryVector& entries) {
    std::vector<std::string> out;
    for (const auto& e : entries)
        out.push_back(Velmora::text::ToNative(e->GetName()));
    return out;
}

// The entries a walk visits, by name.
inline std::vector<std::string> Walk(const IPath& path, bool concurrent = false) {
    PathEntryVector seen;
    const EntryCallback collect = [&](const auto& e) {
        seen.push_back(e);
        return false;
    };
    concurrent ? path.ConcurrentForEachEntry(SearchScope(kAllKinds), collect)
               : path.ForEachEntry(SearchScope(kAllKinds), collect);
    return Names(seen);
}

// Where `file` (a base name, looked up as .vl) is found first: the name of the entry, or "".
inline std::string FirstHolder(const IPath& path, const ustring& file) {
    const pm::detail::SearchTarget target(file, kVl);
    const auto hit =
        path.FindFirstInScope(SearchScope(kAllKinds), target, FilenameMatchingPolicy::Exact);
    return hit ? Velmora::text::ToNative(hit->GetPathEntry()->GetName()) : std::string();
}

// The entries holding `file` in FindAllInScope, by name.
inline std::vector<std::string> AllHolders(const IPath& path, const ustring& file) {
    const pm::detail::SearchTarget target(file, kVl);
    PathEntryVector holders;
    for (const auto& found :
         path.FindAllInScope(SearchScope(kAllKinds), target, FilenameMatchingPolicy::Exact))
        holders.push_back(found.GetPathEntry());
    return Names(holders);
}

inline std::shared_ptr<FakeEntry> Entry(const std::string& name, std::vector<ustring> files = {},
                                        PathEntryType kind = PathEntryType::Ordinary) {
    return FakeEntry::Make(u"file:///" + Velmora::text::FromNative(name), std::move(files), kind);
}

}  // namespace vpath_test
