#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <random>
#include <string_view>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <tbb/parallel_for.h>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <fl/filesystem/path.hpp>
#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>

#include "anchors.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;

constexpr std::string_view kHeader =
    "# vpath search path: one folder per line, searched first to last\n";

foundation::log::DiagnosticLogger& PathdefLog() {
    static foundation::log::DiagnosticLogger log("platform::searchpath::pathdef");
    return log;
}

// The folder that holds `file`.
std::string FolderOf(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : file.substr(0, slash);
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

// The base name of `file`.
std::string NameOf(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? file : file.substr(slash + 1);
}

// The file that a save replaces: the one that `file` leads to when it is a symbolic link.
std::string Target(const std::string& file) {
    std::string resolved;
    return os::System().RealPath(file, resolved) == 0 ? resolved : file;
}

std::string LockFileOf(const std::string& target) {
    const std::string folder = FolderOf(target);
    return (folder == "/" ? "" : folder) + "/." + NameOf(target) + ".lock";
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

// An absolute path with its "." and ".." segments and repeated separators resolved as text.
std::string Normalised(std::string_view path) {
    std::vector<std::string_view> segments;
    for (std::size_t start = 1; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view segment = path.substr(start, end - start);
        start = end + 1;
        if (segment == "..") {
            if (!segments.empty())
                segments.pop_back();
        } else if (!segment.empty() && segment != ".") {
            segments.push_back(segment);
        }
    }
    std::string out;
    for (const std::string_view segment : segments) {
        out += '/';
        out += segment;
    }
    return out.empty() ? "/" : out;
}

// Whether an absolute path is plain: printable ASCII that no IRI escapes, with neither runs of
// separators, a trailing one, nor "." and ".." segments. Such a path is its own normal form, and
// its IRI is its text behind the scheme.
bool IsPlainPath(std::string_view path) {
    std::size_t segmentStart = 1;
    for (std::size_t i = 1; i <= path.size(); ++i) {
        const char c = i < path.size() ? path[i] : '/';
        if (c == '/') {
            const std::string_view segment = path.substr(segmentStart, i - segmentStart);
            if (segment.empty() || segment == "." || segment == "..")
                return path == "/";
            segmentStart = i + 1;
        } else if (c <= ' ' || c >= 0x7F || c == '%' || c == '?' || c == '#') {
            return false;
        }
    }
    return true;
}

// The folder that a line names; nullopt for a line that is not an absolute path.
std::optional<AbsoluteIRI> FolderOfLine(std::string_view line) {
    if (line.empty() || line.front() != '/' || line.find('\0') != std::string_view::npos)
        return std::nullopt;
    if (IsPlainPath(line)) {
        ustring text = u"file://";
        text.append(line.begin(), line.end());
        return AbsoluteIRI(text);
    }
    try {
        return foundation::storage::vfs::toAbsoluteIRI(
            u"file", fl::filesystem::path(text::FromNative(Normalised(line))));
    } catch (const foundation::storage::vfs::InvalidIRIException&) {
        return std::nullopt;
    }
}

// One line of the file: its text without the line ending, and the line ending.
struct Line {
    std::string_view text;
    std::string_view ending;
};

std::vector<Line> SplitLines(std::string_view bytes) {
    std::vector<Line> lines;
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t newline = bytes.find('\n', start);
        const std::size_t end = std::min(newline, bytes.size());
        std::size_t textEnd = end;
        if (newline != std::string_view::npos && textEnd > start && bytes[textEnd - 1] == '\r')
            --textEnd;
        lines.push_back(Line{bytes.substr(start, textEnd - start),
                             bytes.substr(textEnd, std::min(end + 1, bytes.size()) - textEnd)});
        start = end + 1;
    }
    return lines;
}

bool IsFolderLine(std::string_view text) {
    return !text.empty() && text.front() != '#';
}

// The folder that each line names, none for other lines. Each line is worked out on its own, side
// by side: a long path is mostly that.
std::vector<std::optional<AbsoluteIRI>> FoldersOfLines(const std::vector<Line>& lines) {
    std::vector<std::optional<AbsoluteIRI>> folderOf(lines.size());
    tbb::parallel_for(std::size_t{0}, lines.size(), [&](std::size_t i) {
        if (IsFolderLine(lines[i].text))
            folderOf[i] = FolderOfLine(lines[i].text);
    });
    return folderOf;
}

}  // namespace

