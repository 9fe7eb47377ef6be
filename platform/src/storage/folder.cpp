#include <foundation/storage/vfs/folder.hpp>

#include <cerrno>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

namespace foundation::storage::vfs {
namespace {

using Velmora::text::FromNative;
using Velmora::text::ToNative;

[[noreturn]] void Fail(const char* what, const AbsoluteIRI& location, int error) {
    throw Exception(std::string("cannot resolve ") + what + " \"" + ToNative(location.toString()) +
                        "\": " + Velmora::os::ErrorText(error),
                    error);
}

// Whether an existing item of the chosen kind is at the location. A location that has no native
// path (another scheme, a name no file can have) has nothing at it: a miss, not a failure.
template <class IsKind>
bool ExistsAt(const StorageSystem& storage, const AbsoluteIRI& location, IsKind isKind) {
    std::string native;
    try {
        native = storage.NativePath(location);
    } catch (const Exception&) {
        return false;
    }
    Velmora::os::FileStatus status;
    return Velmora::os::System().Stat(native, status) == 0 && isKind(status);
}

}  // namespace

std::string StorageSystem::NativePath(const AbsoluteIRI& location) const {
    return ToNative(fromAbsoluteIRI(location));
}

CanonicalAbsoluteIRI StorageSystem::Canonical(const AbsoluteIRI& location, const char* what) const {
    const std::string native = NativePath(location);
    std::string resolved;
    if (const int err = Velmora::os::System().RealPath(native, resolved); err != 0) {
        Fail(what, location, err);
    }
    return CanonicalAbsoluteIRI(toAbsoluteIRI(u"file", fl::filesystem::path(FromNative(resolved))),
                                location.toString());
}

Folder::Folder(const AbsoluteIRI& location, StorageSystemReference storage)
    : m_location(location), m_storage(std::move(storage)) {}

CanonicalAbsoluteIRI Folder::getCanonicalLocation() const {
    auto canonical = m_storage->Canonical(m_location, "folder");
    Velmora::os::FileStatus status;
    const std::string native = m_storage->NativePath(canonical.getIRI());
    if (const int err = Velmora::os::System().Stat(native, status); err != 0) {
        Fail("folder", m_location, err);
    }
    if (!status.IsFolder())
        Fail("folder", m_location, ENOTDIR);
    return canonical;
}

bool Folder::exists() const {
    return ExistsAt(*m_storage, m_location, [](const auto& status) { return status.IsFolder(); });
}

File::File(const AbsoluteIRI& location, StorageSystemReference storage)
    : m_location(location), m_storage(std::move(storage)) {}

CanonicalAbsoluteIRI File::getCanonicalLocation() const {
    return m_storage->Canonical(m_location, "file");
}

bool File::exists() const {
    return ExistsAt(*m_storage, m_location,
                    [](const auto& status) { return status.IsRegularFile(); });
}

void File::removeFile() const {
    const std::string native = getNativePath();
    if (const int err = Velmora::os::System().RemoveFile(native); err != 0) {
        throw Exception("cannot remove file \"" + native + "\": " + Velmora::os::ErrorText(err),
                        err);
    }
}

}  // namespace foundation::storage::vfs

namespace Velmora::VorlanStorageSystem {

foundation::storage::vfs::StorageSystemReference GetStorageSystemReference() {
    static const auto local = std::make_shared<const foundation::storage::vfs::StorageSystem>();
    return local;
}

}  // namespace Velmora::VorlanStorageSystem
