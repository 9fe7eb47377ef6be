#pragma once
// Generators of file-name bytes for the platform's property tests.
//
// Uniformly random bytes almost never form a valid multi-byte UTF-8 sequence, so these build byte
// strings from pieces instead: ASCII, valid sequences of every length, stray bytes and cut-off
// sequences. Both the decoding and the escaping paths of the text conversion are then taken often.

#include <algorithm>
#include <string>
#include <vector>

#include <rapidcheck.h>

namespace vpath_test {

// Utf8: the UTF-8 bytes of one scalar value, written out independently of the code under test.
inline std::string Utf8(char32_t cp) {
    if (cp < 0x80)
        return std::string(1, static_cast<char>(cp));
    const int length = cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
    std::string out(length, '\0');
    for (int i = length - 1; i > 0; --i, cp >>= 6)
        out[i] = static_cast<char>(0x80 | (cp & 0x3F));
    // The lead byte: `length` ones, a zero, then the highest bits.
    out[0] = static_cast<char>(((0xFF00 >> length) & 0xFF) | cp);
    return out;
}

// ScalarValue: a Unicode scalar value (no surrogates) beyond ASCII, every UTF-8 length equally.
inline rc::Gen<char32_t> ScalarValue() {
    return rc::gen::oneOf(
        rc::gen::inRange<char32_t>(0x80, 0x800), rc::gen::inRange<char32_t>(0x800, 0xD800),
        rc::gen::inRange<char32_t>(0xE000, 0x10000), rc::gen::inRange<char32_t>(0x10000, 0x110000));
}

// Joined: the pieces drawn from `piece`, each after `separator`.
inline rc::Gen<std::string> Joined(rc::Gen<std::string> piece, std::string separator = "") {
    return rc::gen::map(rc::gen::container<std::vector<std::string>>(std::move(piece)),
                        [separator](const std::vector<std::string>& pieces) {
                            std::string out;
                            for (const auto& p : pieces)
                                out += separator + p;
                            return out;
                        });
}

// NativeBytes: any byte string, biased towards the interesting mixes described above.
inline rc::Gen<std::string> NativeBytes() {
    using rc::gen::map;
    const auto byte = [](int b) { return std::string(1, static_cast<char>(b)); };
    return Joined(rc::gen::oneOf(
        map(rc::gen::inRange(0x20, 0x7F), byte), map(rc::gen::inRange(0, 256), byte),
        map(ScalarValue(), Utf8),
        map(rc::gen::pair(ScalarValue(), rc::gen::inRange(1, 4)), [](const auto& cut) {
            const std::string whole = Utf8(cut.first);
            return whole.substr(0, std::min<std::size_t>(whole.size() - 1, cut.second));
        })));
}

// NativeName: the bytes of one file name: not empty, without "/" or NUL.
inline rc::Gen<std::string> NativeName() {
    return rc::gen::map(NativeBytes(), [](std::string bytes) {
        for (auto& b : bytes) {
            if (b == '/' || b == '\0')
                b = '_';
        }
        return bytes.empty() ? std::string("n") : bytes;
    });
}

// AbsoluteNativePath: "/" followed by names joined by single "/" ("/" itself for no names).
inline rc::Gen<std::string> AbsoluteNativePath() {
    return rc::gen::map(Joined(NativeName(), "/"),
                        [](const std::string& path) { return path.empty() ? "/" : path; });
}

}  // namespace vpath_test
