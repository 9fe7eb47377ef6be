#include <foundation/core/except/message_exception.hpp>
#include <foundation/storage/utility/url.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/pathmanagement/path_strings.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

namespace Velmora::PathManagement {

using foundation::storage::vfs::AbsoluteIRI;

AbsoluteIRI GetIRIFromString(const ustring& text) {
    if (foundation::storage::vfs::hasIRIPrefix(text)) {
        ustring normal = text;
        foundation::storage::utility::normalizeURL(normal);
        return AbsoluteIRI(normal);
    }
    // An empty text is passed on as it is; the storage layer decides what it names.
    fl::filesystem::path path;
    if (!text.empty())
        path.assign(fl::filesystem::detail::make_native_form(text, true));
    return foundation::storage::vfs::toAbsoluteIRI(u"file", path);
}

ustring GetStringFromIRI(const AbsoluteIRI& iri) {
    if (iri.getScheme() == u"file")
        return foundation::storage::vfs::fromAbsoluteIRI(iri);
    ustring text = iri.toString();
    foundation::storage::utility::decodeURL(text, true);
    return text;
}

AbsoluteIRI GetCanonicalIRI(const AbsoluteIRI& iri) {
    const auto storage = Velmora::VorlanStorageSystem::GetStorageSystemReference();
    const foundation::storage::vfs::Folder folder(iri, storage);
    return folder.getCanonicalLocation().getIRI();
}

AbsoluteIRI GetCanonicalIRIFromString(const ustring& text) {
    return GetCanonicalIRI(GetIRIFromString(text));
}

AbsoluteIRI CanonicalizeRelativePathAgainstCWD(
    const ustring& text,
    const Velmora::current_working_folder::ICurrentWorkingFolder& currentFolder) {
    try {
        return GetCanonicalIRI(currentFolder.absolutize(text));
    } catch (...) {
        // Whatever went wrong, the user learns only that this text names no usable folder.
        using Message = VORLAN::vpath::cannotAbsolutizePath;
        foundation::core::except::RaiseLegacyUserError(
            foundation::core::except::Exception<Message, std::exception>(Message(text)));
    }
}

ustring RemoveRootPathFromAbsolutePath(const fl::filesystem::path& path) {
    const ustring root = fl::filesystem::detail::extract_root_path(path.text());
    ustring rest = path.text();
    const std::size_t at = rest.find(root, 0);
    // The count is tied to the position found on purpose: the root is expected at 0, where it
    // removes exactly the root; not finding it at all makes erase throw std::out_of_range.
    rest.erase(at, at + root.size());
    return rest;
}

}  // namespace Velmora::PathManagement
