// Text at the OS boundary, resource identifiers and file-system path helpers.

#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <fl/filesystem/path.hpp>
#include <foundation/storage/utility/url.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/text/ustring.hpp>

#include "platform/native_bytes_gen.hpp"

namespace {

using foundation::storage::utility::decodeURL;
using foundation::storage::utility::normalizeURL;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using foundation::storage::vfs::fromAbsoluteIRI;
using foundation::storage::vfs::InvalidIRIException;
using Velmora::text::EqualsIgnoringCase;
using Velmora::text::FoldCase;
using Velmora::text::FromNative;
using Velmora::text::ToNative;
namespace vfs = foundation::storage::vfs;
namespace detail = fl::filesystem::detail;

// Each byte of `bytes` as the code unit that carries a stray byte.
ustring Escaped(const std::string& bytes) {
    ustring out;
    for (const char b : bytes)
        out.push_back(static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(b)));
    return out;
}

TEST(NativeText, DecodesValidUtf8AndEscapesEveryOtherByte) {
    const std::pair<std::string, ustring> valid[] = {
        {std::string("a\0b", 3), ustring(u"a\0b", 3)},
        {"\xC2\x80\xDF\xBF", u"\u0080\u07FF"},          // two-byte bounds
        {"\xE0\xA0\x80\xED\x9F\xBF", u"\u0800\uD7FF"},  // three-byte, up to the surrogates
        {"\xEE\x80\x80\xEF\xBF\xBF", u"\uE000\uFFFF"},  // three-byte, after them
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},  // four-byte bounds
        {"\xF0\x9F\x92\x80", u"\U0001F480"},  // its low half lies in the escaped-byte range
    };
    for (const auto& [bytes, text] : valid) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(FromNative(bytes), text);
        EXPECT_EQ(ToNative(text), bytes);
    }
    // Overlong forms, encoded surrogates, values beyond U+10FFFF, cut-off sequences, stray bytes.
    for (const std::string bad : {"\xC0\xAF", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
                                  "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3",
                                  "\xE2\x82", "\xF0\x9F\x98", "\x80", "\xFF", "\xE9"}) {
        SCOPED_TRACE(testing::PrintToString(bad));
        // Between ASCII, and before a valid sequence that decoding must not swallow.
        EXPECT_EQ(FromNative("a" + bad + "b"), u"a" + Escaped(bad) + u"b");
        EXPECT_EQ(FromNative(bad + "\xC3\xA9"), Escaped(bad) + u"\u00E9");
    }
}

TEST(NativeText, RoundTrips) {
    // Every byte string survives, through a text whose only lone surrogates are escapes.
    EXPECT_TRUE(rc::check("bytes round-trip", [] {
        const std::string bytes = *vpath_test::NativeBytes();
        const ustring text = FromNative(bytes);
        RC_ASSERT(ToNative(text) == bytes);
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] >= 0xD800 && text[i] <= 0xDBFF) {
                RC_ASSERT(i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF);
                ++i;
            } else if (text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
                RC_ASSERT(Velmora::text::IsEscapedByte(text[i]));
            }
        }
    }));
    // A lone surrogate that carries no byte is written, not dropped or taken for a byte.
    EXPECT_EQ(ToNative(u"a\xD800"), "a\xED\xA0\x80");
}

TEST(FoldCase, FoldsLettersOnly) {
    const std::pair<ustring, ustring> cases[] = {
        {u"Point.VL @[`{", u"point.vl @[`{"},
        {u"\u00C4\u0391\u041F\u0100", u"\u00E4\u03B1\u043F\u0101"},  // Latin-1, Greek, Cyrillic
        {u"A\xDCC4Z", u"a\xDCC4z"},                                  // escaped byte left alone
        {u"\U00010400", u"\U00010400"},                              // pairs left alone
    };
    for (const auto& [text, folded] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(FoldCase(text), folded);
        EXPECT_TRUE(EqualsIgnoringCase(text, folded));
    }
    // Escaped Latin-1 bytes of "Ä" and "ä" are different bytes, not one letter.
    EXPECT_FALSE(EqualsIgnoringCase(u"\xDCC4", u"\xDCE4"));
    // EqualsIgnoringCase agrees with comparing FoldCase results, on texts often equal in case.
    EXPECT_TRUE(rc::check("agrees with FoldCase", [] {
        const auto letter = rc::gen::elementOf(
            std::vector<char16_t>{u'a', u'A', u'@', u'`', u'\u00E4', u'\u00C4', u'\u03C3',
                                  u'\u03A3', u'\u0416', u'\u0436', u'\xDCC4', u'\xDCE4'});
        const auto a = *rc::gen::container<ustring>(letter);
        ustring b = a;
        for (auto& c : b) {
            if (*rc::gen::arbitrary<bool>())
                c = *letter;
        }
        if (*rc::gen::arbitrary<bool>())
            b += u'a';
        RC_ASSERT(EqualsIgnoringCase(a, b) == (FoldCase(a) == FoldCase(b)));
        RC_ASSERT(FoldCase(FoldCase(a)) == FoldCase(a));
    }));
}

