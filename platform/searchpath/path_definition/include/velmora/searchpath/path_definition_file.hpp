#pragma once
// PathDefinitionFile: where the main search path is kept between sessions.
//
// The file holds one folder per line, as the bytes of its native path, first searched first; lines
// that start with "#" are comments and empty lines are passed over. Names that are not UTF-8 keep
// their bytes. Lines may end in LF or CRLF; "." and ".." segments and repeated "/" of a line are
// resolved as text, so "/a/./b/../c//" names "/a/c". A folder whose name holds a line break, or
// ends in a carriage return (which a CRLF line ending would take), cannot be added; one that the
// file holds already is written with a CRLF line ending, which keeps it.
//
//   # vpath search path: one folder per line, searched first to last
//   /home/ada/tb
//   /srv/toolboxes/utils
//
// Saving is atomic: the new content goes to a temporary file in the same folder as the file, which
// is written, flushed to the device, renamed over the file, and then the folder itself is flushed.
// A crash at any point leaves either the old file or the new one, never a mixture; the temporary
// file ".NAME.XXXXXXXXXXXXXXXX.tmp" that it may leave behind is removed by the next save.
//
// Saving changes only what it must: where the file is a symbolic link, the file it leads to is
// replaced (in that file's folder) and the link stays; the file keeps its permission bits, owner
// and group; comments, blank lines and the lines of folders that stay are kept as they were, in
// their places (a last line without its line ending gets one that keeps its bytes: CRLF after a
// carriage return), and new folder lines use the line ending of the file's first line.
//
// Several processes may change the file at once. Each change holds the lock of the file (see
// LockForChange) from reading the file to saving it, so that none is lost; readers never wait.
//
//   PathDefinitionFile file(PathDefinitionFile::DefaultLocation());
//   Notification problems;
//   auto saved = file.Load(problems);
//   if (saved.outcome == PathDefinitionFile::Outcome::Loaded) ... saved.folders ...

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <foundation/core/except/message_record.hpp>
#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT PathDefinitionFile {
  public:
    // The file at `nativePath` (bytes; relative paths are taken from the current folder).
    explicit PathDefinitionFile(std::string nativePath);

    // DefaultLocation: $VPATH_PATHDEF if set, else $XDG_CONFIG_HOME/vpath/pathdef, else
    // $HOME/.config/vpath/pathdef; empty when none of these variables is set.
    static std::string DefaultLocation();
    // UsualLocation: DefaultLocation as it is when VPATH_PATHDEF is not set. Programs started by
    // the user's service manager (systemd's user units) do not see the shell's VPATH_PATHDEF:
    // this is the path they serve.
    static std::string UsualLocation();

    const std::string& GetNativePath() const noexcept { return m_path; }

    enum class Outcome {
        Loaded,   // the file was read; `folders` is the path it holds
        Missing,  // there is no file: no path was saved yet
        Failed,   // the file cannot be used; the reasons are in the Notification
    };
    struct Contents {
        Outcome outcome = Outcome::Missing;
        std::vector<foundation::storage::vfs::AbsoluteIRI> folders;
    };

    // The largest file that Load reads: a path of this size would be unusable anyway.
    static constexpr std::uint64_t kMaxBytes = std::uint64_t{16} << 20;

    // Load: the saved path, each folder once. A file that cannot be read, is not a regular file
    // (a FIFO, a device) or is larger than kMaxBytes is reported at once as
    // "VELMORA:pathdef:cannotRead"; each line that is not an absolute path (or holds a NUL) as
    // "VELMORA:pathdef:badLine" with its number, counting from 1.
    Contents Load(foundation::core::except::Notification& problems) const;

    // Holds: whether the file still holds exactly `folders` as the last reading kept (see
    // KeepLastReading) found them: its bytes are the ones last read, and they hold `folders`.
    // False when that cannot be told cheaply (no reading kept, the file changed or cannot be
    // read): Load then tells.
    bool Holds(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders) const;

    // Save: replaces the file atomically by one that holds `folders`, keeping what the old file
    // held besides its folders (see above) and creating its folder if needed. Returns false, with
    // the reasons in `problems` and the old file in place, if a folder cannot be written
    // ("VELMORA:pathdef:lineBreakInName") or the file cannot be saved
    // ("VELMORA:pathdef:cannotSave"). Meant to be called under the change lock, since it removes
    // the temporary files of saves that no one else can be making.
    bool Save(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
              foundation::core::except::Notification& problems) const;

    // SaveChange: as Save, for a change worked out on `base`, the path that the file held when the
    // change read it. When the file no longer holds `base` by the time it would be replaced (it
    // was edited, by hand or by another program that takes no lock, since it was read), nothing
    // is saved and Stale is returned, so that the change can be made again on what it holds now.
    // With KeepLastReading, what the saved file holds is kept as its reading, so that reading it
    // again parses nothing. REQUIRES: `folders` holds each folder once.
    enum class SaveResult { Saved, Failed, Stale };
    SaveResult SaveChange(const std::vector<foundation::storage::vfs::AbsoluteIRI>& base,
                          const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
                          foundation::core::except::Notification& problems) const;
    // The same for a path that the caller holds shared, as a manager's state does: the reading
    // kept of what is saved shares it rather than a copy, and tells that the file holds it
    // without comparing its folders.
    using SharedFolders = std::shared_ptr<const std::vector<foundation::storage::vfs::AbsoluteIRI>>;
    SaveResult SaveChange(const std::vector<foundation::storage::vfs::AbsoluteIRI>& base,
                          const SharedFolders& folders,
                          foundation::core::except::Notification& problems) const;

    // Format: the content that Save writes for `folders`. REQUIRES: every folder is a "file"
    // location without a line break.
    static std::string Format(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

    // ChangeLock: the exclusive hold on the file that one change has, from reading the file to
    // saving it. Released when destroyed (and by the system when the process ends).
    class VELMORA_SEARCHPATH_EXPORT ChangeLock {
      public:
        ChangeLock() = default;
        explicit ChangeLock(int descriptor) noexcept : m_descriptor(descriptor) {}
        ChangeLock(ChangeLock&& other) noexcept;
        ChangeLock& operator=(ChangeLock&& other) noexcept;
        ~ChangeLock();

        bool IsHeld() const noexcept { return m_descriptor >= 0; }

      private:
        int m_descriptor = -1;
    };

    // LockForChange: takes the file's lock, an advisory lock (flock) on ".NAME.lock" beside the
    // file that symbolic links lead to, waiting while another change holds it. A lock that cannot
    // be taken is reported as "VELMORA:pathdef:cannotSave", and the lock returned is not held.
    ChangeLock LockForChange(foundation::core::except::Notification& problems) const;

    // SetSlowLockNotice: `notice` is called once, on another thread, when LockForChange has waited
    // a second for the lock, so that a user can learn why a change takes its time.
    void SetSlowLockNotice(std::function<void()> notice) { m_slowLockNotice = std::move(notice); }

    // KeepLastReading: from now on, what the last reading of the file worked out is kept, so that
    // reading the same bytes again (a change reads the file again under its lock, and once more
    // before saving over it) parses nothing. Off by default: a path of many folders holds a few
    // megabytes of it, which only a change uses.
    void KeepLastReading();

    // What a reading of the file worked out, kept for the next reading of the same bytes.
    struct Reading;

  private:
    class LastReading;

    // Save with no `base`, SaveChange with one.
    SaveResult Write(const std::vector<foundation::storage::vfs::AbsoluteIRI>* base,
                     const SharedFolders& folders,
                     foundation::core::except::Notification& problems) const;
    // Whether every folder can be written in the file that holds `old` (none when there is no
    // file yet), reporting those that cannot.
    bool Writable(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
                  const std::string* old, const Reading* reading,
                  foundation::core::except::Notification& problems) const;

    std::string m_path;
    std::function<void()> m_slowLockNotice;
    std::shared_ptr<LastReading> m_lastReading;  // null unless KeepLastReading was called
};

}  // namespace Velmora::SearchPath

// The messages of the path definition file.
namespace VELMORA::pathdef {

// cannotRead: "Cannot read the path definition file "{0}": {1}."
class VELMORA_SEARCHPATH_EXPORT cannotRead : public resource_core::MessageRecord {
  public:
    cannotRead(const ustring& file, const std::string& reason);
};

// cannotSave: "Cannot save the path definition file "{0}": {1}."
class VELMORA_SEARCHPATH_EXPORT cannotSave : public resource_core::MessageRecord {
  public:
    cannotSave(const ustring& file, const std::string& reason);
};

// badLine: "Line {1} of the path definition file "{0}" is not an absolute folder path."
class VELMORA_SEARCHPATH_EXPORT badLine : public resource_core::MessageRecord {
  public:
    badLine(const ustring& file, std::int64_t lineNumber);
};

// lineBreakInName: "The folder "{0}" cannot be saved in the path definition file: ..."
class VELMORA_SEARCHPATH_EXPORT lineBreakInName : public resource_core::MessageRecord {
  public:
    explicit lineBreakInName(const ustring& folder);
};

}  // namespace VELMORA::pathdef
