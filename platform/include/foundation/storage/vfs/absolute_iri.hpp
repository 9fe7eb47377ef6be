#pragma once
// Resource identifiers of the storage layer.
//
// An AbsoluteIRI names a folder or file by a normalised absolute IRI text such as
// "file:///home/ada/tb". Normalising makes equal locations equal texts:
//
//   AbsoluteIRI(u"FILE://localhost/home//ada/tb/")  => "file:///home/ada/tb"
//   AbsoluteIRI(u"file:/home/ada/my dir")           => "file:///home/ada/my%20dir"
//   AbsoluteIRI(u"file:///home/ada/caf%C3%A9")      => "file:///home/ada/café"
//   AbsoluteIRI(u"file:///x/%41")                   => "file:///x/A"
//   AbsoluteIRI(u"tb/x")                            => throws InvalidIRIException
//
// Characters that an IRI cannot hold literally (space, "%", "#", "?", control characters, and the
// escaped bytes of non-UTF-8 names) are percent-encoded; other non-ASCII characters stay as they
// are. Dot segments are kept; getResolvedIRI() removes them. Equality, ordering and hashValue()
// are those of the normalised text. Copies share one immutable representation.

#include <compare>
#include <cstddef>
#include <functional>
#include <memory>

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::vfs {

class VELMORA_PLATFORM_EXPORT AbsoluteIRI {
  public:
    // An empty IRI, equal only to other empty IRIs; for containers and "no location yet".
    AbsoluteIRI() noexcept = default;
    // Parses and normalises `text`. Throws InvalidIRIException if it is not an absolute IRI of the
    // form scheme://authority/path (or file:/path), or holds a query, a fragment or a lone
    // surrogate that does not stand for a byte.
    explicit AbsoluteIRI(ustring text);

    bool empty() const noexcept { return m_rep == nullptr; }
    // The normalised text.
    const ustring& toString() const noexcept;
    // The scheme in lower case: u"file".
    ustring getScheme() const;
    // The last path segment, decoded: u"my dir" for "file:///home/my%20dir"; empty for the root.
    ustring getName() const;
    // The IRI of the containing folder; the root is its own parent.
    AbsoluteIRI getParent() const;
    // The path, decoded: u"/home/my dir". For a "file" IRI this is the native path.
    ustring getPath() const;
    // The same IRI with "." and ".." segments removed: "file:///a/./b/../c" => "file:///a/c".
    // Throws InvalidIRIException for the empty IRI, which names no location.
    AbsoluteIRI getResolvedIRI() const;
    // The IRI of `name` inside this folder: "file:///a".getChild(u"b c") => "file:///a/b%20c".
    AbsoluteIRI getChild(const ustring& name) const;
    std::size_t hashValue() const noexcept;

    friend VELMORA_PLATFORM_EXPORT bool operator==(const AbsoluteIRI& a,
                                                   const AbsoluteIRI& b) noexcept;
    friend VELMORA_PLATFORM_EXPORT std::strong_ordering operator<=>(const AbsoluteIRI& a,
                                                                    const AbsoluteIRI& b) noexcept;

  private:
    struct Rep;
    explicit AbsoluteIRI(std::shared_ptr<const Rep> rep) noexcept : m_rep(std::move(rep)) {}
    std::shared_ptr<const Rep> m_rep;
};

// hash_value: the Boost hash of an AbsoluteIRI.
inline std::size_t hash_value(const AbsoluteIRI& iri) noexcept {
    return iri.hashValue();
}

// CanonicalAbsoluteIRI: the IRI of a real location, dot segments removed and, when it comes from
// Folder::getCanonicalLocation() or File::getCanonicalLocation(), symbolic links resolved on disk.
// Constructed directly it trusts the caller that the location is canonical and only removes dot
// segments; `resolvedFrom` records the text the location was resolved from (empty if none) and
// takes no part in comparisons.
class VELMORA_PLATFORM_EXPORT CanonicalAbsoluteIRI {
  public:
    CanonicalAbsoluteIRI() = default;
    CanonicalAbsoluteIRI(const AbsoluteIRI& location, const ustring& resolvedFrom);

    const AbsoluteIRI& getIRI() const noexcept { return m_iri; }
    const ustring& toString() const noexcept { return m_iri.toString(); }
    const ustring& getResolvedFrom() const noexcept {
        return m_resolvedFromItself ? m_iri.toString() : m_resolvedFrom;
    }
    std::size_t hashValue() const noexcept { return m_iri.hashValue(); }

    friend bool operator==(const CanonicalAbsoluteIRI& a, const CanonicalAbsoluteIRI& b) noexcept {
        return a.m_iri == b.m_iri;
    }
    friend std::strong_ordering operator<=>(const CanonicalAbsoluteIRI& a,
                                            const CanonicalAbsoluteIRI& b) noexcept {
        return a.m_iri <=> b.m_iri;
    }

  private:
    AbsoluteIRI m_iri;
    // A location resolved from its own text, as most are, keeps no second copy of it.
    bool m_resolvedFromItself = false;
    ustring m_resolvedFrom;
};

inline std::size_t hash_value(const CanonicalAbsoluteIRI& iri) noexcept {
    return iri.hashValue();
}

}  // namespace foundation::storage::vfs

template <>
struct std::hash<foundation::storage::vfs::AbsoluteIRI> {
    std::size_t operator()(const foundation::storage::vfs::AbsoluteIRI& iri) const noexcept {
        return iri.hashValue();
    }
};

template <>
struct std::hash<foundation::storage::vfs::CanonicalAbsoluteIRI> {
    std::size_t operator()(
        const foundation::storage::vfs::CanonicalAbsoluteIRI& iri) const noexcept {
        return iri.hashValue();
    }
};
