// Which file a name resolves to, on the path and from a folder, and files by extension.

#include <cstdlib>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/path_views.hpp>
#include <velmora/searchpath/main_search_path.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "support/fake_path.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PathManagement;
using ::testing::ElementsAre;
using Velmora::SearchPath::MainSearchPath;
using Velmora::SearchPath::ScanReport;

// Sets an environment variable for one scope and restores it after.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name))
            m_old = old;
        ::setenv(name, value, 1);
    }
    ~ScopedEnvironment() {
        if (m_old) {
            ::setenv(m_name, m_old->c_str(), 1);
        } else {
            ::unsetenv(m_name);
        }
    }

  private:
    const char* m_name;
    std::optional<std::string> m_old;
};

// A path over real folders:
//   first/   Pt.vl  helper.vl  Tie.vl  @Early/Early.vl  @Tie/Tie.vl  private/helper.vl
//   second/  Early.vl  helper.vl  @Pt/Pt.vl  @Only/Only.vl  +pkg/f.vl
class Lookup : public vpath_test::TempTreeTest {
  protected:
    void SetUp() override {
        for (const char* f :
             {"first/Pt.vl", "first/helper.vl", "first/private/helper.vl", "first/@Early/Early.vl",
              "first/Tie.vl", "first/@Tie/Tie.vl", "second/@Pt/Pt.vl", "second/Early.vl",
              "second/+pkg/f.vl", "second/helper.vl", "second/@Only/Only.vl"}) {
            tree.File(f);
        }
        ScanReport report;
        path = MainSearchPath::Scan({tree.IRI("first"), tree.IRI("second")}, report);
        ASSERT_TRUE(report.empty());
    }

    // Where the name resolves, relative to the tree; "" when it resolves to nothing.
    std::string Where(const OptionalFoundItem& hit) const {
        if (!hit)
            return "";
        const std::string native = Velmora::text::ToNative(
            foundation::storage::vfs::fromAbsoluteIRI(hit->GetPathItem()->GetAbsoluteIRI()));
        return native.substr(tree.Root().native().size() + 1);
    }
    std::string OnPath(const ustring& name) const {
        const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
        return Where(
            FindFirstFileVisibleOnPath(*path, target, FilenameMatchingPolicy::PlatformDefault));
    }
    std::string FromFolder(const std::string& folder, const ustring& name) const {
        const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
        return Where(FindFirstFileVisibleFromFolder(*path, tree.IRI(folder), target,
                                                    FilenameMatchingPolicy::PlatformDefault));
    }

    std::shared_ptr<const MainSearchPath> path;
    const std::vector<ustring> exts = {u".vl"};
};

TEST_F(Lookup, OnThePathAClassFolderWinsOnlyWhenItComesFirst) {
    {
        // The class folder's file stands in the first folder: it wins over a later plain file.
        EXPECT_EQ(OnPath(u"Early"), "first/@Early/Early.vl");
        // The plain file stands first: it wins over a later class folder.
        EXPECT_EQ(OnPath(u"Pt"), "first/Pt.vl");
        // Both in the same folder: a tie goes to the plain file.
        EXPECT_EQ(OnPath(u"Tie"), "first/Tie.vl");
        // Only a class folder holds it.
        EXPECT_EQ(OnPath(u"Only"), "second/@Only/Only.vl");
    }
    {
        // A qualified name is looked up in package folders, and nothing else is consulted.
        EXPECT_EQ(OnPath(u"pkg/f"), "second/+pkg/f.vl");
        EXPECT_EQ(OnPath(u"+pkg/f"), "second/+pkg/f.vl");
        EXPECT_EQ(OnPath(u"f"), "");
    }
    {
        // A name found nowhere; private files are not visible from the path.
        EXPECT_EQ(OnPath(u"absent"), "");
        EXPECT_EQ(OnPath(u"helper"), "first/helper.vl");
    }
}

TEST_F(Lookup, FromAFolderItsPrivateFolderComesFirst) {
    const ScopedEnvironment off("VPATH_AT_FOLDER_PRECEDENCE", "0");
    {
        // The private folder shadows the whole path, the folder's own files included.
        EXPECT_EQ(FromFolder("first", u"helper"), "first/private/helper.vl");
        // Another folder's private folder is not visible.
        EXPECT_EQ(FromFolder("second", u"helper"), "first/helper.vl");
    }
    {
        // A folder that is not on the path is as if none was given.
        EXPECT_EQ(FromFolder("elsewhere", u"helper"), "first/helper.vl");
        EXPECT_EQ(FromFolder("first/private", u"Pt"), "second/@Pt/Pt.vl");
    }
    {
        // Qualified names follow the path rule here too.
        EXPECT_EQ(FromFolder("first", u"pkg/f"), "second/+pkg/f.vl");
    }
    {
        // The Folder form takes the folder's location.
        const ustring helperName = u"helper";
        const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(helperName, exts);
        const foundation::storage::vfs::Folder folder(
            tree.IRI("first"), Velmora::VorlanStorageSystem::GetStorageSystemReference());
        EXPECT_EQ(Where(FindFirstFileVisibleFromFolder(*path, folder, target,
                                                       FilenameMatchingPolicy::PlatformDefault)),
                  "first/private/helper.vl");
    }
}

