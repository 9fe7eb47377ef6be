#include <foundation/storage/vfs/iri_conversion.hpp>

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
    if (iri.getScheme() != u"file") {
        throw Exception("\"" + Velmora::text::ToNative(iri.toString()) +
                        "\" is not on the local file system");
    }
    return iri.getPath();
}

}  // namespace foundation::storage::vfs
