#include <foundation/storage/vfs/iri_conversion.hpp>

#include <cerrno>

#include <foundation/storage/utility/url.hpp>
#include <foundation/storage/vfs/exceptions.hpp>

namespace foundation::storage::vfs {
namespace {

bool IsAlpha(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool IsSchemeChar(char16_t c) {
    return IsAlpha(c) || (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
}

}  // namespace

bool hasIRIPrefix(const ustring& text) {
    if (text.empty() || !IsAlpha(text[0]))
        return false;
    std::size_t i = 1;
    while (i < text.size() && IsSchemeChar(text[i]))
        ++i;
    if (i >= text.size() || text[i] != u':')
        return false;
    const std::u16string_view rest = std::u16string_view(text).substr(i + 1);
    if (rest.substr(0, 2) == u"//")
        return true;
    return Velmora::text::EqualsIgnoringCase(std::u16string_view(text).substr(0, i), u"file") &&
           !rest.empty() && rest.front() == u'/';
}

AbsoluteIRI toAbsoluteIRI(const ustring& scheme, const fl::filesystem::path& path) {
    const ustring& native = path.text();
    if (native.empty() || native.front() != u'/') {
        throw InvalidIRIException(native, "is not an absolute path");
    }
    return AbsoluteIRI(scheme + u"://" + utility::encodeURLPath(native));
}

ustring fromAbsoluteIRI(const AbsoluteIRI& iri) {
    // A local location without escapes is its path as it stands.
    const ustring& plain = iri.toString();
    if (plain.starts_with(u"file:///") && plain.find(u'%') == ustring::npos)
        return plain.substr(7);
    if (iri.getScheme() != u"file") {
        throw Exception("\"" + Velmora::text::ToNative(iri.toString()) +
                        "\" is not on the local file system");
    }
    // A name on disk holds neither "/" nor NUL. Decoded, such a name would silently become
    // another location ("a%2Fb" the two names "a" and "b", "a%00" the name "a" once it reaches
    // the OS), so the location is reported as one that does not exist. In the normal text these
    // escapes are only ever the characters themselves: a literal "%" is written "%25".
    const ustring& text = iri.toString();
    if (text.find(u"%2F") != ustring::npos || text.find(u"%00") != ustring::npos) {
        throw Exception(
            "\"" + Velmora::text::ToNative(text) + "\" names a file that no local path can hold",
            ENOENT);
    }
    return iri.getPath();
}

}  // namespace foundation::storage::vfs
