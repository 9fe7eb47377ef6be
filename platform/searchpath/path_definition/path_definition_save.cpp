// PathDefinitionFile::Save: a new path written over the file faithfully (the user's comments and
// the lines of folders that stay are kept where they are) and atomically (a new file renamed into
// place, never a half-written one).

#include <velmora/searchpath/path_definition_file.hpp>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string_view>

#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include "anchors.hpp"
#include "path_definition_detail.hpp"

namespace Velmora::SearchPath {
namespace {

using detail::FolderOf;
using detail::FoldersOfLines;
using detail::Line;
using detail::NameOf;
using detail::ReadFailure;
using detail::SplitLines;
using detail::Target;
using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;

foundation::log::DiagnosticLogger& PathdefLog() {
    static foundation::log::DiagnosticLogger log("platform::searchpath::pathdef");
    return log;
}

// A name for the temporary file beside `file` that no other save is likely to choose; creating it
// exclusively makes sure that no two saves ever share one.
std::string TemporaryName(const std::string& file) {
    static std::mutex mutex;
    static std::mt19937_64 random{std::random_device{}()};
    std::uint64_t token = 0;
    {
        std::lock_guard lock(mutex);
        token = random();
    }
    const std::size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : file.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
    return fmt::format("{}.{}.{:016x}.tmp", folder, name, token);
}

// Whether `name` is a temporary file that TemporaryName makes for `target`.
bool IsTemporaryOf(std::string_view name, const std::string& target) {
    const std::string prefix = "." + NameOf(target) + ".";
    constexpr std::string_view suffix = ".tmp";
    if (name.size() != prefix.size() + 16 + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix)) {
        return false;
    }
    const std::string_view token = name.substr(prefix.size(), 16);
    return std::all_of(token.begin(), token.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// One line as LayOut or Format wrote it: where its text starts in the content, its size and the
// folder it names (none for other lines).
struct WrittenLine {
    std::size_t at;
    std::size_t size;
    const AbsoluteIRI* folder;
};

// The line ending of the file's first line, which the lines a save writes take.
std::string_view NewlineOf(std::string_view bytes) {
    const std::size_t end = bytes.find('\n');
    return end != std::string_view::npos && end > 0 && bytes[end - 1] == '\r' ? "\r\n" : "\n";
}

// Appends `lines` to `out`, laid out for `folders`: the lines of the folders that stay and every
// other line are kept where they are, the lines of folders that go are dropped, and each new or
// moved folder is written right after the folder before it, or, when it comes first, before the
// first folder line that stays. `folderOf(i)` is the folder that line i names, or null;
// `folderLines` the first line of each folder, in order; later lines of a folder are dropped.
// Each line written is told in `written`.
template <class FolderOf>
void LayOut(std::span<const Line> lines, std::string_view newline, const FolderOf& folderOf,
            std::span<const std::size_t> folderLines, std::span<const AbsoluteIRI> folders,
            std::string& out, std::vector<WrittenLine>& written) {
    // Each of those folders' place in `folders`, -1 for one that goes. The runs that the two
    // share at the front and at the back keep their places; only the folders between them are
    // looked up.
    const auto [front, back] = SharedRuns(
        folderLines, folders,
        [&](std::size_t line, const AbsoluteIRI& folder) { return *folderOf(line) == folder; });
    std::vector<std::ptrdiff_t> ranks(folderLines.size(), -1);
    for (std::size_t k = 0; k < front; ++k)
        ranks[k] = static_cast<std::ptrdiff_t>(k);
    for (std::size_t k = 1; k <= back; ++k)
        ranks[ranks.size() - k] = static_cast<std::ptrdiff_t>(folders.size() - k);
    boost::unordered_flat_map<AbsoluteIRI, std::ptrdiff_t> rankOf;
    for (std::size_t i = front; i < folders.size() - back; ++i)
        rankOf.emplace(folders[i], static_cast<std::ptrdiff_t>(i));
    for (std::size_t k = front; k < ranks.size() - back; ++k) {
        if (const auto it = rankOf.find(*folderOf(folderLines[k])); it != rankOf.end())
            ranks[k] = it->second;
    }
    const std::vector<bool> anchored = detail::Anchors(ranks);
    std::vector<bool> keepLine(lines.size(), true);
    std::vector<bool> isAnchorRank(folders.size(), false);
    std::size_t frontAt = lines.size();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (folderOf(i) != nullptr)
            keepLine[i] = false;
    }
    for (std::size_t k = 0; k < folderLines.size(); ++k) {
        if (anchored[k]) {
            keepLine[folderLines[k]] = true;
            isAnchorRank[static_cast<std::size_t>(ranks[k])] = true;
            frontAt = std::min(frontAt, folderLines[k]);
        }
    }
    if (frontAt == lines.size() && !folderLines.empty())
        frontAt = folderLines.front();

    // The folders to write, by the line they follow (lines.size() for the front).
    boost::unordered_flat_map<std::size_t, std::vector<std::size_t>> inserted;
    {
        std::size_t follows = lines.size();
        std::size_t k = 0;
        for (std::size_t rank = 0; rank < folders.size(); ++rank) {
            if (isAnchorRank[rank]) {
                while (ranks[k] != static_cast<std::ptrdiff_t>(rank) || !anchored[k])
                    ++k;
                follows = folderLines[k];
            } else {
                inserted[follows].push_back(rank);
            }
        }
    }
    bool openLine = false;  // the last line written has no line ending yet
    const auto write = [&](std::string_view text, std::string_view ending,
                           const AbsoluteIRI* folder) {
        // A kept last line that ends in a carriage return without a line feed keeps it: a line
        // feed alone would make the two a line ending and the line name another folder.
        if (openLine)
            out += out.ends_with('\r') ? std::string_view("\r\n") : newline;
        written.push_back(WrittenLine{out.size(), text.size(), folder});
        out += text;
        out += ending;
        openLine = ending.empty();
    };
    const auto writeInserted = [&](std::size_t follows) {
        if (const auto it = inserted.find(follows); it != inserted.end()) {
            for (const std::size_t rank : it->second) {
                const std::string name =
                    text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(folders[rank]));
                // A name that ends in a carriage return (one the file held) keeps it only so.
                write(name, name.ends_with('\r') ? std::string_view("\r\n") : newline,
                      &folders[rank]);
            }
        }
    };
    // The folder of each kept line: a kept folder line is an anchor, which stays where it is.
    std::vector<const AbsoluteIRI*> keptFolder(lines.size(), nullptr);
    for (std::size_t k = 0; k < folderLines.size(); ++k) {
        if (anchored[k])
            keptFolder[folderLines[k]] = &folders[static_cast<std::size_t>(ranks[k])];
    }
    written.reserve(written.size() + folders.size() + lines.size() - folderLines.size());
    for (std::size_t i = 0; i <= lines.size(); ++i) {
        if (i == frontAt)
            writeInserted(lines.size());
        if (i == lines.size())
            break;
        if (keepLine[i]) {
            write(lines[i].text, lines[i].ending, keptFolder[i]);
            writeInserted(i);
        }
    }
}

// The content of the file that held `bytes` once it holds `folders` (see LayOut).
std::string Relayout(std::string_view bytes, const std::vector<AbsoluteIRI>& folders,
                     std::vector<WrittenLine>& written) {
    const std::vector<Line> lines = SplitLines(bytes);
    const auto parsed = FoldersOfLines(lines);
    // The first line of each folder, in file order.
    std::vector<std::size_t> firstLines;
    boost::unordered_flat_set<AbsoluteIRI> seen;
    seen.reserve(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (parsed[i] && seen.insert(*parsed[i]).second)
            firstLines.push_back(i);
    }
    std::string out;
    out.reserve(bytes.size() + 4096);
    LayOut(
        lines, NewlineOf(bytes),
        [&](std::size_t i) -> const AbsoluteIRI* { return parsed[i] ? &*parsed[i] : nullptr; },
        firstLines, folders, out, written);
    return out;
}

// Appends to `reading` the lines of content[from, to), which begin at line `firstLine` and were
// written as `written` tells: each as a reading of the bytes finds it, a folder line naming the
// next folder of `folders`. False when a reading would find other lines or folders.
bool TakeWritten(PathDefinitionFile::Reading& reading, std::string_view content, std::size_t from,
                 std::size_t to, const std::vector<WrittenLine>& written,
                 const std::vector<AbsoluteIRI>& folders, std::size_t firstLine) {
    const std::vector<Line> lines = SplitLines(content.substr(from, to - from));
    if (lines.size() != written.size())
        return false;
    reading.folderOf.reserve(reading.folderOf.size() + lines.size());
    reading.lineStarts.reserve(reading.lineStarts.size() + lines.size() + 1);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const WrittenLine& line = written[i];
        if (static_cast<std::size_t>(lines[i].text.data() - content.data()) != line.at ||
            lines[i].text.size() != line.size ||
            detail::IsFolderLine(lines[i].text) != (line.folder != nullptr)) {
            return false;
        }
        reading.lineStarts.push_back(static_cast<std::uint32_t>(line.at));
        if (line.folder == nullptr) {
            reading.folderOf.push_back(PathDefinitionFile::Reading::kNoFolder);
            continue;
        }
        const std::size_t place = reading.firstLines.size();
        if (place >= folders.size() || line.folder != &folders[place])
            return false;
        reading.folderOf.push_back(static_cast<std::uint32_t>(place));
        reading.firstLines.push_back(firstLine + i);
    }
    return true;
}

