// Partial pathnames against entries and folder paths. The entries here hand out a comparator that
// records every pair it is asked about and the policy it was made for, and ignores case only for
// FilenameMatchingPolicy::IgnoreCase: so which comparator is used, with which policy and in which
// argument order, shows in the results and in the record.

#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/partial_pathname.hpp>
#include <velmora/text/ustring.hpp>

namespace {

using namespace Velmora::PathManagement;
using foundation::storage::vfs::AbsoluteIRI;
using Calls = std::vector<std::pair<ustring, ustring>>;
using Words = std::vector<ustring>;

struct Record {
    Calls calls;
    std::vector<FilenameMatchingPolicy> policies;
};

NameMatcher Recording(Record& record, bool ignoreCase) {
    return [&record, ignoreCase](const ustring& a, const ustring& b) {
        record.calls.emplace_back(a, b);
        return ignoreCase ? Velmora::text::EqualsIgnoringCase(a, b) : a == b;
    };
}

class Entry final : public IPathEntry {
  public:
    Entry(const std::string& iri, Record& record, PathEntryType kind = PathEntryType::Ordinary)
        : m_iri(ustring(iri.begin(), iri.end())), m_kind(kind), m_record(record) {}

    PathEntryType GetPathEntryType() const override { return m_kind; }
    SharedNameMatcher GetExtensionMatcher(FilenameMatchingPolicy policy) const override {
        m_record.policies.push_back(policy);
        return std::make_shared<NameMatcher>(
            Recording(m_record, policy == FilenameMatchingPolicy::IgnoreCase));
    }
    AbsoluteIRI GetAbsoluteIRI() const override { return m_iri; }
    foundation::storage::vfs::CanonicalAbsoluteIRI GetCanonicalAbsoluteIRI() const override {
        throw std::logic_error("not asked");
    }
    std::shared_ptr<const PathItemVector> GetItems() const override { return nullptr; }
    PathEntryPtr GetPrivateSubEntry() const override { return nullptr; }
    PathEntryPtr GetSpecialSubEntry2() const override { return nullptr; }
    PathEntryPtr GetSpecialSubEntry3() const override { return nullptr; }
    PathEntryPtr GetSpecialSubEntry4() const override { return nullptr; }
    PathEntryPtr GetSpecialSubEntry5() const override { return nullptr; }
    std::shared_ptr<const PathItem> FindFile(const detail::SearchTarget&,
                                             FilenameMatchingPolicy) const override {
        return nullptr;
    }
    bool ForEachEntry(SearchScope, const EntryCallback&) const override { return false; }
    ustring GetName() const override { return m_iri.getName(); }
    SharedPathEntryVector GetSubEntries() const override { return nullptr; }

  private:
    AbsoluteIRI m_iri;
    PathEntryType m_kind;
    Record& m_record;
};

// A path that knows only the parents of its entries.
class ParentsOnly final : public IPath {
  public:
    std::map<const IPathEntry*, PathEntryPtr> parents;