struct PathDefinitionFile::Reading {
    std::string bytes;
    std::vector<std::optional<AbsoluteIRI>> folderOf;  // of each line of `bytes`
    std::vector<std::size_t> firstLines;               // the first line of each folder
    std::vector<AbsoluteIRI> folders;                  // the path they hold, each folder once
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

namespace {

// The content of the file that held `bytes` once it holds `folders`: the lines of the folders that
// stay and every other line are kept where they are, the lines of folders that go are dropped, and
// each new or moved folder is written right after the folder before it, or, when it comes first,
// before the first folder line that stays.
std::string Relayout(std::string_view bytes, const std::vector<AbsoluteIRI>& folders,
                     const PathDefinitionFile::Reading* reading) {
    const std::vector<Line> lines = SplitLines(bytes);
    const std::string_view newline =
        !lines.empty() && lines.front().ending == "\r\n" ? "\r\n" : "\n";

    const auto parsed = reading ? std::vector<std::optional<AbsoluteIRI>>() : FoldersOfLines(lines);
    const auto& folderOf = reading ? reading->folderOf : parsed;
    // The first line of each folder, in file order; later lines of the same folder are dropped.
    std::vector<std::size_t> firstLines;
    if (!reading) {
        boost::unordered_flat_set<AbsoluteIRI> seen;
        seen.reserve(lines.size());
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (folderOf[i] && seen.insert(*folderOf[i]).second)
                firstLines.push_back(i);
        }
    }
    const auto& folderLines = reading ? reading->firstLines : firstLines;
    // Each of those folders' place in `folders`, -1 for one that goes. The runs that the two
    // share at the front and at the back keep their places; only the folders between them are
    // looked up.
    const auto lineFolder = [&](std::size_t k) -> const AbsoluteIRI& {
        return *folderOf[folderLines[k]];
    };
    const auto [front, back] = SharedRuns(
        folderLines, folders,
        [&](std::size_t line, const AbsoluteIRI& folder) { return *folderOf[line] == folder; });
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
        if (folderOf[i])
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
    const auto write = [&](std::string_view text, std::string_view ending) {
        if (openLine)
            out += newline;
        out += text;
        out += ending;
        openLine = ending.empty();
    };
    const auto writeInserted = [&](std::size_t follows) {
        if (const auto it = inserted.find(follows); it != inserted.end()) {
            for (const std::size_t rank : it->second)
                write(text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(folders[rank])),
                      newline);
        }
    };
    for (std::size_t i = 0; i <= lines.size(); ++i) {
        if (i == frontAt)
            writeInserted(lines.size());
        if (i == lines.size())
            break;
        if (keepLine[i]) {
            write(lines[i].text, lines[i].ending);
            writeInserted(i);
        }
    }
    return out;
}

