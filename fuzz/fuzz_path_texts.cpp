// Fuzzes the texts that give a path on the command line. A --path text splits into folder texts
// that split again to themselves, where only the colon of a scheme that the storage layer takes
// for an IRI's stays inside a text; each names a folder, or is refused with a clean message, and
// the location of a folder named, given back as a --path text, names it again. A --path-file gives
// the folders that the path definition file holding the same bytes gives, or names the line that
// holds a NUL whole in its message.
//
// Input: a byte of choices (bit 0: the rest is a --path-file rather than a --path text), then the
// text.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "fuzz_support.hpp"
#include "path_texts.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::hasIRIPrefix;
using vpath_fuzz::Require;

// The folder a text typed by the user names, as the command takes it; none when it is refused,
// which must be with a message.
std::vector<AbsoluteIRI> FolderOf(const ustring& text) {
    try {
        return {Velmora::current_working_folder::CurrentWorkingFolder().resolve(text)};
    } catch (const std::exception& e) {
        Require(*e.what() != '\0');
        return {};
    }
}

void CheckPathText(const ustring& text) {
    const std::vector<ustring> parts = vpath_cli::SplitPathArgument(text);
    ustring joined;
    for (const ustring& part : parts) {
        Require(!part.empty() && part.find(u';') == ustring::npos);
        const std::size_t colon = part.find(u':');
        Require(colon == ustring::npos ||
                (part.find(u':', colon + 1) == ustring::npos && hasIRIPrefix(part)));
        joined += (joined.empty() ? u"" : u";") + part;
        for (const AbsoluteIRI& folder : FolderOf(part)) {
            // What the command prints for a folder names that folder when given back.
            const ustring& shown = folder.toString();
            if (shown.find(u';') == ustring::npos &&
                shown.find(u':', shown.find(u':') + 1) == ustring::npos) {
                const auto again = FolderOf(shown);
                Require(vpath_cli::SplitPathArgument(shown) == std::vector<ustring>{shown} &&
                        again.size() == 1 && again[0] == folder);
            }
        }
    }
    Require(vpath_cli::SplitPathArgument(joined) == parts);
    // A text that the storage layer takes for an IRI, with no other separator, is one folder.
    if (hasIRIPrefix(text) && text.find(u';') == ustring::npos &&
        text.find(u':', text.find(u':') + 1) == ustring::npos) {
        Require(parts == std::vector<ustring>{text});
    }
}

// The message that refuses the line of `content` that holds a NUL shows that line whole.
void CheckRefusal(const std::string& content, const std::string& message) {
    const std::string head = "--path-file f: line ";
    const std::string tail = "\") is not a folder: it holds a NUL";
    Require(message.starts_with(head) && message.ends_with(tail));
    const std::size_t open = message.find(" (\"");
    const std::size_t number = std::stoul(message.substr(head.size(), open - head.size()));
    std::string shown;
    for (std::size_t i = open + 3; i < message.size() - tail.size(); ++i)
        shown += message[i] == '\\' ? (message[++i] == '0' ? '\0' : message[i]) : message[i];
    std::size_t start = 0;
    for (std::size_t n = 1; n < number; ++n)
        start = content.find('\n', start) + 1;
    const std::size_t end = content.find('\n', start);
    std::string line = content.substr(start, end - start);
    if (end != std::string::npos && line.ends_with('\r'))
        line.pop_back();
    Require(shown == line && line.find('\0') != std::string::npos);
}

void CheckPathFile(const std::string& content) {
    std::vector<ustring> lines;
    try {
        lines = vpath_cli::PathFileLines("f", content);
    } catch (const std::runtime_error& e) {
        CheckRefusal(content, e.what());
        return;
    }
    std::vector<AbsoluteIRI> folders;
    for (const ustring& line : lines) {
        for (const AbsoluteIRI& folder : FolderOf(line)) {
            if (std::find(folders.begin(), folders.end(), folder) == folders.end())
                folders.push_back(folder);
        }
    }
    const auto saved = vpath_fuzz::Scratch() / "pathdef";
    vpath_fuzz::WriteFile(saved, content);
    foundation::core::except::Notification problems;
    const auto loaded = Velmora::SearchPath::PathDefinitionFile(saved.string()).Load(problems);
    if (loaded.outcome == Velmora::SearchPath::PathDefinitionFile::Outcome::Loaded)
        Require(loaded.folders == folders);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    vpath_fuzz::SeedEmptyCorpora(
        *argc, *argv,
        {"\x02"
         "tb:/opt/x;file:///srv/y",
         "\x02"
         "FILE:/tmp:http://h/a::b;;rel/../c",
         "\x02"
         "Http://h/x",
         "\x02"
         "file:/b::x:file:b:caf\xC3\xA9:\xFF",
         "\x01# folders\n/a\r\n\n/b/./c/../d//\nrel\n",
         std::string("\x01/a\n/b\0c\\d\r\n/e", sizeof "\x01/a\n/b\0c\\d\r\n/e" - 1),
         "\x01/x y/%41\n/last\r"});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vpath_fuzz::Input input(data, size);
    const unsigned choices = input.Byte();
    const std::string text(input.Rest());
    if (choices & 1)
        CheckPathFile(text);
    else if (text.find('\0') == std::string::npos)  // no argument holds a NUL
        CheckPathText(Velmora::text::FromNative(text));
    return 0;
}
