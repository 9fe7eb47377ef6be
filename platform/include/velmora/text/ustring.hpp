#pragma once
// ustring: the text type of the whole system, and its lossless conversion at the OS boundary.
//
// Every name, path text and path-list text is UTF-16. File names on Linux are bytes that need
// not be UTF-8, so the conversion maps each byte that is not part of a valid UTF-8 sequence to a
// lone surrogate U+DC80..U+DCFF and maps those back to the same byte. Every byte string therefore
// survives FromNative followed by ToNative unchanged:
//
//   FromNative("caf\xC3\xA9")  => u"café"
//   FromNative("caf\xE9")      => u"caf\xDCE9"      (0xE9 alone is not UTF-8)
//   ToNative(u"caf\xDCE9")     => "caf\xE9"
//
// A UTF-16 text that did not come from FromNative may hold other lone surrogates; ToNative writes
// them as three-byte sequences (the generalised UTF-8 of WTF-8) rather than failing, so converting
// a text to bytes never throws.

#include <string>
#include <string_view>

#include <velmora/platform/export.hpp>

using ustring = std::u16string;

namespace Velmora::text {

// FromNative: decodes OS bytes (UTF-8 or not) into UTF-16, escaping stray bytes as lone surrogates.
VELMORA_PLATFORM_EXPORT ustring FromNative(std::string_view bytes);

// ToNative: encodes UTF-16 into OS bytes; lone surrogates U+DC80..U+DCFF become their byte again.
VELMORA_PLATFORM_EXPORT std::string ToNative(std::u16string_view text);

// IsEscapedByte: true for the code units that FromNative uses to carry a stray byte.
constexpr bool IsEscapedByte(char16_t c) noexcept {
    return c >= 0xDC80 && c <= 0xDCFF;
}

// EscapedByteValue: the byte that an escaped code unit stands for.
// REQUIRES: IsEscapedByte(c).
constexpr unsigned char EscapedByteValue(char16_t c) noexcept {
    return static_cast<unsigned char>(c - 0xDC00);
}

// FoldCase: the text with every code unit mapped to its simple lower-case form, for names that
// are compared without regard to case. Surrogates and escaped bytes are left as they are.
//
//   FoldCase(u"Point.VL") => u"point.vl"
//   FoldCase(u"ÄRGER")    => u"ärger"
VELMORA_PLATFORM_EXPORT ustring FoldCase(std::u16string_view text);

// EqualsIgnoringCase: FoldCase(a) == FoldCase(b), without building either.
VELMORA_PLATFORM_EXPORT bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b);

}  // namespace Velmora::text
