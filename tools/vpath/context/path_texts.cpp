#include "path_texts.hpp"

#include <cstdint>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include <foundation/storage/vfs/iri_conversion.hpp>

namespace vpath_cli {
namespace {

bool IsSchemeText(std::u16string_view text) {
    if (text.empty() ||
        !((text[0] >= u'a' && text[0] <= u'z') || (text[0] >= u'A' && text[0] <= u'Z')))
        return false;
    for (const char16_t c : text) {
        const bool ok = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
                        (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
        if (!ok)
            return false;
    }
    return true;
}

// Whether the colon at `colon` ends an IRI's scheme rather than separating two folders: the
// storage layer's own test, asked of the scheme and the few characters after it that it looks at,
// so that what it takes for an IRI is never split.
bool IsSchemeColon(const ustring& text, std::size_t start, std::size_t colon) {
    if (!IsSchemeText(std::u16string_view(text.data() + start, colon - start)))
        return false;
    return foundation::storage::vfs::hasIRIPrefix(text.substr(start, colon - start + 3));
}

// A line of a --path-file as a message shows it: its bytes whole, a NUL (which no name can hold
// and that would cut the message short) written \0, and a backslash written \\ so that the
// text stays unambiguous.
std::string ShownLine(std::string_view line) {
    std::string shown;
    for (const char c : line) {
        if (c == '\0')
            shown += "\\0";
        else if (c == '\\')
            shown += "\\\\";
        else
            shown += c;
    }
    return shown;
}

}  // namespace

std::vector<ustring> SplitPathArgument(const ustring& text) {
    std::vector<ustring> folders;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] != u';' && text[i] != u':')
            continue;
        if (i < text.size() && text[i] == u':' && IsSchemeColon(text, start, i))
            continue;
        if (i > start)
            folders.push_back(text.substr(start, i - start));
        start = i + 1;
    }
    return folders;
}

std::vector<ustring> PathFileLines(const std::string& file, const std::string& content) {
    std::vector<ustring> lines;
    std::size_t start = 0;
    for (std::int64_t number = 1; start < content.size(); ++number) {
        const std::size_t newline = content.find('\n', start);
        const std::size_t end = newline == std::string::npos ? content.size() : newline;
        std::string line = content.substr(start, end - start);
        start = end + 1;
        // As in the path definition file, only a line feed makes a carriage return before it a
        // line ending: a last line without one keeps its bytes, and names the same folder there.
        if (newline != std::string::npos && !line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line.front() == '#')
            continue;
        if (line.find('\0') != std::string::npos) {
            throw std::runtime_error(
                fmt::format("--path-file {}: line {} (\"{}\") is not a folder: it holds a NUL",
                            file, number, ShownLine(line)));
        }
        lines.push_back(Velmora::text::FromNative(line));
    }
    return lines;
}

}  // namespace vpath_cli