// The reading of the file once it holds `folders`, laid out from `reading`, the kept reading of
// what it holds now. Only the lines from the last folder of the run that the two paths share at
// the front to the first of the run they share at the back are laid out again: those two anchor
// what lies between as they would in a layout of the whole file, and the lines before and after
// them are copied as they stand, their places and line numbers moved along. A change of one folder
// of a long path then costs a copy of the bytes. None when a folder is named on more than one line
// (a layout of the whole file drops the later ones) or what is written does not read back as laid
// out.
std::shared_ptr<PathDefinitionFile::Reading> RelayoutKept(
    const PathDefinitionFile::Reading& reading, const PathDefinitionFile::SharedFolders& list) {
    const std::vector<AbsoluteIRI>& folders = *list;
    using Reading = PathDefinitionFile::Reading;
    const std::size_t lineCount = reading.folderOf.size();
    const std::size_t oldCount = reading.folders->size();
    if (reading.lineStarts.size() != lineCount + 1 || reading.firstLines.size() != oldCount ||
        static_cast<std::size_t>(std::count_if(
            reading.folderOf.begin(), reading.folderOf.end(),
            [](std::uint32_t place) { return place != Reading::kNoFolder; })) != oldCount) {
        return nullptr;
    }
    const auto runs = SharedRuns(*reading.folders, folders);
    // The folders laid out again: [from, oldTo) of the old path, [from, newTo) of the new one.
    const std::size_t from = runs.front > 0 ? runs.front - 1 : 0;
    const std::size_t oldTo = runs.back > 0 ? oldCount - runs.back + 1 : oldCount;
    const std::size_t newTo = folders.size() - (oldCount - oldTo);
    const std::size_t lineFrom = runs.front > 0 ? reading.firstLines[from] : 0;
    const std::size_t lineTo = runs.back > 0 ? reading.firstLines[oldTo - 1] + 1 : lineCount;
    const std::string_view bytes = reading.bytes;
    const std::size_t byteFrom = reading.lineStarts[lineFrom];
    const std::size_t byteTo = reading.lineStarts[lineTo];

    const std::vector<Line> lines = SplitLines(bytes.substr(byteFrom, byteTo - byteFrom));
    if (lines.size() != lineTo - lineFrom)
        return nullptr;
    std::vector<std::size_t> folderLines(
        reading.firstLines.begin() + static_cast<std::ptrdiff_t>(from),
        reading.firstLines.begin() + static_cast<std::ptrdiff_t>(oldTo));
    for (std::size_t& line : folderLines)
        line -= lineFrom;
    auto next = std::make_shared<Reading>();
    std::string& out = next->bytes;
    out.reserve(bytes.size() + 4096);
    out.append(bytes.substr(0, byteFrom));
    std::vector<WrittenLine> written;
    LayOut(
        lines, NewlineOf(bytes), [&](std::size_t i) { return reading.FolderAt(lineFrom + i); },
        folderLines, std::span(folders).subspan(from, newTo - from), out, written);
    const std::size_t laidTo = out.size();
    out.append(bytes.substr(byteTo));

    // The lines before: as they were.
    const auto firstOf = [](const auto& source, std::size_t count) {
        return std::vector(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(count));
    };
    next->folderOf = firstOf(reading.folderOf, lineFrom);
    next->lineStarts = firstOf(reading.lineStarts, lineFrom);
    next->firstLines = firstOf(reading.firstLines, from);
    const std::size_t newLines = lineFrom + written.size() + (lineCount - lineTo);
    next->folderOf.reserve(newLines);
    next->lineStarts.reserve(newLines + 1);
    next->firstLines.reserve(folders.size());
    if (!TakeWritten(*next, out, byteFrom, laidTo, written, folders, lineFrom))
        return nullptr;
    // The lines after: moved along by what the laid-out lines added or took away.
    const std::uint32_t movedBytes = static_cast<std::uint32_t>(laidTo - byteTo);
    const std::uint32_t movedPlaces = static_cast<std::uint32_t>(newTo - oldTo);
    const std::size_t afterLine = lineFrom + written.size();
    for (std::size_t j = lineTo; j < lineCount; ++j) {
        const std::uint32_t place = reading.folderOf[j];
        next->folderOf.push_back(place == Reading::kNoFolder ? place : place + movedPlaces);
        next->lineStarts.push_back(reading.lineStarts[j] + movedBytes);
    }
    for (std::size_t k = oldTo; k < oldCount; ++k)
        next->firstLines.push_back(reading.firstLines[k] - lineTo + afterLine);
    next->lineStarts.push_back(static_cast<std::uint32_t>(out.size()));
    if (next->firstLines.size() != folders.size())
        return nullptr;
    next->folders = list;
    return next;
}