std::string Show(const ustring& text) {
    return testing::PrintToString(ToNative(text));
}

AbsoluteIRI FileIRI(const std::string& nativePath) {
    return vfs::toAbsoluteIRI(u"file", fl::filesystem::path(FromNative(nativePath)));
}

TEST(AbsoluteIRI, NormalisesText) {
    const std::vector<std::pair<ustring, ustring>> cases = {
        {u"FILE://LocalHost/home", u"file:///home"},
        {u"file:/home//ada///tb/", u"file:///home/ada/tb"},
        {u"file:///", u"file:///"},
        {u"file:///x/%41%7e", u"file:///x/A~"},      // unreserved characters are decoded
        {u"file:///a%2fb%2F", u"file:///a%2Fb%2F"},  // an encoded "/" is part of a name
        {u"file:///my dir", u"file:///my%20dir"},
        {u"file:///50%/%zz/%2", u"file:///50%25/%25zz/%252"},        // "%" starting no escape
        {u"file:///a%25b%23%3F", u"file:///a%25b%23%3F"},            // "%", "#", "?" stay encoded
        {u"file:///\t\u007F\u0085", u"file:///%09%7F%C2%85"},        // control characters
        {u"file:///caf%c3%a9/\u65E5", u"file:///caf\u00E9/\u65E5"},  // non-ASCII is literal
        {u"file:///%F0%9F%98%80", u"file:///\U0001F600"},
        {u"file:///caf%e9/%C3/%ED%A0%80", u"file:///caf%E9/%C3/%ED%A0%80"},  // not UTF-8
        {u"file:///a%C0%AFb", u"file:///a%C0%AFb"},  // an overlong "/" is no separator
        {u"file:///caf\xDCE9", u"file:///caf%E9"},   // an escaped byte is that byte
        {u"file:///%C3\xDCA9", u"file:///\u00E9"},   // bytes of one name decode together
        {u"file:///./a/../b", u"file:///./a/../b"},  // dot segments are kept
        {u"HTTP://example.org/a//b/", u"http://example.org/a/b"},
        {u"http://example.org", u"http://example.org/"},
    };
    for (const auto& [text, normal] : cases) {
        SCOPED_TRACE(Show(text));
        EXPECT_EQ(AbsoluteIRI(text).toString(), normal) << Show(AbsoluteIRI(text).toString());
        // The normal form is a fixed point, and normalizeURL is the same rewrite.
        EXPECT_EQ(AbsoluteIRI(normal).toString(), normal);
        ustring rewritten = text;
        normalizeURL(rewritten);
        EXPECT_EQ(rewritten, normal);
    }
    // Wherever escapes, escaped bytes, "%" and separators meet, the normal form is stable.
    const std::vector<ustring> pieces = {u"/",      u"//",     u"..",         u"a",      u" ",
                                         u"%",      u".",      u"2F",         u"C3",     u"%C3",
                                         u"%A9",    u"%25",    u"%F0%9F",     u"%98%80", u"\xDCC3",
                                         u"\xDCA9", u"\u00E9", u"\U0001F600", u"\u0085"};
    EXPECT_TRUE(rc::check("fixed point", [&] {
        ustring text = u"file:///";
        for (const auto& p : *rc::gen::container<std::vector<ustring>>(rc::gen::elementOf(pieces)))
            text += p;
        const AbsoluteIRI iri(text);
        RC_ASSERT(AbsoluteIRI(iri.toString()).toString() == iri.toString());
        ustring rewritten = text;
        normalizeURL(rewritten);
        RC_ASSERT(iri.toString() == rewritten);
    }));
}

TEST(AbsoluteIRI, RejectsInvalidText) {
    const std::vector<ustring> invalid = {
        // No scheme, or not one followed by "//" (only "file" has the short form "file:/").
        u"", u"tb/x", u"/home/ada", u"file:", u"file:x", u"1file:///a", u"\u00E9:///a", u"http:/x",
        // A query or a fragment.
        u"file:///a?x=1", u"file:///a#top", u"http://h?x/", u"http://h#x/",
        // A host on a file IRI: only local files.
        u"file://host/a", u"file://example.org/",
        // Lone surrogates that stand for no byte, in the path or the authority.
        u"file:///a\xD800", u"file:///\xDC00/x", u"http://h\xD800/x"};
    for (const auto& text : invalid) {
        SCOPED_TRACE(Show(text));
        try {
            AbsoluteIRI{text};
            ADD_FAILURE() << "no exception";
        } catch (const InvalidIRIException& e) {
            EXPECT_EQ(e.GetText(), text);
        }
        ustring copy = text;
        EXPECT_THROW(normalizeURL(copy), InvalidIRIException);
    }
}

