// Fuzzes the text conversion at the OS boundary. A file name is any byte string: whatever it holds,
// FromNative must give a well-formed text (every lone surrogate an escaped byte) that ToNative
// turns back into exactly the same bytes, and case folding must stay within that text's rules.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <velmora/text/ustring.hpp>

#include "fuzz_support.hpp"

namespace {

using Velmora::text::EqualsIgnoringCase;
using Velmora::text::FoldCase;
using Velmora::text::FromNative;
using Velmora::text::IsEscapedByte;
using Velmora::text::ToNative;
using vpath_fuzz::Require;

bool IsHighSurrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char16_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

void RequireWellFormed(const ustring& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsHighSurrogate(text[i])) {
            Require(i + 1 < text.size() && IsLowSurrogate(text[i + 1]));
            ++i;
        } else if (IsLowSurrogate(text[i])) {
            Require(IsEscapedByte(text[i]));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const ustring text = FromNative(bytes);
    Require(ToNative(text) == bytes);
    RequireWellFormed(text);
    // Decoding is stable: the bytes that a text stands for decode to that text again.
    Require(FromNative(ToNative(text)) == text);

    // Folding maps code unit to code unit, settles after one pass and leaves escaped bytes alone.
    const ustring folded = FoldCase(text);
    Require(folded.size() == text.size());
    Require(FoldCase(folded) == folded);
    Require(EqualsIgnoringCase(text, folded));
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsEscapedByte(text[i]))
            Require(folded[i] == text[i]);
    }
    return 0;
}