// Writes `content` to a new temporary file beside `file` and renames it over `file`, giving the
// new file the owner, group and permission bits of `like` when there is one. Returns 0 or the errno
// of the step that failed; the temporary file is gone either way.
int ReplaceAtomically(const std::string& file, std::string_view content,
                      const os::FileStatus* like) {
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

// Waits for the lock on `descriptor`, calling `notice` once if that takes more than a second.
int WaitForLock(int descriptor, const std::function<void()>& notice) {
    if (!notice)
        return os::System().LockExclusive(descriptor, true);
    std::mutex mutex;
    std::condition_variable wake;
    bool locked = false;
    std::thread watchdog([&] {
        std::unique_lock lock(mutex);
        if (wake.wait_for(lock, std::chrono::seconds(1), [&] { return locked; }))
            return;
        lock.unlock();
        notice();
    });
    const int err = os::System().LockExclusive(descriptor, true);
    {
        std::lock_guard lock(mutex);
        locked = true;
    }
    wake.notify_one();
    watchdog.join();
    return err;
}

std::string ReadFailure(int err) {
    switch (err) {
        case ENODEV:
            return "it is not a regular file";
        case EFBIG:
            return fmt::format("it is larger than {} MiB", PathDefinitionFile::kMaxBytes >> 20);
        default:
            return os::ErrorText(err);
    }
}

}  // namespace

PathDefinitionFile::PathDefinitionFile(std::string nativePath) : m_path(std::move(nativePath)) {}

void PathDefinitionFile::KeepLastReading() {
    if (!m_lastReading)
        m_lastReading = std::make_shared<LastReading>();
}

std::string PathDefinitionFile::DefaultLocation() {
    if (const char* chosen = std::getenv("VPATH_PATHDEF"); chosen != nullptr && *chosen != '\0')
        return chosen;
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && *config == '/')
        return std::string(config) + "/vpath/pathdef";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        return std::string(home) + "/.config/vpath/pathdef";
    return {};
}

bool PathDefinitionFile::Holds(const std::vector<AbsoluteIRI>& folders) const {
    if (!m_lastReading)
        return false;
    std::string bytes;
    if (os::System().ReadRegularFile(m_path, kMaxBytes, bytes) != 0)
        return false;
    const auto known = m_lastReading->Of(bytes);
    return known && known->folders == folders;
}

PathDefinitionFile::Contents PathDefinitionFile::Load(Notification& problems) const {
    Contents contents;
    std::string bytes;
    if (const int err = os::System().ReadRegularFile(m_path, kMaxBytes, bytes); err != 0) {
        if (err == ENOENT)
            return contents;
        problems.Add(VELMORA::pathdef::cannotRead(text::FromNative(m_path), ReadFailure(err)));
        contents.outcome = Outcome::Failed;
        return contents;
    }
    contents.outcome = Outcome::Loaded;
    if (const auto known = m_lastReading ? m_lastReading->Of(bytes) : nullptr) {
        contents.folders = known->folders;
        return contents;
    }
    auto reading = std::make_shared<Reading>();
    boost::unordered_flat_set<AbsoluteIRI> seen;
    const auto lines = SplitLines(bytes);
    seen.reserve(lines.size());
    reading->folderOf = FoldersOfLines(lines);
    std::int64_t number = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ++number;
        if (!IsFolderLine(lines[i].text))
            continue;
        const auto& folder = reading->folderOf[i];
        if (!folder) {
            problems.Add(VELMORA::pathdef::badLine(text::FromNative(m_path), number));
            contents.outcome = Outcome::Failed;
        } else if (seen.insert(*folder).second) {
            contents.folders.push_back(*folder);
            reading->firstLines.push_back(i);
        }
    }
    if (contents.outcome == Outcome::Failed) {
        contents.folders.clear();
        return contents;
    }
    if (m_lastReading) {
        reading->folders = contents.folders;
        reading->bytes = std::move(bytes);
        m_lastReading->Keep(std::move(reading));
    }
    return contents;
}

std::string PathDefinitionFile::Format(const std::vector<AbsoluteIRI>& folders) {
    std::string content(kHeader);
    for (const AbsoluteIRI& folder : folders) {
        content += text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(folder));
        content += '\n';
    }
    return content;
}