TEST(AbsoluteIRI, Accessors) {
    // {IRI, scheme, name, parent, path}
    const std::tuple<ustring, ustring, ustring, ustring, ustring> cases[] = {
        {u"file:///home", u"file", u"home", u"file:///", u"/home"},
        {u"file:///", u"file", u"", u"file:///", u"/"},
        {u"file:///a/b%2Fc", u"file", u"b/c", u"file:///a", u"/a/b/c"},
        {u"file:///a%23b/x%3F%25%20", u"file", u"x?% ", u"file:///a%23b", u"/a#b/x?% "},
        {u"file:///a/caf%E9", u"file", u"caf\xDCE9", u"file:///a", u"/a/caf\xDCE9"},
        {u"HTTP://example.org/a", u"http", u"a", u"http://example.org/", u"/a"},
    };
    for (const auto& [text, scheme, name, parent, path] : cases) {
        SCOPED_TRACE(Show(text));
        const AbsoluteIRI iri(text);
        EXPECT_EQ(iri.getScheme(), scheme);
        EXPECT_EQ(iri.getName(), name);
        EXPECT_EQ(iri.getPath(), path);
        // The parent is cut from the text; it must be the IRI that parsing its text gives.
        EXPECT_EQ(iri.getParent().toString(), parent);
        EXPECT_EQ(iri.getParent(), AbsoluteIRI(parent));
        EXPECT_EQ(iri.getParent().hashValue(), AbsoluteIRI(parent).hashValue());
    }
}

TEST(AbsoluteIRI, ResolvedIRIRemovesDotSegments) {
    const std::vector<std::pair<ustring, ustring>> cases = {
        {u"file:///a/./b/../c", u"file:///a/c"},
        {u"file:///a/b/..", u"file:///a"},
        {u"file:///a/.", u"file:///a"},
        {u"file:///a/b/../../..", u"file:///"},
        {u"file:///a/.b/..c/...", u"file:///a/.b/..c/..."},  // not dot segments
        {u"file:///a/%2E%2E/b", u"file:///b"},               // "%2E" is "."
        {u"file:///x%2F../y", u"file:///x%2F../y"},          // "x/.." is one name
    };
    for (const auto& [text, resolved] : cases) {
        SCOPED_TRACE(Show(text));
        EXPECT_EQ(AbsoluteIRI(text).getResolvedIRI().toString(), resolved);
        // A canonical IRI built directly still drops dot segments, and keeps its origin aside.
        const CanonicalAbsoluteIRI canonical(AbsoluteIRI(text), text);
        EXPECT_EQ(canonical.toString(), resolved);
        EXPECT_EQ(canonical, CanonicalAbsoluteIRI(AbsoluteIRI(resolved), u""));
    }
}

TEST(AbsoluteIRI, ChildNames) {
    const AbsoluteIRI a(u"file:///a");
    const std::vector<std::pair<ustring, ustring>> cases = {
        {u"x/y", u"file:///a/x%2Fy"},  // a "/" in a name never becomes a separator
        {u"b c", u"file:///a/b%20c"},       {u"%41", u"file:///a/%2541"},
        {u"x#y?z", u"file:///a/x%23y%3Fz"}, {u"caf\xDCE9", u"file:///a/caf%E9"},
    };
    for (const auto& [name, child] : cases)
        EXPECT_EQ(a.getChild(name).toString(), child) << Show(name);
    // Any name a file can have comes back from getName, under the root and below.
    EXPECT_TRUE(rc::check("child names round-trip", [&] {
        const std::string bytes = *vpath_test::NativeName();
        RC_PRE(bytes != "." && bytes != "..");
        for (const auto& folder : {AbsoluteIRI(u"file:///"), a}) {
            const AbsoluteIRI child = folder.getChild(FromNative(bytes));
            RC_ASSERT(child.getName() == FromNative(bytes));
            RC_ASSERT(child.getParent() == folder);
        }
    }));
}

