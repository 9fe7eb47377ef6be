#include <velmora/cwf/current_working_folder.hpp>

#include <cerrno>

#include <fl/filesystem/path.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>

namespace Velmora::current_working_folder {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

std::string Describe(const ustring& text, int errorCode, int errorNumber) {
    std::string reason;
    if (errorCode == kInvalidLocation) {
        reason = "it is not a valid location";
    } else if (errorCode == kNotAFolder) {
        reason = "it is not a folder";
    } else if (errorCode == kCannotReadCurrentFolder) {
        reason = "cannot read the current folder: " + os::ErrorText(errorNumber);
    } else {
        reason = os::ErrorText(errorNumber);
    }
    return "cannot use \"" + text::ToNative(text) + "\" as a folder: " + reason;
}

[[noreturn]] void Fail(const ustring& text, int errorCode, int errorNumber = 0) {
    throw FailedToAbsolutizeException(text, errorCode, errorNumber);
}

// The location of an absolute native path, dot segments removed.
AbsoluteIRI LocationOfPath(const ustring& path) {
    return foundation::storage::vfs::toAbsoluteIRI(
               u"file", fl::filesystem::path(fl::filesystem::detail::make_native_form(path, true)))
        .getResolvedIRI();
}

}  // namespace

FailedToAbsolutizeException::FailedToAbsolutizeException(const ustring& text, int errorCode,
                                                         int errorNumber)
    : foundation::core::except::InternalException(Describe(text, errorCode, errorNumber)),
      m_text(text),
      m_errorCode(errorCode),
      m_errorNumber(errorNumber) {}

std::unique_ptr<foundation::core::except::IBaseException> FailedToAbsolutizeException::clone()
    const {
    return std::make_unique<FailedToAbsolutizeException>(*this);
}

void FailedToAbsolutizeException::rethrow() const {
    throw *this;
}

int ErrorCodeOfErrno(int errorNumber) noexcept {
    switch (errorNumber) {
        case EACCES:
        case EPERM:
            return kPermissionDenied;
        case ENOENT:
            return kDoesNotExist;
        case ENOTDIR:
            return kComponentNotAFolder;
        case ELOOP:
            return kTooManySymbolicLinks;
        case ENAMETOOLONG:
            return kNameTooLong;
        case EIO:
            return kInputOutputError;
        default:
            return kOtherFailure;
    }
}

ICurrentWorkingFolder::~ICurrentWorkingFolder() = default;

AbsoluteIRI CurrentWorkingFolder::resolve(const ustring& text) const {
    namespace vfs = foundation::storage::vfs;
    if (text.empty() || text.find(u'\0') != ustring::npos)
        Fail(text, kInvalidLocation);
    try {
        if (vfs::hasIRIPrefix(text)) {
            const AbsoluteIRI iri(text);
            if (iri.getScheme() != u"file")
                Fail(text, kInvalidLocation);
            return iri.getResolvedIRI();
        }
        if (text.front() == u'/')
            return LocationOfPath(text);
        std::string current;
        if (const int err = os::System().CurrentFolder(current); err != 0)
            Fail(text, kCannotReadCurrentFolder, err);
        return LocationOfPath(text::FromNative(current) + u"/" + text);
    } catch (const vfs::InvalidIRIException&) {
        Fail(text, kInvalidLocation);
    }
}

AbsoluteIRI CurrentWorkingFolder::absolutize(const ustring& text) const {
    AbsoluteIRI location = resolve(text);
    std::string native;
    try {
        native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(location));
    } catch (const foundation::storage::vfs::Exception& e) {
        // A location that no local path can hold.
        const int err = e.GetErrorNumber();
        Fail(text, err == 0 ? kInvalidLocation : ErrorCodeOfErrno(err), err);
    }
    os::FileStatus status;
    if (const int err = os::System().Stat(native, status); err != 0)
        Fail(text, ErrorCodeOfErrno(err), err);
    if (!status.IsFolder())
        Fail(text, kNotAFolder);
    return location;
}

}  // namespace Velmora::current_working_folder
