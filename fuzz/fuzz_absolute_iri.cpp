// Fuzzes the normal form of resource identifiers. For any text (decoded from the input bytes the
// way a name from disk or a command line would be), constructing an AbsoluteIRI either throws
// InvalidIRIException or yields a normal text that is a fixed point: parsing it again changes
// nothing. The IRIs derived from it are normal too, and a "file" IRI that names a local path goes
// to that path and back to the same IRI.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <fl/filesystem/path.hpp>
#include <foundation/storage/utility/url.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/text/ustring.hpp>

#include "fuzz_support.hpp"

namespace {

namespace vfs = foundation::storage::vfs;
using foundation::storage::utility::decodeURL;
using foundation::storage::utility::normalizeURL;
using vfs::AbsoluteIRI;
// A normal text that fails to parse again escapes as an uncaught exception, which libFuzzer reports
// as it reports a failed Require.
using vpath_fuzz::Require;

// Parsing the text of `iri` gives `iri` again: same text, same hash.
void RequireNormal(const AbsoluteIRI& iri) {
    const AbsoluteIRI again(iri.toString());
    Require(again.toString() == iri.toString());
    Require(again == iri);
    Require(again.hashValue() == iri.hashValue());
}

void CheckDerived(const AbsoluteIRI& iri) {
    const AbsoluteIRI parent = iri.getParent();
    RequireNormal(parent);
    RequireNormal(iri.getResolvedIRI());
    // A location is its name inside its parent.
    if (parent != iri)
        Require(parent.getChild(iri.getName()) == iri);
    // Decoding all but the reserved escapes leaves a text of the same location.
    ustring decoded = iri.toString();
    decodeURL(decoded, false);
    Require(AbsoluteIRI(decoded) == iri);
}

void CheckNativePath(const AbsoluteIRI& iri) {
    ustring native;
    try {
        native = vfs::fromAbsoluteIRI(iri);
    } catch (const vfs::Exception& e) {
        // Only a name that no file can have is refused.
        Require(e.GetErrorNumber() == ENOENT);
        return;
    }
    Require(vfs::toAbsoluteIRI(u"file", fl::filesystem::path(native)) == iri);
    // The same holds for the path as the OS sees it, in bytes.
    const ustring fromDisk = Velmora::text::FromNative(Velmora::text::ToNative(native));
    Require(vfs::toAbsoluteIRI(u"file", fl::filesystem::path(fromDisk)) == iri);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ustring text =
        Velmora::text::FromNative(std::string_view(reinterpret_cast<const char*>(data), size));
    AbsoluteIRI iri;
    try {
        iri = AbsoluteIRI(text);
    } catch (const vfs::InvalidIRIException&) {
        return 0;
    }
    RequireNormal(iri);
    ustring viaUrl = text;
    normalizeURL(viaUrl);
    Require(viaUrl == iri.toString());
    CheckDerived(iri);
    if (iri.getScheme() == u"file")
        CheckNativePath(iri);
    return 0;
}
