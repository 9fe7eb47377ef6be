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

#include <memory>
#include <vector>

#include <velmora/searchpath/main_search_path.hpp>

#include "support/temp_tree.hpp"

namespace vpath_test {

inline constexpr std::uint32_t kPrimary[] = {0};
inline constexpr std::uint32_t kFull[] = {0, 1, 2, 3, 4};

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