// What a reading of `content` would work out, told from how it was written, so that the next
// reading of the file that a change just saved parses nothing; none when the written lines are not
// exactly the lines that a reading finds, or do not name `folders` in order. The reading takes the
// content, which is left empty then.
std::shared_ptr<const PathDefinitionFile::Reading> ReadingOfWritten(
    std::string& content, const std::vector<WrittenLine>& written,
    const PathDefinitionFile::SharedFolders& list) {
    const std::vector<AbsoluteIRI>& folders = *list;
    auto reading = std::make_shared<PathDefinitionFile::Reading>();
    reading->firstLines.reserve(folders.size());
    if (!TakeWritten(*reading, content, 0, content.size(), written, folders, 0) ||
        reading->firstLines.size() != folders.size()) {
        return nullptr;
    }
    reading->lineStarts.push_back(static_cast<std::uint32_t>(content.size()));
    reading->folders = list;
    reading->bytes = std::move(content);
    return reading;
}

// Whether `bytes`, the content of the file, hold the path `base`: each folder once, in order, and
// no line that names none.
bool HoldsPath(std::string_view bytes, const PathDefinitionFile::Reading* reading,
               const std::vector<AbsoluteIRI>& base) {
    if (reading)
        return reading->HoldsPath(base);
    const std::vector<Line> lines = SplitLines(bytes);
    const auto folderOf = FoldersOfLines(lines);
    boost::unordered_flat_set<AbsoluteIRI> seen;
    std::size_t next = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!detail::IsFolderLine(lines[i].text))
            continue;
        if (!folderOf[i])
            return false;
        if (seen.insert(*folderOf[i]).second &&
            (next == base.size() || base[next++] != *folderOf[i]))
            return false;
    }
    return next == base.size();
}

