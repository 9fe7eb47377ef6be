// Which file a name resolves to, on the path and from a folder, and files by extension: what is
// asked of the path and its entries, with which scope and policy, and which answer wins.

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/lookup.hpp>

#include "support/fake_path.hpp"

namespace {

using namespace Velmora::PathManagement;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using vpath_test::FakeEntry;
using vpath_test::FakePath;
using AbsoluteIRI = foundation::storage::vfs::AbsoluteIRI;

std::shared_ptr<FakeEntry> Entry(const ustring& path, std::vector<ustring> files = {},
                                 PathEntryType kind = PathEntryType::Ordinary) {
    return FakeEntry::Make(u"file:///" + path, std::move(files), kind);
}

// first/   Pt Tie helper  @Early/Early  @Tie/Tie  @Two/  private/helper
// second/  Early helper   @Pt/Pt  @Only/Only  @Two/Two
struct Tree {
    std::shared_ptr<FakeEntry> first = Entry(u"first", {u"Pt.vl", u"Tie.vl", u"helper.vl"});
    std::shared_ptr<FakeEntry> early =
        Entry(u"first/@Early", {u"Early.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> tie = Entry(u"first/@Tie", {u"Tie.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> emptyTwo = Entry(u"first/@Two", {}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> priv =
        Entry(u"first/private", {u"helper.vl"}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> second = Entry(u"second", {u"Early.vl", u"helper.vl"});
    std::shared_ptr<FakeEntry> pt = Entry(u"second/@Pt", {u"Pt.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> only = Entry(u"second/@Only", {u"Only.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> two = Entry(u"second/@Two", {u"Two.vl"}, PathEntryType::AtFolder);
    std::shared_ptr<FakePath> path;
    Tree() {
        for (const auto& child : {early, tie, emptyTwo})
            first->AddChild(child);
        first->SetSpecial(1, priv);
        for (const auto& child : {pt, only, two})
            second->AddChild(child);
        path = FakePath::Make({first, second});
    }
    std::vector<std::shared_ptr<FakeEntry>> All() const {
        return {first, early, tie, emptyTwo, priv, second, pt, only, two};
    }
};

TEST(FindFirstFileVisible, AsksWithTheRightPoliciesAndRanksTheAnswers) {
    const std::vector<ustring> exts = {u".vl"};
    // The caller's policy (1) for files, the exact one (2) for class folders and the folder.
    const auto policy = FilenameMatchingPolicy::IgnoreCase;
    const std::string scope = "FindFirstInScope(0)/1", methods = "GetMethodEntriesByName(0)/2",
                      folder = "GetPathEntryFromAbsoluteIRI/2", full = "FindFirstInScope(01234)/1";
    enum Where { OnPath, FromFolderOff, FromFolderOn };
    struct Case {
        Where where;
        const char16_t* folder;
        const char16_t* name;
        std::shared_ptr<FakeEntry> Tree::*holder;  // null: nothing found
        std::vector<std::string> calls;
    };
    const Case cases[] = {
        // A class folder's file wins on the path only when its entry comes first; a tie goes to
        // the plain file; a class folder without the file is passed over.
        {OnPath, u"", u"Early", &Tree::early, {scope, methods}},
        {OnPath, u"", u"Pt", &Tree::first, {scope, methods}},
        {OnPath, u"", u"Tie", &Tree::first, {scope, methods}},
        {OnPath, u"", u"Only", &Tree::only, {scope, methods}},
        {OnPath, u"", u"Two", &Tree::two, {scope, methods}},
        {OnPath, u"", u"absent", nullptr, {scope, methods}},
        {OnPath, u"", u"helper", &Tree::first, {scope, methods}},
        // A name with a separator is looked up in every kind of entry, and nothing else is asked.
        {OnPath, u"", u"pkg/f", nullptr, {full}},
        {FromFolderOff, u"first", u"pkg/f", nullptr, {full}},
        // From a folder its private folder shadows the whole path, whatever the setting.
        {FromFolderOff, u"first", u"helper", &Tree::priv, {folder}},
        {FromFolderOn, u"first", u"helper", &Tree::priv, {folder}},
        {FromFolderOff, u"second", u"helper", &Tree::first, {folder, methods, scope}},
        {FromFolderOff, u"elsewhere", u"helper", &Tree::first, {folder, methods, scope}},
        // Setting off: a class folder wins wherever it stands. On: as on the path.
        {FromFolderOff, u"first", u"Pt", &Tree::pt, {folder, methods}},
        {FromFolderOff, u"first", u"Tie", &Tree::tie, {folder, methods}},
        {FromFolderOff, u"first", u"Two", &Tree::two, {folder, methods}},
        {FromFolderOn, u"first", u"Pt", &Tree::first, {folder, scope, methods}},
        {FromFolderOn, u"first", u"Tie", &Tree::first, {folder, scope, methods}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.name) + " from '" +
                     Velmora::text::ToNative(c.folder) + "' case " + std::to_string(c.where));
        const Tree t;
        const ustring name = c.name;
        const auto target = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
        ::setenv("VPATH_AT_FOLDER_PRECEDENCE", c.where == FromFolderOn ? "1" : "0", 1);
        const auto hit =
            c.where == OnPath
                ? FindFirstFileVisibleOnPath(*t.path, target, policy)
                : FindFirstFileVisibleFromFolder(
                      *t.path, AbsoluteIRI(u"file:///" + ustring(c.folder)), target, policy);
        EXPECT_THAT(t.path->Log().Calls(), ElementsAreArray(c.calls));
        // Every entry is asked for the file under the caller's policy.
        for (const auto& entry : t.All()) {
            for (const std::string& call : entry->Log().Calls())
                EXPECT_EQ(call, "FindFile/1");
        }
        ASSERT_EQ(hit.has_value(), c.holder != nullptr);
        if (hit) {
            EXPECT_EQ(hit->GetPathEntry(), t.*c.holder);
        }
    }
    ::unsetenv("VPATH_AT_FOLDER_PRECEDENCE");
}

TEST(FindFilesByExtensions, ListsMatchesPerEntryAndPerExtension) {
    const auto a = FakeEntry::Make(u"file:///a", {u"x.vl", u"y.vlp", u"z.txt", u"README"});
    const auto b = FakeEntry::Make(u"file:///b", {u"w.VL"});
    const auto path = FakePath::Make({a, b});
    const std::uint32_t primary[] = {0};
    auto names = [](const std::vector<FoundItem>& found) {
        std::vector<ustring> out;
        for (const auto& f : found)
            out.push_back(f.GetPathEntry()->GetName() + u"/" + f.GetPathItem()->GetFileName());
        return out;
    };
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
    // The walk is the sequential one, with the caller's scope.
    EXPECT_THAT(path->Log().Calls(),
                ElementsAre("ForEachEntry(0)", "ForEachEntry(0)", "ForEachEntry(0)"));
    // The entry's matcher for the caller's policy compares an extension of the list with the
    // item's.
    b->Log().Clear();
    EXPECT_THAT(names(FindFilesByExtensions(*path, SearchScope(primary), {u".vl"},
                                            FilenameMatchingPolicy::IgnoreCase)),
                ElementsAre(u"a/x.vl", u"b/w.VL"));
    EXPECT_THAT(b->Log().Calls(), ElementsAre("GetExtensionMatcher/1", "match(.vl,.VL)"));
    // No extensions, no files and no matching; an empty scope walks nothing.
    b->Log().Clear();
    EXPECT_TRUE(FindFilesByExtensions(b, {}, FilenameMatchingPolicy::Exact).empty());
    EXPECT_THAT(b->Log().Calls(), ElementsAre("GetExtensionMatcher/2"));
    EXPECT_TRUE(FindFilesByExtensions(*path, SearchScope(), {u".vl"}, FilenameMatchingPolicy::Exact)
                    .empty());
}

}  // namespace
