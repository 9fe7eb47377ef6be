#pragma once
// Internal to the storage layer: the text rules that AbsoluteIRI and the URL utilities share.

#include <cstddef>

#include <velmora/text/ustring.hpp>

namespace foundation::storage::iri_internal {

// Where the parts of a normalised IRI text begin: scheme is [0, schemeLength), the path starts
// at pathStart and runs to the end.
struct IriLayout {
    std::size_t schemeLength = 0;
    std::size_t pathStart = 0;
};

// NormalizeIri: rewrites `text` into normal form and tells where its parts are.
// Throws vfs::InvalidIRIException (naming the text as given) if it is not an absolute IRI.
IriLayout NormalizeIri(ustring& text);

// MustEncode: whether an IRI cannot hold the code unit literally.
bool MustEncode(char16_t c) noexcept;

// AppendEncoded: appends the percent-encoded UTF-8 (or escaped byte) of one code unit.
void AppendEncoded(ustring& out, char16_t c);

// RemoveDotSegments: the path with "." and ".." segments resolved, as for a base path.
ustring RemoveDotSegments(std::u16string_view path);

}  // namespace foundation::storage::iri_internal
