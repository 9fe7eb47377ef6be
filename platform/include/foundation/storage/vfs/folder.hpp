#pragma once
// Folders and files of a storage system.
//
// A Folder or File is a location on a storage system; constructing one touches nothing on disk.
// The operations that read the disk throw Exception with the errno behind the failure.
//
//   Folder tb(AbsoluteIRI(u"file:///home/ada/tb"),
//   VorlanStorageSystem::GetStorageSystemReference()); tb.getCanonicalLocation()  =>
//   "file:///srv/toolboxes/tb" when /home/ada/tb links there

#include <memory>
#include <string>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/platform/export.hpp>

namespace foundation::storage::vfs {

// StorageSystem: the storage that locations resolve on. The host has one, the local file system,
// which serves the "file" scheme.
class VELMORA_PLATFORM_EXPORT StorageSystem {
  public:
    // NativePath: the OS path (bytes) of a location. Throws Exception if the scheme is not served.
    std::string NativePath(const AbsoluteIRI& location) const;
    // Canonical: the canonical location, symbolic links resolved. Throws Exception naming
    // `what` ("folder", "file") if the location does not exist or cannot be resolved.
    CanonicalAbsoluteIRI Canonical(const AbsoluteIRI& location, const char* what) const;
};

using StorageSystemReference = std::shared_ptr<const StorageSystem>;

class VELMORA_PLATFORM_EXPORT Folder {
  public:
    Folder(const AbsoluteIRI& location, StorageSystemReference storage);

    const AbsoluteIRI& getLocation() const noexcept { return m_location; }
    // The canonical location. Throws Exception if the folder does not exist or is not a folder.
    CanonicalAbsoluteIRI getCanonicalLocation() const;
    // Whether an existing folder is at the location (symbolic links followed). False, not an
    // exception, for a location that has no native path.
    bool exists() const;
    std::string getNativePath() const { return m_storage->NativePath(m_location); }

  private:
    AbsoluteIRI m_location;
    StorageSystemReference m_storage;
};

class VELMORA_PLATFORM_EXPORT File {
  public:
    File(const AbsoluteIRI& location, StorageSystemReference storage);

    const AbsoluteIRI& getLocation() const noexcept { return m_location; }
    // The canonical location. Throws Exception if nothing exists at the location.
    CanonicalAbsoluteIRI getCanonicalLocation() const;
    // Whether an existing regular file is at the location (symbolic links followed). False, not an
    // exception, for a location that has no native path.
    bool exists() const;
    std::string getNativePath() const { return m_storage->NativePath(m_location); }
    // removeFile: removes the file (never a folder) at the location. Throws Exception if there is
    // none or it cannot be removed.
    void removeFile() const;
    const StorageSystemReference& getStorageSystem() const noexcept { return m_storage; }

  private:
    AbsoluteIRI m_location;
    StorageSystemReference m_storage;
};

}  // namespace foundation::storage::vfs