// Whether the file at `file` is still the one whose status was `before`: an editor that writes a
// new file and renames it into place changes its inode, and one that writes in place its size or
// times.
bool Unchanged(const std::string& file, const os::FileStatus& before) {
    os::FileStatus now;
    return os::System().Stat(file, now) == 0 && now.device == before.device &&
           now.inode == before.inode && now.size == before.size &&
           now.modifiedNs == before.modifiedNs && now.changedNs == before.changedNs;
}

// What ReplaceAtomically returns when the file changed under it and was left as it is.
constexpr int kChangedMeanwhile = -1;

// Writes `content` to a new temporary file beside `file` and renames it over `file`, giving the
// new file the owner, group and permission bits of `like` when there is one; with `unchanged`, only
// while `file` is still the one of status `like`. Returns 0, kChangedMeanwhile or the errno of the
// step that failed; the temporary file is gone unless renamed.
int ReplaceAtomically(const std::string& file, std::string_view content, const os::FileStatus* like,
                      bool unchanged) {
    os::ISystem& system = os::System();
    std::string temporary;
    int descriptor = -1;
    int err = EEXIST;
    for (int attempt = 0; attempt < 8 && err == EEXIST; ++attempt) {
        temporary = TemporaryName(file);
        err = system.CreateFileExclusive(temporary, descriptor);
    }
    if (err != 0)
        return err;
    if (like != nullptr)
        err = system.SetOwnerAndMode(descriptor, like->owner, like->group, like->mode);
    if (err == 0)
        err = system.WriteAll(descriptor, content);
    if (err == 0)
        err = system.SyncFile(descriptor);
    const int closed = system.CloseFile(descriptor);
    if (err == 0)
        err = closed;
    // The last moment before the rename at which an edit made meanwhile can still be kept.
    if (err == 0 && unchanged && like != nullptr && !Unchanged(file, *like))
        err = kChangedMeanwhile;
    if (err == 0)
        err = system.Rename(temporary, file);
    if (err != 0) {
        system.RemoveFile(temporary);
        return err;
    }
    // The new file is in place; flushing the folder only makes the rename survive a power cut.
    if (const int synced = system.SyncFolder(FolderOf(file)); synced != 0) {
        if (PathdefLog().IsEnabled(foundation::log::Level::Warn)) {
            PathdefLog().Write(
                foundation::log::Level::Warn,
                fmt::format("cannot flush the folder of {}: {}", file, os::ErrorText(synced)));
        }
    }
    return 0;
}

