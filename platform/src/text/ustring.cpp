#include <velmora/text/ustring.hpp>

#include <locale.h>
#include <clocale>
#include <cwctype>

namespace Velmora::text {
namespace {

constexpr char16_t kEscapeBase = 0xDC00;

bool IsContinuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

// Length of the valid UTF-8 sequence that starts at bytes[i], or 0 if none starts there.
// Rejects overlong forms, surrogate code points and values above U+10FFFF.
std::size_t ValidSequenceLength(std::string_view bytes, std::size_t i, char32_t& cp) {
    const auto b0 = static_cast<unsigned char>(bytes[i]);
    const std::size_t left = bytes.size() - i;
    if (b0 < 0x80) {
        cp = b0;
        return 1;
    }
    auto at = [&](std::size_t k) { return static_cast<unsigned char>(bytes[i + k]); };
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        if (left < 2 || !IsContinuation(at(1)))
            return 0;
        cp = (char32_t(b0 & 0x1F) << 6) | (at(1) & 0x3F);
        return 2;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF) {
        if (left < 3 || !IsContinuation(at(1)) || !IsContinuation(at(2)))
            return 0;
        cp = (char32_t(b0 & 0x0F) << 12) | (char32_t(at(1) & 0x3F) << 6) | (at(2) & 0x3F);
        if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))
            return 0;
        return 3;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4) {
        if (left < 4 || !IsContinuation(at(1)) || !IsContinuation(at(2)) || !IsContinuation(at(3)))
            return 0;
        cp = (char32_t(b0 & 0x07) << 18) | (char32_t(at(1) & 0x3F) << 12) |
             (char32_t(at(2) & 0x3F) << 6) | (at(3) & 0x3F);
        if (cp < 0x10000 || cp > 0x10FFFF)
            return 0;
        return 4;
    }
    return 0;
}

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// The C.UTF-8 locale knows the simple case mappings of all of Unicode; the process's own locale
// is left alone so that folding does not depend on the user's environment.
locale_t FoldingLocale() {
    static const locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
    return loc;
}

char16_t FoldUnit(char16_t c) {
    if (c < 0x80) {
        return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
    }
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    const locale_t loc = FoldingLocale();
    if (loc == static_cast<locale_t>(0))
        return c;
    const auto lower = towlower_l(static_cast<wint_t>(c), loc);
    // A mapping that leaves the basic plane would not fit one code unit; keep the original.
    return lower <= 0xFFFF ? static_cast<char16_t>(lower) : c;
}

}  // namespace

ustring FromNative(std::string_view bytes) {
    // Most names are ASCII: their leading run is copied in one step.
    std::size_t i = 0;
    while (i < bytes.size() && static_cast<unsigned char>(bytes[i]) < 0x80)
        ++i;
    ustring out(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(i));
    out.reserve(bytes.size());
    while (i < bytes.size()) {
        char32_t cp = 0;
        const std::size_t n = ValidSequenceLength(bytes, i, cp);
        if (n == 0) {
            out.push_back(
                static_cast<char16_t>(kEscapeBase + static_cast<unsigned char>(bytes[i])));
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += n;
    }
    return out;
}

std::string ToNative(std::u16string_view text) {
    std::size_t i = 0;
    while (i < text.size() && text[i] < 0x80)
        ++i;
    std::string out(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(i));
    out.reserve(text.size());
    for (; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            const char32_t cp = 0x10000 + ((char32_t(c) - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            AppendUtf8(out, cp);
            ++i;
        } else if (IsEscapedByte(c)) {
            out.push_back(static_cast<char>(EscapedByteValue(c)));
        } else {
            AppendUtf8(out, c);
        }
    }
    return out;
}

ustring FoldCase(std::u16string_view text) {
    ustring out(text);
    for (auto& c : out)
        c = FoldUnit(c);
    return out;
}

bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && FoldUnit(a[i]) != FoldUnit(b[i]))
            return false;
    }
    return true;
}

}  // namespace Velmora::text
