#pragma once
// The current-folder service: makes folder texts that users type absolute.
//
// absolutize takes a text as a user wrote it (a relative or absolute file-system path, or a "file"
// IRI), resolves it against the process's current folder, removes "." and ".." segments as text
// (as a shell's cd does) and checks that an existing folder is at the result. When it cannot, it
// throws FailedToAbsolutizeException with a code that says why:
//
//   code  meaning                                  from
//   0     invalid location                          empty text, NUL, no valid IRI, not "file"
//   1     I/O error (internal)                      EIO
//   2     the current folder cannot be read         any error of getcwd (internal)
//   3     permission denied                         EACCES, EPERM
//   4     does not exist                            ENOENT
//   5     a component is not a folder               ENOTDIR
//   6     too many symbolic links                   ELOOP
//   7     exists but is not a folder                a file is there
//   8     any other failure (internal)              any other errno
//   9     name too long                             ENAMETOOLONG
//
//   CurrentWorkingFolder cwf;                     // current folder /home/ada
//   cwf.absolutize(u"tb/../utils")               => "file:///home/ada/utils"
//   cwf.absolutize(u"/srv//tb/")                  => "file:///srv/tb"
//   cwf.absolutize(u"file:///srv/tb")             => "file:///srv/tb"
//   cwf.absolutize(u"missing")                    => throws, GetErrorCode() == 4
//
// Every OS call goes through the seam (velmora/os/system.hpp).

#include <memory>
#include <string>

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::current_working_folder {

// The codes of FailedToAbsolutizeException::GetErrorCode(); see the table above.
enum AbsolutizeErrorCode : int {
    kInvalidLocation = 0,
    kInputOutputError = 1,
    kCannotReadCurrentFolder = 2,
    kPermissionDenied = 3,
    kDoesNotExist = 4,
    kComponentNotAFolder = 5,
    kTooManySymbolicLinks = 6,
    kNotAFolder = 7,
    kOtherFailure = 8,
    kNameTooLong = 9,
};

// FailedToAbsolutizeException: a text could not be made the location of an existing folder.
class VELMORA_PLATFORM_EXPORT FailedToAbsolutizeException
    : public foundation::core::except::InternalException {
  public:
    // `errorNumber` is the errno behind the failure, 0 when there is none.
    FailedToAbsolutizeException(const ustring& text, int errorCode, int errorNumber);

    int GetErrorCode() const noexcept { return m_errorCode; }
    int GetErrorNumber() const noexcept { return m_errorNumber; }
    // The text as it was given to absolutize.
    const ustring& GetText() const noexcept { return m_text; }

    std::unique_ptr<foundation::core::except::IBaseException> clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    ustring m_text;
    int m_errorCode;
    int m_errorNumber;
};

// ErrorCodeOfErrno: the code of the table above for an errno of a failed look-up.
VELMORA_PLATFORM_EXPORT int ErrorCodeOfErrno(int errorNumber) noexcept;

// ICurrentWorkingFolder: the service. Thread-safe.
class VELMORA_PLATFORM_EXPORT ICurrentWorkingFolder {
  public:
    virtual ~ICurrentWorkingFolder();

    // absolutize: the location of the existing folder that `text` names, "." and ".." removed.
    // Throws FailedToAbsolutizeException (see the table above).
    virtual foundation::storage::vfs::AbsoluteIRI absolutize(const ustring& text) const = 0;

  protected:
    ICurrentWorkingFolder() = default;
    ICurrentWorkingFolder(const ICurrentWorkingFolder&) = default;
    ICurrentWorkingFolder& operator=(const ICurrentWorkingFolder&) = default;
};

// CurrentWorkingFolder: the service over the process's current folder, read on every call.
class VELMORA_PLATFORM_EXPORT CurrentWorkingFolder final : public ICurrentWorkingFolder {
  public:
    foundation::storage::vfs::AbsoluteIRI absolutize(const ustring& text) const override;

    // resolve: absolutize without looking at the disk beyond the current folder: the location
    // that `text` names, whether or not anything is there. Throws FailedToAbsolutizeException with
    // code 0 or 2 only.
    //
    //   resolve(u"missing/..//x")  => "file:///home/ada/x"
    foundation::storage::vfs::AbsoluteIRI resolve(const ustring& text) const;
};

}  // namespace Velmora::current_working_folder
