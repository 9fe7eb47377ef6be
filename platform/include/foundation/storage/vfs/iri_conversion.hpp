#pragma once
// Conversions between native file-system paths and IRIs.
//
//   hasIRIPrefix(u"file:///a")  => true      hasIRIPrefix(u"http://h/x") => true
//   hasIRIPrefix(u"file:/a")    => true      hasIRIPrefix(u"/home/ada")  => false
//   hasIRIPrefix(u"c:/x")       => false     hasIRIPrefix(u"tb")         => false
//   toAbsoluteIRI(u"file", path(u"/home/ada/my dir"))  => "file:///home/ada/my%20dir"
//   fromAbsoluteIRI(AbsoluteIRI(u"file:///home/ada/my%20dir"))  => u"/home/ada/my dir"

#include <fl/filesystem/path.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace foundation::storage::vfs {

// hasIRIPrefix: whether the text starts like an IRI (a scheme followed by "://", or "file:/").
// Anything else is a file-system path.
VELMORA_PLATFORM_EXPORT bool hasIRIPrefix(const ustring& text);

// toAbsoluteIRI: the IRI of an absolute file-system path under `scheme`.
// Throws InvalidIRIException if the path is not absolute (the empty path included).
VELMORA_PLATFORM_EXPORT AbsoluteIRI toAbsoluteIRI(const ustring& scheme,
                                                  const fl::filesystem::path& path);

// fromAbsoluteIRI: the native path of a "file" IRI. Throws Exception for other schemes, and
// Exception with ENOENT for a path that no native path can hold (a name with an encoded "/" or NUL
// in it, as in "file:///a%2Fb").
VELMORA_PLATFORM_EXPORT ustring fromAbsoluteIRI(const AbsoluteIRI& iri);

}  // namespace foundation::storage::vfs