// Removes the temporary files that saves of `target` killed before their rename left behind. Only
// called under the change lock, when no other save can be under way.
void RemoveStaleTemporaries(const std::string& target) {
    os::FolderListing listing;
    if (os::System().ListFolder(FolderOf(target), listing) != 0)
        return;
    for (const auto& item : listing.items) {
        if (item.kind != os::EntryKind::Folder && IsTemporaryOf(item.name, target))
            os::System().RemoveFile(FolderOf(target) + "/" + item.name);
    }
}

}  // namespace

bool PathDefinitionFile::Save(const std::vector<AbsoluteIRI>& folders,
                              Notification& problems) const {
    // A save keeps no reading: the folders are only borrowed.
    return Write(nullptr, SharedFolders(SharedFolders(), &folders), problems) == SaveResult::Saved;
}

PathDefinitionFile::SaveResult PathDefinitionFile::SaveChange(
    const std::vector<AbsoluteIRI>& base, const std::vector<AbsoluteIRI>& folders,
    Notification& problems) const {
    return Write(&base,
                 m_lastReading ? std::make_shared<const std::vector<AbsoluteIRI>>(folders)
                               : SharedFolders(SharedFolders(), &folders),
                 problems);
}

PathDefinitionFile::SaveResult PathDefinitionFile::SaveChange(const std::vector<AbsoluteIRI>& base,
                                                              const SharedFolders& folders,
                                                              Notification& problems) const {
    return Write(&base, folders, problems);
}

