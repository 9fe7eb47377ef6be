// Search targets built from names, and the kinds of folders by their names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathinterfaces/constants.hpp>
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
        // A name ending in "." looks for that exact name less nothing but the dot.
        {u"notes.", exts, u"notes", {u"."}},
        // No extension and no list: the exact name.
        {u"Readme", {}, u"Readme", {u""}},
        {u"", {}, u"", {u""}},
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
    {
        // The caller's name and list themselves, in the caller's order; nothing owned.
        const ustring name = u"area";
        const auto t = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
        EXPECT_EQ(t.baseName, &name);
        EXPECT_EQ(t.extensions, &exts);
        EXPECT_FALSE(t.IsOwning());
    }
    {
        // A dot followed by a folder separator is part of a folder name.
        const ustring name = u"v1.2/area";
        const auto t = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
        EXPECT_EQ(t.baseName, &name);
    }
}

TEST(SearchTarget, CopiesAndMovesPointIntoTheirOwnStorage) {
    const std::vector<ustring> exts = {u".vl"};
    const ustring name = u"area.vlp";
    auto original = CreateSearchTargetWithExtensionInFilenamePreferred(name, exts);
    ASSERT_TRUE(original.IsOwning());
    EXPECT_EQ(original.baseName, &*original.ownedBaseName);
    {
        // A copy points at its own storage, not the original's.
        const auto copy = original;
        EXPECT_EQ(copy.baseName, &*copy.ownedBaseName);
        EXPECT_EQ(copy.extensions, &*copy.ownedExtensions);
        EXPECT_EQ(*copy.baseName, u"area");
        EXPECT_THAT(*copy.extensions, ElementsAre(u".vlp"));
    }
    {
        // So does a move, and the target survives the source's destruction.
        detail::SearchTarget moved = std::move(original);
        EXPECT_EQ(moved.baseName, &*moved.ownedBaseName);
        EXPECT_EQ(*moved.baseName, u"area");
        std::vector<detail::SearchTarget> many;
        for (int i = 0; i < 40; ++i)
            many.push_back(moved);  // reallocations move them
        for (const auto& t : many)
            EXPECT_EQ(t.baseName, &*t.ownedBaseName);
    }
    {
        // Assignment re-seats too, in both directions.
        const ustring plain = u"plain";
        detail::SearchTarget borrowing(plain, exts);
        auto owning = CreateSearchTargetWithExtensionInFilenamePreferred(u"x.vl", exts);
        borrowing = owning;
        EXPECT_EQ(borrowing.baseName, &*borrowing.ownedBaseName);
        owning = detail::SearchTarget(plain, exts);
        EXPECT_FALSE(owning.IsOwning());
        EXPECT_EQ(owning.baseName, &plain);
    }
}

}  // namespace
