#include <foundation/storage/utility/url.hpp>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <foundation/storage/vfs/exceptions.hpp>

#include "iri_text.hpp"

namespace foundation::storage {
namespace {

using Velmora::text::FromNative;
using Velmora::text::IsEscapedByte;

constexpr char16_t kHex[] = u"0123456789ABCDEF";

int HexValue(char16_t c) {
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    return -1;
}

bool IsEscapeAt(std::u16string_view s, std::size_t i) {
    return i + 2 < s.size() && s[i] == u'%' && HexValue(s[i + 1]) >= 0 && HexValue(s[i + 2]) >= 0;
}

unsigned char EscapeByte(std::u16string_view s, std::size_t i) {
    return static_cast<unsigned char>(HexValue(s[i + 1]) * 16 + HexValue(s[i + 2]));
}

// Reads the run of escapes and escaped bytes that starts at s[i] into `bytes`; returns where the
// run ends.
std::size_t ReadByteRun(std::u16string_view s, std::size_t i, std::string& bytes) {
    for (;;) {
        if (IsEscapeAt(s, i)) {
            bytes.push_back(static_cast<char>(EscapeByte(s, i)));
            i += 3;
        } else if (i < s.size() && IsEscapedByte(s[i])) {
            bytes.push_back(static_cast<char>(Velmora::text::EscapedByteValue(s[i])));
            ++i;
        } else {
            return i;
        }
    }
}

bool IsHighSurrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char16_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}
bool IsSurrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

bool IsSchemeChar(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           c == u'+' || c == u'-' || c == u'.';
}

bool IsAlpha(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

ustring Lower(std::u16string_view s) {
    ustring out(s);
    for (auto& c : out) {
        if (c >= u'A' && c <= u'Z')
            c = static_cast<char16_t>(c + 32);
    }
    return out;
}

// Appends decoded text to a path, re-encoding what an IRI cannot hold. A decoded "/" stays
// encoded: it was part of a name, not a separator.
void AppendDecodedToPath(ustring& out, const ustring& decoded) {
    for (std::size_t k = 0; k < decoded.size(); ++k) {
        const char16_t d = decoded[k];
        if (IsHighSurrogate(d) && k + 1 < decoded.size() && IsLowSurrogate(decoded[k + 1])) {
            out.push_back(d);
            out.push_back(decoded[++k]);
        } else if (d == u'/' || iri_internal::MustEncode(d)) {
            iri_internal::AppendEncoded(out, d);
        } else {
            out.push_back(d);
        }
    }
}

[[noreturn]] void Invalid(const ustring& original, const std::string& reason) {
    throw vfs::InvalidIRIException(original, reason);
}

ustring NormalizePath(std::u16string_view raw, const ustring& original) {
    ustring out;
    out.reserve(raw.size() + 1);
    std::size_t i = 0;
    while (i < raw.size()) {
        const char16_t c = raw[i];
        if (c == u'%' || IsEscapedByte(c)) {
            // Escapes and escaped bytes both stand for bytes of a name; a run of them is decoded as
            // one, so "%C3" next to the escaped byte 0xA9 reads as the "é" that those bytes are on
            // disk. Decoding them apart would leave a text that normalises differently again.
            std::string bytes;
            const std::size_t j = ReadByteRun(raw, i, bytes);
            if (bytes.empty()) {
                out += u"%25";  // a "%" that starts no escape is a literal percent sign
                ++i;
            } else {
                AppendDecodedToPath(out, FromNative(bytes));
                i = j;
            }
            continue;
        }
        if (c == u'?' || c == u'#') {
            Invalid(original, "has a query or fragment; a location cannot hold one");
        }
        if (IsHighSurrogate(c) && i + 1 < raw.size() && IsLowSurrogate(raw[i + 1])) {
            out.push_back(c);
            out.push_back(raw[i + 1]);
            i += 2;
            continue;
        }
        if (IsSurrogate(c)) {
            Invalid(original, "holds a lone surrogate that stands for no character");
        }
        if (iri_internal::MustEncode(c)) {
            iri_internal::AppendEncoded(out, c);
        } else {
            out.push_back(c);
        }
        ++i;
    }
    // Runs of separators name the same folder as one; a trailing separator names the folder itself.
    ustring collapsed;
    collapsed.reserve(out.size() + 1);
    for (const char16_t c : out) {
        if (c == u'/' && !collapsed.empty() && collapsed.back() == u'/')
            continue;
        collapsed.push_back(c);
    }
    if (collapsed.empty() || collapsed.front() != u'/')
        collapsed.insert(collapsed.begin(), u'/');
    if (collapsed.size() > 1 && collapsed.back() == u'/')
        collapsed.pop_back();
    return collapsed;
}

}  // namespace

namespace iri_internal {

bool MustEncode(char16_t c) noexcept {
    return c < 0x20 || c == 0x7F || (c >= 0x80 && c <= 0x9F) || c == u' ' || c == u'%' ||
           c == u'#' || c == u'?' || IsEscapedByte(c);
}

void AppendEncoded(ustring& out, char16_t c) {
    const std::string bytes = Velmora::text::ToNative(std::u16string_view(&c, 1));
    for (const char b : bytes) {
        const auto u = static_cast<unsigned char>(b);
        out.push_back(u'%');
        out.push_back(kHex[u >> 4]);
        out.push_back(kHex[u & 0xF]);
    }
}

IriLayout NormalizeIri(ustring& text) {
    const ustring original = text;
    if (text.empty())
        Invalid(original, "is empty");
    if (!IsAlpha(text[0]))
        Invalid(original, "does not start with a scheme");
    std::size_t i = 1;
    while (i < text.size() && IsSchemeChar(text[i]))
        ++i;
    if (i >= text.size() || text[i] != u':')
        Invalid(original, "does not start with a scheme");

    const ustring scheme = Lower(std::u16string_view(text).substr(0, i));
    const std::size_t rest = i + 1;
    std::u16string_view authority;
    std::u16string_view rawPath;
    const std::u16string_view view(text);
    if (view.substr(rest, 2) == u"//") {
        const std::size_t authStart = rest + 2;
        const std::size_t slash = view.find(u'/', authStart);
        const std::size_t authEnd = slash == std::u16string_view::npos ? view.size() : slash;
        authority = view.substr(authStart, authEnd - authStart);
        rawPath = view.substr(authEnd);
    } else if (scheme == u"file" && rest < view.size() && view[rest] == u'/') {
        rawPath = view.substr(rest);
    } else {
        Invalid(original, "is not of the form scheme://authority/path");
    }

    ustring normalAuthority(authority);
    if (scheme == u"file") {
        if (!normalAuthority.empty() && Lower(normalAuthority) != u"localhost") {
            Invalid(original, "names a host; only local files can be located");
        }
        normalAuthority.clear();
    }
    for (std::size_t k = 0; k < normalAuthority.size(); ++k) {
        const char16_t c = normalAuthority[k];
        if (IsHighSurrogate(c) && k + 1 < normalAuthority.size() &&
            IsLowSurrogate(normalAuthority[k + 1])) {
            ++k;
        } else if (IsSurrogate(c)) {
            Invalid(original, "holds a lone surrogate that stands for no character");
        } else if (c == u'?' || c == u'#' || MustEncode(c)) {
            Invalid(original, "has an authority with characters an IRI cannot hold");
        }
    }

    const ustring path = NormalizePath(rawPath, original);
    ustring out;
    out.reserve(scheme.size() + 3 + normalAuthority.size() + path.size());
    out += scheme;
    out += u"://";
    out += normalAuthority;
    const IriLayout layout{scheme.size(), out.size()};
    out += path;
    text = std::move(out);
    return layout;
}

ustring RemoveDotSegments(std::u16string_view path) {
    // Segments are pushed and popped on a list of segment texts; the path is always absolute.
    std::vector<std::u16string_view> segments;
    std::size_t pos = 1;
    while (pos <= path.size()) {
        const std::size_t next = std::min(path.find(u'/', pos), path.size());
        const std::u16string_view segment = path.substr(pos, next - pos);
        if (segment == u"..") {
            if (!segments.empty())
                segments.pop_back();
        } else if (segment != u".") {
            segments.push_back(segment);
        }
        pos = next + 1;
    }
    ustring out;
    for (const auto& s : segments) {
        if (s.empty())
            continue;
        out.push_back(u'/');
        out.append(s);
    }
    if (out.empty())
        out.push_back(u'/');
    return out;
}

}  // namespace iri_internal

namespace utility {

void normalizeURL(ustring& text) {
    iri_internal::NormalizeIri(text);
}

void decodeURL(ustring& text, bool decodeReserved) {
    ustring out;
    out.reserve(text.size());
    const std::u16string_view view(text);
    std::size_t i = 0;
    while (i < view.size()) {
        if (!IsEscapeAt(view, i)) {
            out.push_back(view[i++]);
            continue;
        }
        std::string bytes;
        while (IsEscapeAt(view, i)) {
            const unsigned char b = EscapeByte(view, i);
            const bool reserved = b == '/' || b == '?' || b == '#' || b == '%';
            if (reserved && !decodeReserved)
                break;
            bytes.push_back(static_cast<char>(b));
            i += 3;
        }
        if (bytes.empty()) {
            // A reserved escape that is kept: copy it as it stands, in normal (upper-case) form.
            out.push_back(u'%');
            out.push_back(static_cast<char16_t>(std::toupper(static_cast<int>(view[i + 1]))));
            out.push_back(static_cast<char16_t>(std::toupper(static_cast<int>(view[i + 2]))));
            i += 3;
        } else {
            out += FromNative(bytes);
        }
    }
    text = std::move(out);
}

ustring encodeURLPath(const ustring& path) {
    ustring out;
    out.reserve(path.size());
    for (std::size_t i = 0; i < path.size(); ++i) {
        const char16_t c = path[i];
        if (IsHighSurrogate(c) && i + 1 < path.size() && IsLowSurrogate(path[i + 1])) {
            out.push_back(c);
            out.push_back(path[++i]);
        } else if (iri_internal::MustEncode(c) || (IsSurrogate(c) && !IsEscapedByte(c))) {
            iri_internal::AppendEncoded(out, c);
        } else {
            out.push_back(c);
        }
    }
    return out;
}

}  // namespace utility
}  // namespace foundation::storage
