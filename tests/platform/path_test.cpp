#include <fl/filesystem/path.hpp>

#include <tuple>

#include <gtest/gtest.h>

namespace {

namespace detail = fl::filesystem::detail;

TEST(FilesystemPath, NativeFormRootAndExtension) {
    // {text, make_native_form(text, true), make_native_form(text, false), root, extension}
    const std::tuple<ustring, ustring, ustring, ustring, ustring> cases[] = {
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
    for (const auto& [text, stripped, kept, root, extension] : cases) {
        SCOPED_TRACE(testing::PrintToString(Velmora::text::ToNative(text)));
        EXPECT_EQ(detail::make_native_form(text, true), stripped);
        EXPECT_EQ(detail::make_native_form(text, false), kept);
        EXPECT_EQ(detail::extract_root_path(text), root);
        EXPECT_EQ(detail::extract_extension(text), extension);
    }
}

}  // namespace
