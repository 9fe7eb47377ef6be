#pragma once
// PathDefinitionFile: where the main search path is kept between sessions.
//
// The file holds one folder per line, as the bytes of its native path, first searched first; lines
// that start with "#" are comments and empty lines are passed over. Names that are not UTF-8 keep
// their bytes. A folder whose name holds a line break cannot be written.
//
//   # vpath search path: one folder per line, searched first to last
//   /home/ada/tb
//   /srv/toolboxes/utils
//
// Saving is atomic: the new content goes to a temporary file in the same folder, which is written,
// flushed to the device, renamed over the file, and then the folder itself is flushed. A crash at
// any point leaves either the old file or the new one, never a mixture; it may leave a temporary
// file ".NAME.XXXXXXXXXXXXXXXX.tmp" behind, which nothing reads.
//
//   PathDefinitionFile file(PathDefinitionFile::DefaultLocation());
//   Notification problems;
//   auto saved = file.Load(problems);
//   if (saved.outcome == PathDefinitionFile::Outcome::Loaded) ... saved.folders ...

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

    // Load: the saved path, each folder once. A file that cannot be read is reported as
    // "VELMORA:pathdef:cannotRead"; each line that is not an absolute path (or holds a NUL) as
    // "VELMORA:pathdef:badLine" with its number, counting from 1.
    Contents Load(foundation::core::except::Notification& problems) const;

    // Save: replaces the file atomically by one that holds `folders`, creating its folder if
    // needed. Returns false, with the reasons in `problems` and the old file in place, if a folder
    // cannot be written ("VELMORA:pathdef:lineBreakInName") or the file cannot be saved
    // ("VELMORA:pathdef:cannotSave").
    bool Save(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders,
              foundation::core::except::Notification& problems) const;

    // Format: the content that Save writes for `folders`. REQUIRES: every folder is a "file"
    // location without a line break.
    static std::string Format(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

  private:
    std::string m_path;
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
