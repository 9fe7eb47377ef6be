// The texts of the message catalogue. Every id that the library or the host reports is here; a
// test checks that each message class finds its text.

#include <foundation/core/except/message_catalog.hpp>

#include <array>
#include <utility>

namespace resource_core {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

constexpr std::array kCatalog = {
    // Folders given to the path-editing commands.
    Entry{"VORLAN:vpath:invalidLocation", "\"{0}\" is not a valid folder location."},
    Entry{"VORLAN:vpath:directoryPermissionDenied",
          "Permission to use the folder \"{0}\" is denied."},
    Entry{"VORLAN:vpath:directoryNameTooLong", "The folder name \"{0}\" is too long."},
    Entry{"VORLAN:vpath:nameNonexistentOrNotADirectory",
          "\"{0}\" does not exist or is not a folder."},
    Entry{"VORLAN:vpath:cannotAbsolutizePath", "Cannot make \"{0}\" an absolute folder location."},
    Entry{"VORLAN:rmpath:DirNotFound", "\"{0}\" is not on the search path."},
    // Folders of a new search path.
    Entry{"VELMORA:searchpath:folderMissing", "Folder \"{0}\" does not exist."},
    Entry{"VELMORA:searchpath:notAFolder", "\"{0}\" is not a folder."},
    Entry{"VELMORA:searchpath:folderUnreadable", "Cannot read folder \"{0}\": {1}."},
    Entry{"VELMORA:searchpath:folderLoops",
          "Folder \"{0}\" leads back to itself through symbolic links."},
    // The path definition file.
    Entry{"VELMORA:pathdef:cannotRead", "Cannot read the path definition file \"{0}\": {1}."},
    Entry{"VELMORA:pathdef:cannotSave", "Cannot save the path definition file \"{0}\": {1}."},
    Entry{"VELMORA:pathdef:badLine",
          "Line {1} of the path definition file \"{0}\" is not an absolute folder path."},
    Entry{"VELMORA:pathdef:lineBreakInName",
          "The folder \"{0}\" cannot be saved in the path definition file: its name holds a line "
          "break or ends in a carriage return, which a line of the file cannot keep."},
    // Installed packages.
    Entry{"VELMORA:packages:badManifest", "Skipped the package manifest \"{0}\": {1}."},
    Entry{"VELMORA:packages:cannotReadPackages", "Cannot read the packages folder \"{0}\": {1}."},
};

ustring ArgumentText(const MessageArgument& argument) {
    struct Visitor {
        ustring operator()(std::int64_t n) const {
            return Velmora::text::FromNative(std::to_string(n));
        }
        ustring operator()(const std::string& s) const { return Velmora::text::FromNative(s); }
        ustring operator()(const ustring& s) const { return s; }
    };
    return std::visit(Visitor{}, argument);
}

// The argument index of a place "{N}" that starts at text[i], or nullopt if none starts there.
std::optional<std::size_t> PlaceAt(std::u16string_view text, std::size_t i, std::size_t& end) {
    if (text[i] != u'{')
        return std::nullopt;
    std::size_t index = 0;
    std::size_t k = i + 1;
    for (; k < text.size() && text[k] >= u'0' && text[k] <= u'9' && k < i + 4; ++k)
        index = index * 10 + static_cast<std::size_t>(text[k] - u'0');
    if (k == i + 1 || k >= text.size() || text[k] != u'}')
        return std::nullopt;
    end = k + 1;
    return index;
}

// The text with each {N} replaced by argument N; places without an argument are kept.
ustring Fill(std::u16string_view text, const std::vector<MessageArgument>& arguments) {
    ustring out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t end = 0;
        const auto index = PlaceAt(text, i, end);
        if (index && *index < arguments.size()) {
            out += ArgumentText(arguments[*index]);
            i = end;
        } else {
            out += text[i++];
        }
    }
    return out;
}

}  // namespace

std::optional<std::string_view> FindMessageText(std::string_view id) {
    for (const auto& [key, text] : kCatalog) {
        if (key == id)
            return text;
    }
    return std::nullopt;
}

std::vector<std::string_view> CatalogMessageIDs() {
    std::vector<std::string_view> ids;
    ids.reserve(kCatalog.size());
    for (const auto& entry : kCatalog)
        ids.push_back(entry.first);
    return ids;
}

ustring FormatMessage(const MessageRecord& message) {
    const std::string id = message.GetMessageID();
    if (const auto text = FindMessageText(id))
        return Fill(Velmora::text::FromNative(*text), message.GetArguments());
    ustring out = u"Message " + Velmora::text::FromNative(id) + u" (no text in the catalogue)";
    for (std::size_t k = 0; k < message.GetArguments().size(); ++k) {
        out += k == 0 ? u": " : u", ";
        out += ArgumentText(message.GetArguments()[k]);
    }
    return out;
}

std::string FormatMessageLine(const MessageRecord& message) {
    std::string line = Velmora::text::ToNative(FormatMessage(message));
    line += " [";
    line += message.GetMessageID();
    line += ']';
    return line;
}

}  // namespace resource_core
