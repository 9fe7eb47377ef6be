#pragma once
// A small path of two scanned folders for the tests of the main search path.
//
//   one/                          two/
//     area.vl  shared.vl            area.vlx  shared.vlp  only.vl  Only.vl  only.vlp  Readme
//     +pkg/ f.vl                    @Point/ Point.vl
//       +inner/ g.vl
//       @Cls/ Cls.vl
//     @Point/ Point.vl norm.vl
//     private/ area.vl secret.vl
//     resources/ area.vl

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <velmora/searchpath/main_search_path.hpp>

#include "support/temp_tree.hpp"

namespace vpath_test {

inline constexpr std::uint32_t kPrimary[] = {0};
inline constexpr std::uint32_t kFull[] = {0, 1, 2, 3, 4};
inline constexpr std::uint32_t kEverything[] = {0, 1, 2, 3, 4, 5};

// Everything a lookup can see of a path: each entry with its kind, locations and files, the class
// folders, and the answers for every file name on it (first and all holders, in either scope,
// exact and ignoring case).
inline std::string Answers(const Velmora::SearchPath::MainSearchPath& path) {
    using namespace Velmora::PathManagement;
    using Velmora::text::ToNative;
    std::ostringstream out;
    std::vector<std::pair<ustring, ustring>> names = {{u"absent", u".vl"}, {u"AREA", u".vl"}};
    path.ForEachEntry(SearchScope(kEverything),
                      [&](const std::shared_ptr<const IPathEntry>& entry) {
                          out << static_cast<int>(entry->GetPathEntryType()) << ' '
                              << ToNative(entry->GetAbsoluteIRI().toString()) << " -> "
                              << ToNative(entry->GetCanonicalAbsoluteIRI().toString()) << ':';
                          for (const auto& item : *entry->GetItems()) {
                              out << ' ' << ToNative(item->GetFileName());
                              names.emplace_back(item->GetName(), item->GetExtension());
                          }
                          out << '\n';
                          return false;
                      });
    for (const auto& method : path.GetMethodEntries())
        out << "class folder " << ToNative(method->GetAbsoluteIRI().toString()) << '\n';
    const auto where = [](const FoundItem& found) {
        return ToNative(found.GetPathEntry()->GetAbsoluteIRI().toString() + u" " +
                        found.GetPathItem()->GetFileName());
    };
    for (const auto& [name, extension] : names) {
        const std::vector<ustring> extensions = {extension};
        const detail::SearchTarget target(name, extensions);
        for (const SearchScope scope : {SearchScope(kPrimary), SearchScope(kFull)}) {
            for (const auto policy :
                 {FilenameMatchingPolicy::PlatformDefault, FilenameMatchingPolicy::IgnoreCase}) {
                out << ToNative(name + extension) << scope.size() << static_cast<int>(policy)
                    << ':';
                if (const auto first = path.FindFirstInScope(scope, target, policy))
                    out << " first " << where(*first);
                for (const auto& found : path.FindAllInScope(scope, target, policy))
                    out << " | " << where(found);
                out << '\n';
            }
        }
    }
    return out.str();
}

// Whether the path holds the file at `relative` under the tree, in the entry of its folder.
inline bool Holds(const Velmora::SearchPath::MainSearchPath& path, const TempTree& tree,
                  const std::string& relative) {
    const std::filesystem::path file(relative);
    const auto parent =
        path.GetPathEntryFromAbsoluteIRI(tree.IRI(file.parent_path().string()),
                                         Velmora::PathManagement::FilenameMatchingPolicy::Exact);
    if (!parent)
        return false;
    const auto names = static_cast<const Velmora::SearchPath::FolderEntry&>(*parent).GetFileNames();
    return std::find(names.begin(), names.end(),
                     Velmora::text::FromNative(file.filename().string())) != names.end();
}

class TwoFolderPath : public TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f :
             {"one/area.vl", "one/shared.vl", "one/+pkg/f.vl", "one/+pkg/+inner/g.vl",
              "one/+pkg/@Cls/Cls.vl", "one/@Point/Point.vl", "one/@Point/norm.vl",
              "one/private/area.vl", "one/private/secret.vl", "one/resources/area.vl",
              "two/area.vlx", "two/shared.vlp", "two/only.vl", "two/Only.vl", "two/only.vlp",
              "two/Readme", "two/@Point/Point.vl"}) {
            tree.File(f);
        }
        Velmora::SearchPath::ScanReport report;
        path =
            Velmora::SearchPath::MainSearchPath::Scan({tree.IRI("one"), tree.IRI("two")}, report);
        ASSERT_TRUE(report.empty());
    }

    // The entry at `relative` under the tree, which must be on the path.
    std::shared_ptr<const Velmora::PathManagement::IPathEntry> Entry(const std::string& relative) {
        auto entry = path->GetPathEntryFromAbsoluteIRI(
            tree.IRI(relative), Velmora::PathManagement::FilenameMatchingPolicy::Exact);
        EXPECT_TRUE(entry) << relative;
        return entry;
    }

    std::shared_ptr<const Velmora::SearchPath::MainSearchPath> path;
    const std::vector<ustring> languageExtensions = {u".vlx", u".vlp", u".vl"};
};

}  // namespace vpath_test
