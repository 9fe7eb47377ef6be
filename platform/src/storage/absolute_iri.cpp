#include <foundation/storage/vfs/absolute_iri.hpp>

#include <foundation/storage/utility/url.hpp>
#include <foundation/storage/vfs/exceptions.hpp>

#include "iri_text.hpp"

namespace foundation::storage::vfs {

struct AbsoluteIRI::Rep {
    ustring text;
    std::size_t schemeLength;
    std::size_t pathStart;
    std::size_t hash;

    std::u16string_view Path() const { return std::u16string_view(text).substr(pathStart); }
};

namespace {

const ustring& EmptyText() {
    static const ustring empty;
    return empty;
}

// Whether `text` is a local location already in normal form whose path is plain printable ASCII,
// without escapes, runs of separators or a trailing one. Nearly every location the path holds is
// one, and taking it as it stands spares the rewrite's copies.
bool IsPlainNormalFileText(std::u16string_view text) noexcept {
    constexpr std::u16string_view kPrefix = u"file:///";
    if (!text.starts_with(kPrefix))
        return false;
    char16_t previous = u'/';
    for (std::size_t i = kPrefix.size(); i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c <= u' ' || c >= 0x7F || c == u'%' || c == u'?' || c == u'#')
            return false;
        if (c == u'/' && previous == u'/')
            return false;
        previous = c;
    }
    return previous != u'/' || text.size() == kPrefix.size();
}

// Whether a normal path holds a "." or ".." segment.
bool HasDotSegment(std::u16string_view path) noexcept {
    for (std::size_t pos = path.find(u"/."); pos != std::u16string_view::npos;
         pos = path.find(u"/.", pos + 1)) {
        std::size_t end = pos + 2;
        if (end < path.size() && path[end] == u'.')
            ++end;
        if (end == path.size() || path[end] == u'/')
            return true;
    }
    return false;
}

}  // namespace

AbsoluteIRI::AbsoluteIRI(ustring text) {
    ustring normal = std::move(text);
    const auto layout = IsPlainNormalFileText(normal) ? iri_internal::IriLayout{4, 7}
                                                      : iri_internal::NormalizeIri(normal);
    const std::size_t hash = std::hash<ustring>{}(normal);
    m_rep = std::make_shared<const Rep>(
        Rep{std::move(normal), layout.schemeLength, layout.pathStart, hash});
}

const ustring& AbsoluteIRI::toString() const noexcept {
    return m_rep ? m_rep->text : EmptyText();
}

ustring AbsoluteIRI::getScheme() const {
    return m_rep ? m_rep->text.substr(0, m_rep->schemeLength) : ustring();
}

ustring AbsoluteIRI::getName() const {
    if (!m_rep)
        return {};
    const auto path = m_rep->Path();
    ustring name(path.substr(path.find_last_of(u'/') + 1));
    utility::decodeURL(name, true);
    return name;
}

AbsoluteIRI AbsoluteIRI::getParent() const {
    if (!m_rep)
        return {};
    const auto path = m_rep->Path();
    if (path.size() <= 1)
        return *this;
    const std::size_t slash = path.find_last_of(u'/');
    // The parent of a normal text is itself normal: cut it without parsing again.
    ustring text = m_rep->text.substr(0, m_rep->pathStart + (slash == 0 ? 1 : slash));
    const std::size_t hash = std::hash<ustring>{}(text);
    return AbsoluteIRI(std::make_shared<const Rep>(
        Rep{std::move(text), m_rep->schemeLength, m_rep->pathStart, hash}));
}

ustring AbsoluteIRI::getPath() const {
    if (!m_rep)
        return {};
    ustring path(m_rep->Path());
    utility::decodeURL(path, true);
    return path;
}

AbsoluteIRI AbsoluteIRI::getResolvedIRI() const {
    if (!m_rep)
        throw InvalidIRIException(ustring(), "an empty location has no resolved form");
    if (!HasDotSegment(m_rep->Path()))
        return *this;
    const ustring resolved = iri_internal::RemoveDotSegments(m_rep->Path());
    if (resolved == m_rep->Path())
        return *this;
    return AbsoluteIRI(m_rep->text.substr(0, m_rep->pathStart) + resolved);
}

AbsoluteIRI AbsoluteIRI::getChild(const ustring& name) const {
    ustring encoded = utility::encodeURLPath(name);
    // A "/" inside a name is part of the name, never a separator.
    for (std::size_t pos = encoded.find(u'/'); pos != ustring::npos;
         pos = encoded.find(u'/', pos)) {
        encoded.replace(pos, 1, u"%2F");
    }
    const ustring& text = toString();
    return AbsoluteIRI(text + (m_rep && m_rep->Path() == u"/" ? u"" : u"/") + encoded);
}

std::size_t AbsoluteIRI::hashValue() const noexcept {
    return m_rep ? m_rep->hash : 0;
}

bool operator==(const AbsoluteIRI& a, const AbsoluteIRI& b) noexcept {
    if (a.m_rep == b.m_rep)
        return true;
    if (a.hashValue() != b.hashValue())
        return false;
    return a.toString() == b.toString();
}

std::strong_ordering operator<=>(const AbsoluteIRI& a, const AbsoluteIRI& b) noexcept {
    if (a.m_rep == b.m_rep)
        return std::strong_ordering::equal;
    return a.toString().compare(b.toString()) <=> 0;
}

CanonicalAbsoluteIRI::CanonicalAbsoluteIRI(const AbsoluteIRI& location, const ustring& resolvedFrom)
    : m_iri(location.getResolvedIRI()), m_resolvedFromItself(resolvedFrom == m_iri.toString()) {
    if (!m_resolvedFromItself)
        m_resolvedFrom = resolvedFrom;
}

}  // namespace foundation::storage::vfs