bool PathDefinitionFile::Save(const std::vector<AbsoluteIRI>& folders,
                              Notification& problems) const {
    const ustring file = text::FromNative(m_path);
    bool writable = true;
    for (const AbsoluteIRI& folder : folders) {
        // Only an escape can stand for a line break, and a plain local location always converts:
        // nearly every folder of a long path is one.
        const ustring& text = folder.toString();
        if (text.starts_with(u"file:///") && text.find(u'%') == ustring::npos)
            continue;
        try {
            const ustring path = foundation::storage::vfs::fromAbsoluteIRI(folder);
            if (path.find(u'\n') != ustring::npos) {
                problems.Add(VELMORA::pathdef::lineBreakInName(path));
                writable = false;
            }
        } catch (const foundation::storage::vfs::Exception& e) {
            problems.Add(VELMORA::pathdef::cannotSave(file, e.what()));
            writable = false;
        }
    }
    if (!writable)
        return false;
    const std::string target = Target(m_path);
    int err = os::System().MakeFolders(FolderOf(target));
    std::string old;
    os::FileStatus status;
    bool exists = false;
    if (err == 0) {
        err = os::System().ReadRegularFile(target, kMaxBytes, old);
        exists = err == 0;
        if (err == ENOENT)
            err = 0;
    }
    if (exists)
        err = os::System().Stat(target, status);
    if (err == 0) {
        RemoveStaleTemporaries(target);
        err = ReplaceAtomically(
            target,
            exists ? Relayout(old, folders, m_lastReading ? m_lastReading->Of(old).get() : nullptr)
                   : Format(folders),
            exists ? &status : nullptr);
    }
    if (err != 0) {
        problems.Add(VELMORA::pathdef::cannotSave(file, ReadFailure(err)));
        return false;
    }
    return true;
}

PathDefinitionFile::ChangeLock PathDefinitionFile::LockForChange(Notification& problems) const {
    os::ISystem& system = os::System();
    const std::string lockFile = LockFileOf(Target(m_path));
    int descriptor = -1;
    int err = system.MakeFolders(FolderOf(lockFile));
    if (err == 0)
        err = system.OpenLockFile(lockFile, descriptor);
    if (err == 0) {
        err = system.LockExclusive(descriptor, false);
        if (err == EWOULDBLOCK)
            err = WaitForLock(descriptor, m_slowLockNotice);
    }
    if (err != 0) {
        if (descriptor >= 0)
            system.CloseFile(descriptor);
        problems.Add(VELMORA::pathdef::cannotSave(
            text::FromNative(m_path),
            fmt::format("cannot lock {}: {}", lockFile, os::ErrorText(err))));
        return ChangeLock();
    }
    return ChangeLock(descriptor);
}

PathDefinitionFile::ChangeLock::ChangeLock(ChangeLock&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

PathDefinitionFile::ChangeLock& PathDefinitionFile::ChangeLock::operator=(
    ChangeLock&& other) noexcept {
    if (this != &other) {
        if (m_descriptor >= 0)
            os::System().CloseFile(m_descriptor);
        m_descriptor = std::exchange(other.m_descriptor, -1);
    }
    return *this;
}

PathDefinitionFile::ChangeLock::~ChangeLock() {
    // Closing the only descriptor of the lock file releases the lock.
    if (m_descriptor >= 0)
        os::System().CloseFile(m_descriptor);
}

}  // namespace Velmora::SearchPath

namespace VELMORA::pathdef {

cannotRead::cannotRead(const ustring& file, const std::string& reason)
    : MessageRecord("VELMORA:pathdef", "cannotRead", {file, reason}) {}

cannotSave::cannotSave(const ustring& file, const std::string& reason)
    : MessageRecord("VELMORA:pathdef", "cannotSave", {file, reason}) {}

badLine::badLine(const ustring& file, std::int64_t lineNumber)
    : MessageRecord("VELMORA:pathdef", "badLine", {file, lineNumber}) {}

lineBreakInName::lineBreakInName(const ustring& folder)
    : MessageRecord("VELMORA:pathdef", "lineBreakInName", {folder}) {}

}  // namespace VELMORA::pathdef
