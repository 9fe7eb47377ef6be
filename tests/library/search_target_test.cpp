// Search targets built from names, the kinds of folders by their names, and path-list texts cut
// into folder texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/pathmanagement/search_target.hpp>

namespace {

using namespace Velmora::PathManagement;
using ::testing::ElementsAre;

TEST(PathEntryType, FromBaseName) {
    struct Case {
        ustring name;
        PathEntryType expected;
    };
    const Case cases[] = {
        {u"+", PathEntryType::PlusFolder},
        {u"+shapes", PathEntryType::PlusFolder},
        {u"@", PathEntryType::AtFolder},
        {u"a+b", PathEntryType::Ordinary},
        {u"private", PathEntryType::PrivateFolder},
        {u"privates", PathEntryType::Ordinary},
        {u"Private", PathEntryType::Ordinary},
        {u"resources", PathEntryType::ResourcesFolder},
        {u"resourcesX", PathEntryType::Ordinary},
        {u"Resources", PathEntryType::Ordinary},
        {u"", PathEntryType::Ordinary},
        {ustring(u"private\0", 8), PathEntryType::Ordinary},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.name));
        EXPECT_EQ(GetPathEntryTypeFromBaseName(c.name), c.expected);
    }
    // The numbers are part of the contract: scopes list them.
    EXPECT_EQ(static_cast<std::uint32_t>(PathEntryType::ResourcesFolder), 5u);
    EXPECT_EQ(static_cast<std::uint32_t>(PathEntryType::PrivateFolder), 3u);
}

TEST(SearchTarget, ExtensionInTheNameWins) {
    const std::vector<ustring> exts = {u".vlx", u".vlp", u".vl"};
    struct Case {
        ustring name;
        std::vector<ustring> extensions;
        ustring baseName;
        std::vector<ustring> expectedExtensions;
    };
    const Case cases[] = {
        // The name's own extension; the list is not consulted.
        {u"area.vl", exts, u"area", {u".vl"}},
        {u"archive.tar.gz", exts, u"archive.tar", {u".gz"}},
        {u"shapes/circle.vlp", exts, u"shapes/circle", {u".vlp"}},
        // A name ending in "." looks for that exact name less nothing but the dot, even where the
        // file-system layer sees no extension.
        {u"notes.", exts, u"notes", {u"."}},
        {u"..", exts, u".", {u"."}},
        // A trailing separator is no part of the name's extension: the "/" comes last.
        {u"dir.d/", exts, u"dir.d/", {u""}},
        // No extension and no list: the exact name.
        {u"Readme", {}, u"Readme", {u""}},
        // A dot inside a folder name is no extension: with no list, the exact name.
        {u"v1.2/area", {}, u"v1.2/area", {u""}},
        // A leading dot names a hidden file, not an extension.
        {u".profile", exts, u".profile", {u".vlx", u".vlp", u".vl"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.name));
        const auto t = CreateSearchTargetWithExtensionInFilenamePreferred(c.name, c.extensions);
        EXPECT_EQ(*t.baseName, c.baseName);
        EXPECT_EQ(*t.extensions, c.expectedExtensions);
    }
}

TEST(SearchTarget, BorrowsWhenTheListDecides) {
    const std::vector<ustring> exts = {u".vl", u".vlx"};
    // The caller's name and list themselves, in the caller's order; nothing owned.
    const ustring plain = u"area";
    const auto borrowing = CreateSearchTargetWithExtensionInFilenamePreferred(plain, exts);
    EXPECT_EQ(borrowing.baseName, &plain);
    EXPECT_EQ(borrowing.extensions, &exts);
    EXPECT_FALSE(borrowing.IsOwning());
    // A dot followed by a folder separator is part of a folder name.
    const ustring dotted = u"v1.2/area";
    const auto dottedTarget = CreateSearchTargetWithExtensionInFilenamePreferred(dotted, exts);
    EXPECT_EQ(dottedTarget.baseName, &dotted);
}

TEST(SearchTarget, CopiesAndMovesPointIntoTheirOwnStorage) {
    const std::vector<ustring> exts = {u".vl"};
    const ustring name = u"area.vlp", plain = u"plain";
    const auto original = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
    auto source = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
    detail::SearchTarget copied(original), moved(std::move(source));
    detail::SearchTarget copyAssigned(plain, exts), moveAssigned(plain, exts);
    copyAssigned = original;
    moveAssigned = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
    for (const detail::SearchTarget* t : {&copied, &moved, &copyAssigned, &moveAssigned}) {
        EXPECT_EQ(t->baseName, &*t->ownedBaseName);
        EXPECT_EQ(t->extensions, &*t->ownedExtensions);
        EXPECT_EQ(*t->baseName, u"area");
        EXPECT_THAT(*t->extensions, ElementsAre(u".vlp"));
    }
    // Assigning a borrowing target makes the target borrow again.
    moveAssigned = detail::SearchTarget(plain, exts);
    EXPECT_FALSE(moveAssigned.IsOwning());
    EXPECT_EQ(moveAssigned.baseName, &plain);
}

// Cutting path-list texts into folder texts.

TEST(SplitVorlanPath, CutsAtBothSeparatorsAndDropsEmptyPieces) {
    struct Case {
        ustring text;
        std::vector<ustring> folders;
    };
    const Case cases[] = {
        {u"", {}},
        {u";", {}},
        {u"::;:", {}},
        {u"a;b:c", {u"a", u"b", u"c"}},
        {u";a;;b;", {u"a", u"b"}},
        // Blanks belong to folder names; nothing is trimmed.
        {u" a ; b ", {u" a ", u" b "}},
        // No escapes: a separator inside a folder name splits it.
        {u"/srv/a:b/tb", {u"/srv/a", u"b/tb"}},
        // Nothing else is changed: no case, no conversion.
        {u"file:///A/B;Tb", {u"file", u"///A/B", u"Tb"}},
        {u"caf\u00e9;\xDCFF", {u"caf\u00e9", u"\xDCFF"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Velmora::text::ToNative(c.text));
        EXPECT_EQ(SplitVorlanPath(c.text), c.folders);
    }
}

}  // namespace