TEST(AbsoluteIRI, EqualityOrderingAndHashAgree) {
    // Spellings of one location are one IRI.
    const AbsoluteIRI first(u"FILE://localhost/a//b/");
    for (const auto& same : {AbsoluteIRI(u"file:/a/%62"), FileIRI("/a/b")}) {
        EXPECT_EQ(same, first);
        EXPECT_EQ(same <=> first, std::strong_ordering::equal);
        EXPECT_EQ(std::hash<AbsoluteIRI>{}(same), hash_value(first));
    }
    // Distinct locations: order and equality follow the normal text.
    const std::vector<ustring> texts = {u"file:///a",     u"file:///A",     u"file:///a/b",
                                        u"file:///a%2Fb", u"file:///",      u"http://h/a",
                                        u"file:///%E9",   u"file:///\u00E9"};
    std::vector<AbsoluteIRI> distinct(texts.begin(), texts.end());
    distinct.emplace_back();
    for (const auto& x : distinct) {
        for (const auto& y : distinct) {
            SCOPED_TRACE(Show(x.toString()) + " vs " + Show(y.toString()));
            EXPECT_EQ(x == y, x.toString() == y.toString());
            EXPECT_EQ(x <=> y, x.toString().compare(y.toString()) <=> 0);
        }
    }
    EXPECT_EQ(std::unordered_set<AbsoluteIRI>(distinct.begin(), distinct.end()).size(),
              distinct.size());
}

TEST(NativePathConversion, BothWays) {
    const std::vector<std::pair<std::string, ustring>> cases = {
        {"/", u"file:///"},
        {"/home/ada/my dir", u"file:///home/ada/my%20dir"},
        {"/a/50%/%41/%2F", u"file:///a/50%25/%2541/%252F"},  // a "%" in a name is never an escape
        {"/a/#b?c", u"file:///a/%23b%3Fc"},
        {"/a/caf\xE9/caf\xC3\xA9", u"file:///a/caf%E9/caf\u00E9"},
        {"/a/./b/..", u"file:///a/./b/.."},
    };
    for (const auto& [path, iri] : cases) {
        SCOPED_TRACE(testing::PrintToString(path));
        EXPECT_EQ(FileIRI(path).toString(), iri);
        EXPECT_EQ(ToNative(fromAbsoluteIRI(FileIRI(path))), path);
    }
    // Only absolute paths have an IRI, and only file IRIs a path.
    for (const std::string path : {"", "rel/x", "~/x"})
        EXPECT_THROW(FileIRI(path), InvalidIRIException) << path;
    EXPECT_THROW(fromAbsoluteIRI(AbsoluteIRI(u"http://h/a")), vfs::Exception);
    // Every absolute byte path goes to an IRI and back unchanged.
    EXPECT_TRUE(rc::check("paths round-trip", [] {
        const std::string path = *vpath_test::AbsoluteNativePath();
        const AbsoluteIRI iri = FileIRI(path);
        RC_ASSERT(ToNative(fromAbsoluteIRI(iri)) == path);
        RC_ASSERT(AbsoluteIRI(iri.toString()) == iri);
        // Decoding all but the reserved escapes leaves a text of the same IRI.
        ustring decoded = iri.toString();
        decodeURL(decoded, false);
        RC_ASSERT(AbsoluteIRI(decoded) == iri);
    }));
}

TEST(HasIRIPrefix, TellsIRIsFromPaths) {
    const std::vector<std::pair<ustring, bool>> cases = {
        {u"file:///a", true},  {u"http://h/x", true}, {u"FILE:/a", true},  {u"a+b.c-d://x", true},
        {u"/home/ada", false}, {u"c:/x", false},      {u"tb", false},      {u"", false},
        {u"file:a", false},    {u"http:/x", false},   {u"1ab://x", false}, {u"./file:///x", false},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(vfs::hasIRIPrefix(text), expected) << Show(text);
}

TEST(DecodeURL, WithAndWithoutReservedCharacters) {
    // {text, decoded with decodeReserved true, and false}
    const std::tuple<ustring, ustring, ustring> cases[] = {
        {u"file:///my%20dir/caf%C3%A9", u"file:///my dir/caf\u00E9", u"file:///my dir/caf\u00E9"},
        {u"%2f%23%3F%25", u"/#?%", u"%2F%23%3F%25"},
        {u"%25%41", u"%A", u"%25A"},
        {u"%C3%2F%A9", u"\xDCC3/\xDCA9", u"\xDCC3%2F\xDCA9"},  // bytes that are not UTF-8
        {u"50%/%zz%4", u"50%/%zz%4", u"50%/%zz%4"},            // no escapes at all
    };
    for (const auto& [text, all, keeping] : cases) {
        SCOPED_TRACE(Show(text));
        for (const bool reserved : {true, false}) {
            ustring decoded = text;
            decodeURL(decoded, reserved);
            EXPECT_EQ(decoded, reserved ? all : keeping);
        }
    }
}

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
