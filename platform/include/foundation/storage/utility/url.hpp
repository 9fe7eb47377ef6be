#pragma once
// Percent-encoding of IRI texts.
//
//   normalizeURL(t) with t = u"FILE:/a//b%2fc/"  => t == u"file:///a/b%2Fc"
//   decodeURL(t, true)  with t = u"file:///my%20dir/caf%C3%A9"  => t == u"file:///my dir/café"
//   decodeURL(t, false) with t = u"file:///a%2Fb%20c"           => t == u"file:///a%2Fb c"
//   encodeURLPath(u"/my dir/50%")                               => u"/my%20dir/50%25"

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::utility {

// normalizeURL: rewrites an absolute IRI text in place into the normal form that AbsoluteIRI
// holds. Throws vfs::InvalidIRIException if the text is not an absolute IRI.
VELMORA_PLATFORM_EXPORT void normalizeURL(ustring& text);

// decodeURL: replaces percent-escapes in place by the characters they encode; bytes that are not
// UTF-8 become escaped bytes (see ustring.hpp), so no information is lost. With `decodeReserved`
// false, escapes of "/", "?", "#" and "%" are kept so that the text still parses as the same IRI.
// A "%" that does not start a valid escape is left as it is.
VELMORA_PLATFORM_EXPORT void decodeURL(ustring& text, bool decodeReserved);

// encodeURLPath: percent-encodes the characters of a path that an IRI cannot hold literally.
// "/" stays a separator.
VELMORA_PLATFORM_EXPORT ustring encodeURLPath(const ustring& path);

}  // namespace foundation::storage::utility
