// PathDefinitionFile::Save: a new path written over the file faithfully (the user's comments and
// the lines of folders that stay are kept where they are) and atomically (a new file renamed into
// place, never a half-written one).

#include <velmora/searchpath/path_definition_file.hpp>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>
#include <random>
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

// The content of the file that held `bytes` once it holds `folders`: the lines of the folders that
// stay and every other line are kept where they are, the lines of folders that go are dropped, and
// each new or moved folder is written right after the folder before it, or, when it comes first,
// before the first folder line that stays.
// One line as Relayout or Format wrote it: where its text starts in the content, its size and the
// folder it names (none for other lines).
struct WrittenLine {
    std::size_t at;
    std::size_t size;
    const AbsoluteIRI* folder;
};

std::string Relayout(std::string_view bytes, const std::vector<AbsoluteIRI>& folders,
                     const PathDefinitionFile::Reading* reading,
                     std::vector<WrittenLine>& written) {
    const std::vector<Line> lines = SplitLines(bytes);
    const std::string_view newline =
        !lines.empty() && lines.front().ending == "\r\n" ? "\r\n" : "\n";

    const auto parsed = reading ? std::vector<std::optional<AbsoluteIRI>>() : FoldersOfLines(lines);
    // The folder that line `i` names, or null.
    const auto folderOf = [&](std::size_t i) -> const AbsoluteIRI* {
        if (reading)
            return reading->FolderAt(i);
        return parsed[i] ? &*parsed[i] : nullptr;
    };
    // The first line of each folder, in file order; later lines of the same folder are dropped.
    std::vector<std::size_t> firstLines;
    if (!reading) {
        boost::unordered_flat_set<AbsoluteIRI> seen;
        seen.reserve(lines.size());
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (parsed[i] && seen.insert(*parsed[i]).second)
                firstLines.push_back(i);
        }
    }
    const auto& folderLines = reading ? reading->firstLines : firstLines;
    // Each of those folders' place in `folders`, -1 for one that goes. The runs that the two
    // share at the front and at the back keep their places; only the folders between them are
    // looked up.
    const auto lineFolder = [&](std::size_t k) -> const AbsoluteIRI& {
        return *folderOf(folderLines[k]);
    };
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
        if (const auto it = rankOf.find(lineFolder(k)); it != rankOf.end())
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
    std::string out;
    out.reserve(bytes.size() + 64 * inserted.size());
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
    written.reserve(folders.size() + lines.size() - folderLines.size());
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
    return out;
}

// What a reading of `content` would work out, told from how it was written, so that the next
// reading of the file that a change just saved parses nothing; none when the written lines are not
// exactly the lines that a reading finds, or do not name `folders` in order. The reading takes the
// content, which is left empty then.
std::shared_ptr<const PathDefinitionFile::Reading> ReadingOfWritten(
    std::string& content, const std::vector<WrittenLine>& written,
    const std::vector<AbsoluteIRI>& folders) {
    const std::vector<Line> lines = SplitLines(content);
    if (lines.size() != written.size())
        return nullptr;
    auto reading = std::make_shared<PathDefinitionFile::Reading>();
    reading->folderOf.assign(lines.size(), PathDefinitionFile::Reading::kNoFolder);
    reading->firstLines.reserve(folders.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const WrittenLine& line = written[i];
        if (static_cast<std::size_t>(lines[i].text.data() - content.data()) != line.at ||
            lines[i].text.size() != line.size ||
            detail::IsFolderLine(lines[i].text) != (line.folder != nullptr)) {
            return nullptr;
        }
        if (line.folder == nullptr)
            continue;
        if (reading->firstLines.size() == folders.size() ||
            line.folder != &folders[reading->firstLines.size()]) {
            return nullptr;
        }
        reading->folderOf[i] = static_cast<std::uint32_t>(reading->firstLines.size());
        reading->firstLines.push_back(i);
    }
    if (reading->firstLines.size() != folders.size())
        return nullptr;
    reading->folders = folders;
    reading->bytes = std::move(content);
    return reading;
}

// Whether `bytes`, the content of the file, hold the path `base`: each folder once, in order, and
// no line that names none.
bool HoldsPath(std::string_view bytes, const PathDefinitionFile::Reading* reading,
               const std::vector<AbsoluteIRI>& base) {
    if (reading)
        return reading->folders == base;
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
    return Write(nullptr, folders, problems) == SaveResult::Saved;
}

PathDefinitionFile::SaveResult PathDefinitionFile::SaveChange(
    const std::vector<AbsoluteIRI>& base, const std::vector<AbsoluteIRI>& folders,
    Notification& problems) const {
    return Write(&base, folders, problems);
}

PathDefinitionFile::SaveResult PathDefinitionFile::Write(const std::vector<AbsoluteIRI>* base,
                                                         const std::vector<AbsoluteIRI>& folders,
                                                         Notification& problems) const {
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
        std::vector<WrittenLine> written;
        std::string content =
            exists ? Relayout(old, folders, reading.get(), written) : Format(folders);
        // A reading is what the bytes alone give, so it is kept before the file is replaced: the
        // watcher that reads the file the moment it is renamed into place parses nothing, and a
        // save that fails leaves a reading of bytes that no file holds, which nothing matches.
        std::shared_ptr<const Reading> mine;
        if (m_lastReading && base != nullptr && exists) {
            mine = ReadingOfWritten(content, written, folders);
            if (mine)
                m_lastReading->Keep(mine);
        }
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
                held->insert(reading->folders.begin(), reading->folders.end());
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
    const SharedRunLengths runs =
        reading ? SharedRuns(folders, reading->folders) : SharedRunLengths{};
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