    PathEntryPtr GetParentEntryForEntry(const IPathEntry& entry) const override {
        const auto it = parents.find(&entry);
        return it == parents.end() ? nullptr : it->second;
    }
    SharedPathEntryVector GetMainEntries() const override { return nullptr; }
    PathEntryVector GetMethodEntries() const override { return {}; }
    PathEntryVector GetMethodEntriesByName(SearchScope, const ustring&,
                                           FilenameMatchingPolicy) const override {
        return {};
    }
    PathEntryVector GetPartiallyMatchingEntries(SearchScope, const ustring&,
                                                FilenameMatchingPolicy) const override {
        return {};
    }
    PathEntryPtr GetMainEntryForEntry(const IPathEntry&) const override { return nullptr; }
    PathEntryPtr GetPathEntryFromAbsoluteIRI(const AbsoluteIRI&,
                                             FilenameMatchingPolicy) const override {
        return nullptr;
    }
    PathEntryPtr GetPathEntryFromAbsoluteIRI(
        const foundation::storage::vfs::CanonicalAbsoluteIRI&) const override {
        return nullptr;
    }
    OptionalFoundItem FindFirstInScope(SearchScope, const detail::SearchTarget&,
                                       FilenameMatchingPolicy) const override {
        return boost::none;
    }
    std::vector<FoundItem> FindAllInScope(SearchScope, const detail::SearchTarget&,
                                          FilenameMatchingPolicy) const override {
        return {};
    }
    bool ForEachEntry(SearchScope, const EntryCallback&) const override { return false; }
    bool ConcurrentForEachEntry(SearchScope, const EntryCallback&) const override { return false; }
    bool FirstEntryIsBeforeSecondOnPath(const IPathEntry&, const IPathEntry&) const override {
        return false;
    }
    bool IsEntryOnPath(const IPathEntry&) const override { return true; }
};

constexpr auto kExact = FilenameMatchingPolicy::Exact;
constexpr auto kIgnoreCase = FilenameMatchingPolicy::IgnoreCase;

TEST(SplitPartialPathname, KeepsTheNonEmptyPiecesAsTheyStand) {
    const struct {
        ustring text;
        Words parts;
    } cases[] = {
        {u"", {}},
        {u"///", {}},
        {u"mean", {u"mean"}},
        {u"/a//+b/@c.d/", {u"a", u"+b", u"@c.d"}},
        {u" x /y", {u" x ", u"y"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        const auto parts = SplitPartialPathname(c.text);
        EXPECT_EQ(Words(parts.begin(), parts.end()), c.parts);
    }
}

struct Case {
    Words parts;
    std::string location;
    FilenameMatchingPolicy policy;
    bool expected;
};

std::string Trace(const Case& c) {
    std::string parts;
    for (const auto& p : c.parts)
        parts += Velmora::text::ToNative(p) + "/";
    return parts + " in " + c.location;
}

TEST(LenientMatchOnEntry, EachRule) {
    const Case cases[] = {
        // "+" and "@" may be left out; the caller's policy decides case.
        {{u"shapes"}, "file:///tb/geometry/+shapes", kExact, true},
        {{u"+shapes"}, "file:///tb/geometry/+shapes", kExact, true},
        {{u"Shapes"}, "file:///tb/geometry/+shapes", kExact, false},
        {{u"Shapes"}, "file:///tb/geometry/+shapes", kIgnoreCase, true},
        {{u"GEOMETRY", u"shapes"}, "file:///tb/geometry/+shapes", kIgnoreCase, true},
        {{u"geometry", u"@shapes"}, "file:///tb/geometry/+shapes", kExact, false},
        // A match may begin below class, private and resources folders, not below a "+" folder.
        {{u"Polygon"}, "file:///tb/geometry/+shapes/@Polygon", kExact, false},
        {{u"shapes", u"Polygon"}, "file:///tb/geometry/+shapes/@Polygon", kExact, true},
        {{u"inner"}, "file:///tb/stats/@Sample/private/inner", kExact, true},
        {{u"inner"}, "file:///tb/+pkg/resources/@c/inner", kExact, false},
        {{u"inner"}, "file:///+pkg/@c/inner", kExact, false},
        {{u"c", u"inner"}, "file:///@c/inner", kExact, true},
        {{}, "file:///tb/+pkg", kExact, false},
        {{}, "file:///tb/@cls", kExact, true},
        // Every part must find a folder.
        {{u"tb", u"geometry"}, "file:///tb/geometry", kExact, true},
        {{u"x", u"tb", u"geometry"}, "file:///tb/geometry", kExact, false},
        {{u"tb", u"x"}, "file:///tb/geometry", kExact, false},
        // Folders as the location shows them, escapes decoded.
        {{u"my tb"}, "file:///home/my%20tb", kExact, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Trace(c));
        Record record;
        const auto entry = std::make_shared<Entry>(c.location, record);
        EXPECT_EQ(DoesPartialPathnameMatchPathEntryIRI(c.parts, entry, c.policy), c.expected);
        // One comparator, the entry's, made for the caller's policy.
        EXPECT_THAT(record.policies, testing::Each(c.policy));
    }
}

TEST(LenientMatchOnEntry, AsksThePartFirstThenTheNameWithoutItsPrefix) {
    Record record;
    const Words parts = {u"Shapes"};
    EXPECT_TRUE(DoesPartialPathnameMatchPathEntryIRI(
        parts, std::make_shared<Entry>("file:///tb/+shapes", record), kIgnoreCase));
    EXPECT_EQ(record.calls, (Calls{{u"Shapes", u"+shapes"}, {u"Shapes", u"shapes"}}));
}

// geometry (main) > +shapes > @Polygon, geometry > private, and a main entry /tb/+odd.
struct Tree {
    Record record;
    ParentsOnly path;
    std::shared_ptr<Entry> geometry = std::make_shared<Entry>("file:///tb/geometry", record);
    std::shared_ptr<Entry> shapes =
        std::make_shared<Entry>("file:///tb/geometry/+shapes", record, PathEntryType::PlusFolder);
    std::shared_ptr<Entry> polygon = std::make_shared<Entry>("file:///tb/geometry/+shapes/@Polygon",
                                                             record, PathEntryType::AtFolder);
    std::shared_ptr<Entry> hidden = std::make_shared<Entry>("file:///tb/geometry/private", record,
                                                            PathEntryType::PrivateFolder);
    std::shared_ptr<Entry> odd = std::make_shared<Entry>("file:///tb/+odd", record);

    Tree() {
        path.parents[shapes.get()] = geometry;
        path.parents[polygon.get()] = shapes;
        path.parents[hidden.get()] = geometry;
    }
};

TEST(LenientMatchOnPath, WalksTheEntriesThenTheMainEntrysFolders) {
    const struct {
        Words parts;
        std::shared_ptr<Entry> Tree::*entry;
        FilenameMatchingPolicy policy;
        bool expected;
    } cases[] = {
        {{u"Polygon"}, &Tree::polygon, kExact, false},  // +shapes above is left unnamed
        {{u"shapes", u"Polygon"}, &Tree::polygon, kExact, true},
        {{u"SHAPES", u"polygon"}, &Tree::polygon, kIgnoreCase, true},
        {{u"SHAPES", u"polygon"}, &Tree::polygon, kExact, false},
        {{u"tb", u"geometry", u"+shapes", u"@Polygon"}, &Tree::polygon, kExact, true},
        {{u"x", u"geometry", u"shapes", u"Polygon"}, &Tree::polygon, kExact, false},
        {{u"private"}, &Tree::hidden, kExact, true},
        {{u"tb", u"geometry"}, &Tree::geometry, kExact, true},
        {{u"a", u"tb", u"geometry"}, &Tree::geometry, kExact, false},
        {{u"TB", u"Geometry"}, &Tree::geometry, kIgnoreCase, true},
        {{}, &Tree::shapes, kExact, false},
        {{}, &Tree::hidden, kExact, true},
        // At a main entry the folder names compare plainly, its own included.
        {{u"odd"}, &Tree::odd, kExact, false},
        {{u"+odd"}, &Tree::odd, kExact, true},
    };
    for (const auto& c : cases) {
        Tree tree;
        const auto& entry = tree.*c.entry;
        SCOPED_TRACE(Trace({c.parts, Velmora::text::ToNative(entry->GetAbsoluteIRI().toString()),
                            c.policy, c.expected}));
        EXPECT_EQ(DoesPartialPathnameMatchPathEntryIRI(tree.path, c.parts, entry, c.policy),
                  c.expected);
        EXPECT_THAT(tree.record.policies, testing::Each(c.policy));
    }
}

TEST(LenientMatchOnPath, AsksTheMainEntrysFoldersNameFirst) {
    Tree tree;
    const Words parts = {u"TB", u"Geometry", u"Shapes"};
    EXPECT_TRUE(DoesPartialPathnameMatchPathEntryIRI(tree.path, parts, tree.shapes, kIgnoreCase));
    EXPECT_EQ(tree.record.calls, (Calls{{u"Shapes", u"+shapes"},
                                        {u"Shapes", u"shapes"},
                                        {u"Geometry", u"geometry"},
                                        {u"geometry", u"Geometry"},
                                        {u"tb", u"TB"}}));
}

TEST(StrictMatchOnPathString, EachRule) {
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
        {{u"private"}, u"/tb/geometry/private", true},
        {{u"Private"}, u"/tb/geometry/private", false},
        // Other folders, resources included, are the comparator's.
        {{u"Geometry"}, u"/tb/geometry", true},
        {{u"RESOURCES"}, u"/tb/geometry/resources", true},
        // No special folder may be skipped.
        {{u"Polygon"}, u"/tb/geometry/+shapes/@Polygon", false},
        {{u"x"}, u"/+p/x", false},
        {{u"+shapes", u"Polygon"}, u"/tb/geometry/+shapes/@Polygon", true},
        {{u"private"}, u"/tb/stats/@Sample/private", false},
        {{u"@Sample", u"private"}, u"/tb/stats/@Sample/private", true},
        {{}, u"/tb/geometry", true},
        {{}, u"", true},
        {{}, u"/tb/geometry/+shapes", false},
        {{u"tb", u"geometry"}, u"/tb/geometry", true},
        {{u"x", u"tb", u"geometry"}, u"/tb/geometry", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Trace({c.parts, Velmora::text::ToNative(c.folderPath), kExact, c.expected}));
        Record record;
        EXPECT_EQ(DoesPartialPathnameStrictlyMatchPathString(c.parts, c.folderPath,
                                                             Recording(record, true)),
                  c.expected);
    }
}

TEST(StrictMatchOnPathString, AsksThePartFirstAndNeedsAComparatorOnlyForOrdinaryFolders) {
    Record record;
    const Words parts = {u"TB", u"+shapes"};
    EXPECT_TRUE(
        DoesPartialPathnameStrictlyMatchPathString(parts, u"/tb/+shapes", Recording(record, true)));
    EXPECT_EQ(record.calls, (Calls{{u"TB", u"tb"}}));

    const Words plus = {u"+shapes"};
    EXPECT_TRUE(DoesPartialPathnameStrictlyMatchPathString(plus, u"/tb/+shapes", NameMatcher()));
    EXPECT_THROW(DoesPartialPathnameStrictlyMatchPathString(parts, u"/tb/+shapes", NameMatcher()),
                 std::bad_function_call);
}

TEST(StrictMatchOnEntry, UsesTheEntrysComparatorForTheCallersPolicy) {
    const Case cases[] = {
        {{u"My TB"}, "file:///home/my%20tb", kIgnoreCase, true},
        {{u"My TB"}, "file:///home/my%20tb", kExact, false},
        {{u"my tb"}, "file:///home/my%20tb", kExact, true},
        {{u"shapes"}, "file:///tb/+shapes", kIgnoreCase, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Trace(c));
        Record record;
        EXPECT_EQ(DoesPartialPathnameStrictlyMatchPathEntryIRI(c.parts, Entry(c.location, record),
                                                               c.policy),
                  c.expected);
        EXPECT_EQ(record.policies, std::vector<FilenameMatchingPolicy>{c.policy});
    }
}

}  // namespace
