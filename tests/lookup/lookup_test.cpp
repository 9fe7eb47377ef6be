// Lookups on fake paths: which file a name resolves to, files by extension, and partial pathnames
// against entries and folder paths.

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/lookup.hpp>
#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/text/ustring.hpp>

#include "support/fake_path.hpp"

namespace {

using namespace Velmora::PathManagement;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using vpath_test::FakeEntry;
using vpath_test::FakePath;
using AbsoluteIRI = foundation::storage::vfs::AbsoluteIRI;
using Words = std::vector<ustring>;
using Log = std::vector<std::string>;

// Which file a name resolves to, on the path and from a folder, and files by extension: what is
// asked of the path and its entries, with which scope and policy, and which answer wins.

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

// Partial pathnames against entries and folder paths. The fake entries log the policy of every
// comparator they hand out and each comparison it makes, so which comparator is used, for which
// policy and in which argument order shows in the log.

constexpr auto kExact = FilenameMatchingPolicy::Exact;
constexpr auto kIgnoreCase = FilenameMatchingPolicy::IgnoreCase;
constexpr auto kDefault = FilenameMatchingPolicy::PlatformDefault;

std::string Trace(const Words& parts, const ustring& where) {
    std::string trace;
    for (const auto& p : parts)
        trace += Velmora::text::ToNative(p) + "/";
    return trace + " in " + Velmora::text::ToNative(where);
}

// The comparisons an entry's comparators made, and whether each comparator was made for `policy`.
Log Compared(const FakeEntry& entry, FilenameMatchingPolicy policy) {
    Log compared;
    for (const auto& call : entry.Log().Calls()) {
        if (call.starts_with("match("))
            compared.push_back(call);
        else
            EXPECT_EQ(call, "GetExtensionMatcher/" + std::to_string(static_cast<int>(policy)));
    }
    return compared;
}

TEST(SplitPartialPathname, KeepsTheNonEmptyPiecesAsTheyStand) {
    const struct {
        ustring text;
        Words parts;
    } cases[] = {
        {u"", {}},
        {u"///", {}},
        {u"/a//+b/@c.d/", {u"a", u"+b", u"@c.d"}},
        {u" x /y", {u" x ", u"y"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        const auto parts = SplitPartialPathname(c.text);
        EXPECT_EQ(Words(parts.begin(), parts.end()), c.parts);
    }
}

TEST(LenientMatchOnEntry, EachRule) {
    const struct {
        Words parts;
        ustring location;
        FilenameMatchingPolicy policy;
        bool expected;
    } cases[] = {
        // "+" and "@" may be left out, not swapped; the caller's policy decides case.
        {{u"shapes"}, u"file:///tb/geometry/+shapes", kExact, true},
        {{u"+shapes"}, u"file:///tb/geometry/+shapes", kExact, true},
        {{u"geometry", u"@shapes"}, u"file:///tb/geometry/+shapes", kExact, false},
        {{u"Shapes"}, u"file:///tb/geometry/+shapes", kExact, false},
        {{u"GEOMETRY", u"Shapes"}, u"file:///tb/geometry/+shapes", kIgnoreCase, true},
        // A match may begin below class, private and resources folders, not below a "+" folder.
        {{u"Polygon"}, u"file:///tb/geometry/+shapes/@Polygon", kExact, false},
        {{u"shapes", u"Polygon"}, u"file:///tb/geometry/+shapes/@Polygon", kExact, true},
        {{u"inner"}, u"file:///tb/stats/@Sample/private/inner", kExact, true},
        {{u"inner"}, u"file:///tb/+pkg/resources/@c/inner", kExact, false},
        {{u"c", u"inner"}, u"file:///@c/inner", kExact, true},
        {{}, u"file:///tb/+pkg", kExact, false},
        // Every part must find its folder.
        {{u"x", u"tb", u"geometry"}, u"file:///tb/geometry", kExact, false},
        {{u"tb", u"x"}, u"file:///tb/geometry", kExact, false},
        // Folders as the location shows them, escapes decoded.
        {{u"my tb"}, u"file:///home/my%20tb", kExact, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Trace(c.parts, c.location));
        const auto entry = FakeEntry::Make(c.location);
        EXPECT_EQ(DoesPartialPathnameMatchPathEntryIRI(c.parts, entry, c.policy), c.expected);
        Compared(*entry, c.policy);
    }
}

// geometry (main) > +shapes > @Polygon > private, geometry > private, and a main entry /tb/+odd.
struct Geometry {
    std::shared_ptr<FakeEntry> geometry = Entry(u"tb/geometry");
    std::shared_ptr<FakeEntry> shapes =
        Entry(u"tb/geometry/+shapes", {}, PathEntryType::PlusFolder);
    std::shared_ptr<FakeEntry> polygon =
        Entry(u"tb/geometry/+shapes/@Polygon", {}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> inner =
        Entry(u"tb/geometry/+shapes/@Polygon/private", {}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> hidden =
        Entry(u"tb/geometry/private", {}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> odd = Entry(u"tb/+odd");
    std::shared_ptr<FakePath> path;

    Geometry() {
        polygon->AddChild(inner);
        shapes->AddChild(polygon);
        geometry->AddChild(shapes);
        geometry->AddChild(hidden);
        path = FakePath::Make({geometry, odd});
    }
};

TEST(LenientMatchOnPath, WalksTheEntriesThenTheMainEntrysFolders) {
    const struct {
        Words parts;
        std::shared_ptr<FakeEntry> Geometry::*entry;
        FilenameMatchingPolicy policy;
        bool expected;
    } cases[] = {
        // +shapes above is left unnamed.
        {{u"Polygon"}, &Geometry::polygon, kExact, false},
        {{u"private"}, &Geometry::inner, kExact, false},
        {{u"shapes", u"Polygon"}, &Geometry::polygon, kExact, true},
        {{u"SHAPES", u"polygon"}, &Geometry::polygon, kIgnoreCase, true},
        {{u"SHAPES", u"polygon"}, &Geometry::polygon, kDefault, false},
        {{u"TB", u"Geometry", u"Shapes"}, &Geometry::shapes, kIgnoreCase, true},
        {{u"tb", u"geometry", u"+shapes", u"@Polygon"}, &Geometry::polygon, kExact, true},
        {{u"x", u"geometry", u"shapes", u"Polygon"}, &Geometry::polygon, kExact, false},
        {{u"a", u"tb", u"geometry"}, &Geometry::geometry, kExact, false},
        {{}, &Geometry::shapes, kExact, false},
        {{}, &Geometry::hidden, kExact, true},
        // At a main entry the folder names compare plainly, its own included.
        {{u"odd"}, &Geometry::odd, kExact, false},
        {{u"+odd"}, &Geometry::odd, kExact, true},
    };
    for (const auto& c : cases) {
        Geometry tree;
        const auto& entry = tree.*c.entry;
        SCOPED_TRACE(Trace(c.parts, entry->GetAbsoluteIRI().toString()));
        EXPECT_EQ(DoesPartialPathnameMatchPathEntryIRI(*tree.path, c.parts, entry, c.policy),
                  c.expected);
        for (const auto& e :
             {tree.geometry, tree.shapes, tree.polygon, tree.inner, tree.hidden, tree.odd})
            Compared(*e, c.policy);
    }
}

TEST(StrictMatchOnPathString, EachRule) {
    const NameMatcher& ignoringCase = *GetNameMatcher(kIgnoreCase);
    const struct {
        Words parts;
        ustring folderPath;
        bool expected;
    } cases[] = {
        // "+", "@" and private folders compare exactly, however lenient the comparator.
        {{u"+shapes"}, u"/tb/geometry/+shapes", true},
        {{u"shapes"}, u"/tb/geometry/+shapes", false},
        {{u"+Shapes"}, u"/tb/geometry/+shapes", false},
        {{u"Polygon"}, u"/tb/stats/@Polygon", true},
        {{u"@Polygon"}, u"/tb/stats/@Polygon", true},
        {{u"polygon"}, u"/tb/stats/@Polygon", false},
        {{u"@polygon"}, u"/tb/stats/@Polygon", false},
        {{u"Private"}, u"/tb/geometry/private", false},
        // Other folders, resources included, are the comparator's.
        {{u"RESOURCES"}, u"/tb/geometry/resources", true},
        // No special folder may be skipped.
        {{u"Polygon"}, u"/tb/geometry/+shapes/@Polygon", false},
        {{u"+shapes", u"Polygon"}, u"/tb/geometry/+shapes/@Polygon", true},
        {{u"private"}, u"/tb/stats/@Sample/private", false},
        {{u"@Sample", u"private"}, u"/tb/stats/@Sample/private", true},
        {{}, u"", true},
        {{}, u"/tb/geometry/+shapes", false},
        {{u"x", u"tb", u"geometry"}, u"/tb/geometry", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Trace(c.parts, c.folderPath));
        EXPECT_EQ(DoesPartialPathnameStrictlyMatchPathString(c.parts, c.folderPath, ignoringCase),
                  c.expected);
    }
    // Special folders never call the comparator.
    EXPECT_TRUE(DoesPartialPathnameStrictlyMatchPathString(Words{u"+shapes"}, u"/tb/+shapes", {}));
    EXPECT_THROW(
        DoesPartialPathnameStrictlyMatchPathString(Words{u"tb", u"+shapes"}, u"/tb/+shapes", {}),
        std::bad_function_call);
}

TEST(StrictMatchOnEntry, UsesTheEntrysComparatorForTheCallersPolicy) {
    for (const auto policy : {kIgnoreCase, kExact}) {
        SCOPED_TRACE(static_cast<int>(policy));
        const auto entry = FakeEntry::Make(u"file:///home/my%20tb");
        EXPECT_EQ(DoesPartialPathnameStrictlyMatchPathEntryIRI(Words{u"My TB"}, *entry, policy),
                  policy == kIgnoreCase);
        EXPECT_EQ(Compared(*entry, policy), Log{"match(My TB,my tb)"});
    }
}

}  // namespace
