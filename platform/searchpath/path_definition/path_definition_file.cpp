#include <velmora/searchpath/path_definition_file.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <tbb/parallel_for.h>
#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <fl/filesystem/path.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>

#include "path_definition_detail.hpp"

namespace Velmora::SearchPath {
namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;

constexpr std::string_view kHeader =
    "# vpath search path: one folder per line, searched first to last\n";

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

}  // namespace

namespace detail {

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

// The folder that holds `file`.
std::string FolderOf(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : file.substr(0, slash);
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

}  // namespace detail

using detail::FoldersOfLines;
using detail::IsFolderLine;
using detail::ReadFailure;
using detail::SplitLines;

PathDefinitionFile::PathDefinitionFile(std::string nativePath) : m_path(std::move(nativePath)) {}

void PathDefinitionFile::KeepLastReading() {
    if (!m_lastReading)
        m_lastReading = std::make_shared<LastReading>();
}

std::string PathDefinitionFile::DefaultLocation() {
    if (const char* chosen = std::getenv("VPATH_PATHDEF"); chosen != nullptr && *chosen != '\0')
        return chosen;
    return UsualLocation();
}

std::string PathDefinitionFile::UsualLocation() {
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
    return known && known->HoldsPath(folders);
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
        contents.folders = *known->folders;
        return contents;
    }
    auto reading = std::make_shared<Reading>();
    // Each folder's place on the path, by the folder.
    boost::unordered_flat_map<AbsoluteIRI, std::uint32_t> placeOf;
    const auto lines = SplitLines(bytes);
    placeOf.reserve(lines.size());
    auto parsed = FoldersOfLines(lines);
    reading->folderOf.assign(lines.size(), Reading::kNoFolder);
    std::int64_t number = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ++number;
        if (!IsFolderLine(lines[i].text))
            continue;
        auto& folder = parsed[i];
        if (!folder) {
            problems.Add(VELMORA::pathdef::badLine(text::FromNative(m_path), number));
            contents.outcome = Outcome::Failed;
            continue;
        }
        const auto [at, first] =
            placeOf.try_emplace(*folder, static_cast<std::uint32_t>(contents.folders.size()));
        reading->folderOf[i] = at->second;
        if (first) {
            contents.folders.push_back(std::move(*folder));
            reading->firstLines.push_back(i);
        }
    }
    if (contents.outcome == Outcome::Failed) {
        contents.folders.clear();
        return contents;
    }
    if (m_lastReading) {
        reading->lineStarts.reserve(lines.size() + 1);
        for (const auto& line : lines)
            reading->lineStarts.push_back(
                static_cast<std::uint32_t>(line.text.data() - bytes.data()));
        reading->lineStarts.push_back(static_cast<std::uint32_t>(bytes.size()));
        reading->folders = std::make_shared<const std::vector<AbsoluteIRI>>(contents.folders);
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
