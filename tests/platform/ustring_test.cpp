#include <velmora/text/ustring.hpp>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "platform/native_bytes_gen.hpp"

namespace {

using Velmora::text::EqualsIgnoringCase;
using Velmora::text::FoldCase;
using Velmora::text::FromNative;
using Velmora::text::ToNative;

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
        EXPECT_EQ(ToNative(Escaped(bad)), bad);
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

}  // namespace
