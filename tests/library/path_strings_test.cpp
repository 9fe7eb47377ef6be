// Cutting path-list texts into folder texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_strings.hpp>

namespace {

using Velmora::PathManagement::SplitVorlanPath;

TEST(SplitVorlanPath, CutsAtBothSeparatorsAndDropsEmptyPieces) {
    struct Case {
        ustring text;
        std::vector<ustring> folders;
    };
    const Case cases[] = {
        {u"", {}},
        {u";", {}},
        {u";;;", {}},
        {u"::;:", {}},
        {u"a;b", {u"a", u"b"}},
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
