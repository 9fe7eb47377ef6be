#include <velmora/searchpath/path_definition_file.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <random>
#include <string_view>

#include <fmt/format.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <fl/filesystem/path.hpp>
#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>

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

// The folder that a line names; nullopt for a line that is not an absolute path.
std::optional<AbsoluteIRI> FolderOfLine(std::string_view line) {
    if (line.empty() || line.front() != '/' || line.find('\0') != std::string_view::npos)
        return std::nullopt;
    try {
        return foundation::storage::vfs::toAbsoluteIRI(
            u"file", fl::filesystem::path(
                         fl::filesystem::detail::make_native_form(text::FromNative(line), true)));
    } catch (const foundation::storage::vfs::InvalidIRIException&) {
        return std::nullopt;
    }
}

// Writes `content` to a new temporary file beside `file` and renames it over `file`. Returns 0 or
// the errno of the step that failed; the temporary file is gone either way.
int ReplaceAtomically(const std::string& file, std::string_view content) {
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

}  // namespace

PathDefinitionFile::PathDefinitionFile(std::string nativePath) : m_path(std::move(nativePath)) {}

std::string PathDefinitionFile::DefaultLocation() {
    if (const char* chosen = std::getenv("VPATH_PATHDEF"); chosen != nullptr && *chosen != '\0')
        return chosen;
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && *config == '/')
        return std::string(config) + "/vpath/pathdef";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        return std::string(home) + "/.config/vpath/pathdef";
    return {};
}

PathDefinitionFile::Contents PathDefinitionFile::Load(Notification& problems) const {
    Contents contents;
    std::string bytes;
    if (const int err = os::System().ReadFile(m_path, bytes); err != 0) {
        if (err == ENOENT)
            return contents;
        problems.Add(VELMORA::pathdef::cannotRead(text::FromNative(m_path), os::ErrorText(err)));
        contents.outcome = Outcome::Failed;
        return contents;
    }
    contents.outcome = Outcome::Loaded;
    boost::unordered_flat_set<AbsoluteIRI> seen;
    std::int64_t number = 0;
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\n', start), bytes.size());
        const std::string_view line(bytes.data() + start, end - start);
        start = end + 1;
        ++number;
        if (line.empty() || line.front() == '#')
            continue;
        const auto folder = FolderOfLine(line);
        if (!folder) {
            problems.Add(VELMORA::pathdef::badLine(text::FromNative(m_path), number));
            contents.outcome = Outcome::Failed;
        } else if (seen.insert(*folder).second) {
            contents.folders.push_back(*folder);
        }
    }
    if (contents.outcome == Outcome::Failed)
        contents.folders.clear();
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
    int err = os::System().MakeFolders(FolderOf(m_path));
    if (err == 0)
        err = ReplaceAtomically(m_path, Format(folders));
    if (err != 0) {
        problems.Add(VELMORA::pathdef::cannotSave(file, os::ErrorText(err)));
        return false;
    }
    return true;
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
