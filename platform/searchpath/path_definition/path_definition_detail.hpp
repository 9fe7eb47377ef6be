#pragma once
// Internal to the path definition file: what its reading, its saving and its lock share: the
// file's lines, the names of the files beside it, and the kept reading of its bytes.

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

namespace Velmora::SearchPath::detail {

// One line of the file: its text without the line ending, and the line ending.
struct Line {
    std::string_view text;
    std::string_view ending;
};

// SplitLines: the lines of `bytes`; the last one has no line ending when the bytes end without one.
std::vector<Line> SplitLines(std::string_view bytes);

// IsFolderLine: whether a line names a folder (it is neither empty nor a comment).
bool IsFolderLine(std::string_view text);

// The folder that each line names, none for other lines. Each line is worked out on its own, side
// by side: a long path is mostly that.
std::vector<std::optional<foundation::storage::vfs::AbsoluteIRI>> FoldersOfLines(
    const std::vector<Line>& lines);

// The folder that holds `file`.
std::string FolderOf(const std::string& file);

// The base name of `file`.
std::string NameOf(const std::string& file);

// The file that a save replaces: the one that `file` leads to when it is a symbolic link.
std::string Target(const std::string& file);

// ReadFailure: why the file could not be read or written, for a message.
std::string ReadFailure(int err);

}  // namespace Velmora::SearchPath::detail

namespace Velmora::SearchPath {

struct PathDefinitionFile::Reading {
    static constexpr std::uint32_t kNoFolder = UINT32_MAX;
    std::string bytes;
    // The folder of each line of `bytes`, as its place in `folders`; kNoFolder for other lines.
    // Places rather than copies: a kept reading of a long path then costs no count of references
    // to make or to let go.
    std::vector<std::uint32_t> folderOf;
    std::vector<std::size_t> firstLines;  // the first line of each folder
    // Where each line starts in `bytes`, and at last the size of `bytes`: a change then finds the
    // lines it touches without splitting the whole file again.
    std::vector<std::uint32_t> lineStarts;
    // The path, each folder once; after a change, the very list the change saved, which the
    // manager's state holds too: a reading then tells that it holds that path without a look
    // at its folders, and letting go of it counts no references.
    std::shared_ptr<const std::vector<foundation::storage::vfs::AbsoluteIRI>> folders;

    // The folder that line `line` names, or null.
    const foundation::storage::vfs::AbsoluteIRI* FolderAt(std::size_t line) const {
        return folderOf[line] == kNoFolder ? nullptr : &(*folders)[folderOf[line]];
    }
    // Whether the reading holds the path `path`.
    bool HoldsPath(const std::vector<foundation::storage::vfs::AbsoluteIRI>& path) const {
        return folders.get() == &path || *folders == path;
    }
};

class PathDefinitionFile::LastReading {
  public:
    // The reading of `bytes`, if they are the bytes last read.
    std::shared_ptr<const Reading> Of(std::string_view bytes) const {
        std::lock_guard lock(m_mutex);
        return m_reading && m_reading->bytes == bytes ? m_reading : nullptr;
    }
    void Keep(std::shared_ptr<const Reading> reading) {
        std::lock_guard lock(m_mutex);
        m_reading = std::move(reading);
    }

  private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const Reading> m_reading;
};

}  // namespace Velmora::SearchPath
