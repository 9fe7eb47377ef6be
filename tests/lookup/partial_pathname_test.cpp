// Partial pathnames against entries and folder paths. The fake entries log the policy of every
// comparator they hand out and each comparison it makes, so which comparator is used, for which
// policy and in which argument order shows in the log.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/text/ustring.hpp>

#include "support/fake_path.hpp"

namespace {

using namespace Velmora::PathManagement;
using vpath_test::FakeEntry;
using vpath_test::FakePath;
using Words = std::vector<ustring>;
using Log = std::vector<std::string>;

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
struct Tree {
    std::shared_ptr<FakeEntry> geometry = FakeEntry::Make(u"file:///tb/geometry");
    std::shared_ptr<FakeEntry> shapes =
        FakeEntry::Make(u"file:///tb/geometry/+shapes", {}, PathEntryType::PlusFolder);
    std::shared_ptr<FakeEntry> polygon =
        FakeEntry::Make(u"file:///tb/geometry/+shapes/@Polygon", {}, PathEntryType::AtFolder);
    std::shared_ptr<FakeEntry> inner = FakeEntry::Make(
        u"file:///tb/geometry/+shapes/@Polygon/private", {}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> hidden =
        FakeEntry::Make(u"file:///tb/geometry/private", {}, PathEntryType::PrivateFolder);
    std::shared_ptr<FakeEntry> odd = FakeEntry::Make(u"file:///tb/+odd");
    std::shared_ptr<FakePath> path;

    Tree() {
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
        std::shared_ptr<FakeEntry> Tree::*entry;
        FilenameMatchingPolicy policy;
        bool expected;
    } cases[] = {
        // +shapes above is left unnamed.
        {{u"Polygon"}, &Tree::polygon, kExact, false},
        {{u"private"}, &Tree::inner, kExact, false},
        {{u"shapes", u"Polygon"}, &Tree::polygon, kExact, true},
        {{u"SHAPES", u"polygon"}, &Tree::polygon, kIgnoreCase, true},
        {{u"SHAPES", u"polygon"}, &Tree::polygon, kDefault, false},
        {{u"TB", u"Geometry", u"Shapes"}, &Tree::shapes, kIgnoreCase, true},
        {{u"tb", u"geometry", u"+shapes", u"@Polygon"}, &Tree::polygon, kExact, true},
        {{u"x", u"geometry", u"shapes", u"Polygon"}, &Tree::polygon, kExact, false},
        {{u"a", u"tb", u"geometry"}, &Tree::geometry, kExact, false},
        {{}, &Tree::shapes, kExact, false},
        {{}, &Tree::hidden, kExact, true},
        // At a main entry the folder names compare plainly, its own included.
        {{u"odd"}, &Tree::odd, kExact, false},
        {{u"+odd"}, &Tree::odd, kExact, true},
    };
    for (const auto& c : cases) {
        Tree tree;
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