PathDefinitionFile::SaveResult PathDefinitionFile::Write(const std::vector<AbsoluteIRI>* base,
                                                         const SharedFolders& list,
                                                         Notification& problems) const {
    const std::vector<AbsoluteIRI>& folders = *list;
    const ustring file = text::FromNative(m_path);
    const std::string target = Target(m_path);
    std::string old;
    os::FileStatus status;
    // The status is taken before the bytes are read, so that an edit between the two shows as a
    // change before the rename.
    int err = os::System().Stat(target, status);
    if (err == 0)
        err = os::System().ReadRegularFile(target, kMaxBytes, old);
    const bool exists = err == 0;
    if (err == ENOENT)
        err = 0;
    const auto reading = exists && m_lastReading ? m_lastReading->Of(old) : nullptr;
    if (err == 0 && !Writable(folders, exists ? &old : nullptr, reading.get(), problems))
        return SaveResult::Failed;
    if (err == 0 && exists && base && !HoldsPath(old, reading.get(), *base))
        return SaveResult::Stale;
    if (err == 0)
        err = os::System().MakeFolders(FolderOf(target));
    if (err == 0) {
        RemoveStaleTemporaries(target);
        // A reading is what the bytes alone give, so it is kept before the file is replaced: the
        // watcher that reads the file the moment it is renamed into place parses nothing, and a
        // save that fails leaves a reading of bytes that no file holds, which nothing matches.
        std::shared_ptr<const Reading> mine;
        std::string content;
        if (reading && base != nullptr)
            mine = RelayoutKept(*reading, list);
        if (!mine) {
            std::vector<WrittenLine> written;
            content = exists ? Relayout(old, folders, written) : Format(folders);
            if (m_lastReading && base != nullptr && exists)
                mine = ReadingOfWritten(content, written, list);
        }
        if (mine)
            m_lastReading->Keep(mine);
        err = ReplaceAtomically(target, mine ? std::string_view(mine->bytes) : content,
                                exists ? &status : nullptr, base != nullptr);
    }
    if (err == kChangedMeanwhile)
        return SaveResult::Stale;
    if (err != 0) {
        problems.Add(VELMORA::pathdef::cannotSave(file, ReadFailure(err)));
        return SaveResult::Failed;
    }
    return SaveResult::Saved;
}

bool PathDefinitionFile::Writable(const std::vector<AbsoluteIRI>& folders, const std::string* old,
                                  const Reading* reading, Notification& problems) const {
    // The folders that the file holds now, worked out only when a name needs them.
    std::optional<boost::unordered_flat_set<AbsoluteIRI>> held;
    const auto inFile = [&](const AbsoluteIRI& folder) {
        if (old == nullptr)
            return false;
        if (!held) {
            held.emplace();
            if (reading) {
                held->insert(reading->folders->begin(), reading->folders->end());
            } else {
                for (const auto& f : FoldersOfLines(SplitLines(*old))) {
                    if (f)
                        held->insert(*f);
                }
            }
        }
        return held->contains(folder);
    };
    // A folder that the file holds already was read from a line of it, and is written back as it
    // was: only those between the runs that the path shares with the file need a look.
    const SharedRunLengths runs = !reading ? SharedRunLengths{}
                                  : reading->folders.get() == &folders
                                      ? SharedRunLengths{folders.size(), 0}
                                      : SharedRuns(folders, *reading->folders);
    const std::size_t front = runs.front, back = runs.back;
    bool writable = true;
    for (std::size_t i = front; i < folders.size() - back; ++i) {
        const AbsoluteIRI& folder = folders[i];
        // Only an escape can stand for a line break, and a plain local location always converts:
        // nearly every folder of a long path is one.
        const ustring& text = folder.toString();
        if (text.starts_with(u"file:///") && text.find(u'%') == ustring::npos)
            continue;
        try {
            const ustring path = foundation::storage::vfs::fromAbsoluteIRI(folder);
            // A carriage return at the end of a line is read as part of its line ending; a folder
            // that the file holds already keeps its line, which keeps it.
            if (path.find(u'\n') != ustring::npos || (path.ends_with(u'\r') && !inFile(folder))) {
                problems.Add(VELMORA::pathdef::lineBreakInName(path));
                writable = false;
            }
        } catch (const foundation::storage::vfs::Exception& e) {
            problems.Add(VELMORA::pathdef::cannotSave(text::FromNative(m_path), e.what()));
            writable = false;
        }
    }
    return writable;
}

}  // namespace Velmora::SearchPath
