#include <fl/filesystem/path.hpp>

#include <vector>

#include <gtest/gtest.h>

namespace {

namespace detail = fl::filesystem::detail;

TEST(FilesystemPath, NativeFormRootAndExtension) {
    struct Case {
        ustring text;
        ustring stripped;  // make_native_form(text, true)
        ustring kept;      // make_native_form(text, false)
        ustring root;
        ustring extension;
    };
    const std::vector<Case> cases = {
        {u"//home///ada//", u"/home/ada", u"/home/ada/", u"/", u""},
        {u"/", u"/", u"/", u"/", u""},
        {u"///", u"/", u"/", u"/", u""},
        {u"", u"", u"", u"", u""},
        {u"tb/area.vl", u"tb/area.vl", u"tb/area.vl", u"", u".vl"},
        {u"a/b.tar.GZ", u"a/b.tar.GZ", u"a/b.tar.GZ", u"", u".GZ"},
        {u"a.b/c", u"a.b/c", u"a.b/c", u"", u""},  // a dot in a folder name is no extension
        {u"a.b/", u"a.b", u"a.b/", u"", u""},
        {u"tb/.profile", u"tb/.profile", u"tb/.profile", u"", u""},
        {u"notes.", u"notes.", u"notes.", u"", u"."},
        {u"./a/..", u"./a/..", u"./a/..", u"", u""},  // dot segments are left to the file system
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(Velmora::text::ToNative(c.text)));
        EXPECT_EQ(detail::make_native_form(c.text, true), c.stripped);
        EXPECT_EQ(detail::make_native_form(c.text, false), c.kept);
        EXPECT_EQ(detail::extract_root_path(c.text), c.root);
        EXPECT_EQ(detail::extract_extension(c.text), c.extension);
    }
}

}  // namespace