TEST_F(Lookup, FromAFolderTheAtFolderSettingDecidesClassFolders) {
    {
        // Off: a class folder's file wins wherever it stands on the path.
        const ScopedEnvironment off("VPATH_AT_FOLDER_PRECEDENCE", "0");
        EXPECT_EQ(FromFolder("first", u"Pt"), "second/@Pt/Pt.vl");
        EXPECT_EQ(FromFolder("first", u"Tie"), "first/@Tie/Tie.vl");
        EXPECT_EQ(FromFolder("first", u"absent"), "");
    }
    {
        // On: the same answer as on the path.
        const ScopedEnvironment on("VPATH_AT_FOLDER_PRECEDENCE", "1");
        EXPECT_EQ(FromFolder("first", u"Pt"), "first/Pt.vl");
        EXPECT_EQ(FromFolder("first", u"Tie"), "first/Tie.vl");
        EXPECT_EQ(FromFolder("first", u"helper"), "first/private/helper.vl");
    }
}

TEST_F(Lookup, ViewsResolveLikeThePathTheyShow) {
    ScanReport report;
    const auto secondAgain = MainSearchPath::Scan({tree.IRI("second")}, report);
    const DeduplicatedPath both({path, secondAgain});
    const ustring ptName = u"Pt";
    const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(ptName, exts);
    EXPECT_EQ(
        Where(FindFirstFileVisibleOnPath(both, target, FilenameMatchingPolicy::PlatformDefault)),
        "first/Pt.vl");
    const MultiMaskedPath withoutFirst(path, {path->GetMainEntries()->front()});
    EXPECT_EQ(Where(FindFirstFileVisibleOnPath(withoutFirst, target,
                                               FilenameMatchingPolicy::PlatformDefault)),
              "second/@Pt/Pt.vl");
}

TEST(FindFilesByExtensions, ListsMatchesPerEntryAndPerExtension) {
    const auto a =
        vpath_test::FakeEntry::Make(u"file:///a", {u"x.vl", u"y.vlp", u"z.txt", u"README"});
    const auto b = vpath_test::FakeEntry::Make(u"file:///b", {u"w.VL"});
    const auto path = vpath_test::FakePath::Make({a, b});
    const std::uint32_t primary[] = {0};
    auto names = [](const std::vector<FoundItem>& found) {
        std::vector<ustring> out;
        for (const auto& f : found)
            out.push_back(f.GetPathEntry()->GetName() + u"/" + f.GetPathItem()->GetFileName());
        return out;
    };
    {
        // In walk order, then the entry's order; each file once per matching extension.
        EXPECT_THAT(names(FindFilesByExtensions(*path, SearchScope(primary), {u".vl", u".vlp"},
                                                FilenameMatchingPolicy::Exact)),
                    ElementsAre(u"a/x.vl", u"a/y.vlp"));
        EXPECT_THAT(names(FindFilesByExtensions(*path, SearchScope(primary), {u".vl", u".vl"},
                                                FilenameMatchingPolicy::Exact)),
                    ElementsAre(u"a/x.vl", u"a/x.vl"));
        EXPECT_THAT(names(FindFilesByExtensions(*path, SearchScope(primary), {u""},
                                                FilenameMatchingPolicy::Exact)),
                    ElementsAre(u"a/README"));
    }
    {
        // The policy is the entry's matcher's.
        EXPECT_THAT(names(FindFilesByExtensions(*path, SearchScope(primary), {u".vl"},
                                                FilenameMatchingPolicy::IgnoreCase)),
                    ElementsAre(u"a/x.vl", u"b/w.VL"));
        EXPECT_THAT(names(FindFilesByExtensions(b, {u".vl"}, FilenameMatchingPolicy::IgnoreCase)),
                    ElementsAre(u"b/w.VL"));
    }
    {
        // No extensions, no files; an empty scope walks nothing.
        EXPECT_TRUE(
            FindFilesByExtensions(*path, SearchScope(primary), {}, FilenameMatchingPolicy::Exact)
                .empty());
        EXPECT_TRUE(
            FindFilesByExtensions(*path, SearchScope(), {u".vl"}, FilenameMatchingPolicy::Exact)
                .empty());
    }
}

}  // namespace
