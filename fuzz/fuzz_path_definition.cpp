// Fuzzes the path definition file as a user may leave it. Whatever its bytes, loading it gives the
// path or clean messages; a folder added to or removed from what it loaded is saved so that every
// line the change does not concern keeps its bytes in its order (a last line without its line
// ending may only gain one), the one new line comes in, and loading the file again gives the path
// that was saved. A folder that cannot be saved leaves the file as it was, with a message.
//
// Input: a byte of choices (bit 0: keep the last reading, as a change does; bit 1: save as a change
// worked out on what was loaded; bit 2: add rather than remove; bit 3: there is no file yet), a
// byte of position, the name of the folder to add up to a line feed, and the rest as the file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "fuzz_support.hpp"

namespace {

using foundation::core::except::Notification;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::SearchPath::PathDefinitionFile;
using vpath_fuzz::Require;

// The lines of `bytes`, each with its line feed.
std::vector<std::string> RawLines(const std::string& bytes) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\n', start), bytes.size() - 1) + 1;
        lines.push_back(bytes.substr(start, end - start));
        start = end;
    }
    return lines;
}

// The folder that a line names on its own; none for a comment or an empty line.
std::vector<AbsoluteIRI> FolderOfLine(const std::string& line) {
    const auto file = vpath_fuzz::Scratch() / "one-line";
    vpath_fuzz::WriteFile(file, line);
    Notification ignored;
    return PathDefinitionFile(file.string()).Load(ignored).folders;
}

// The lines of `old` that a save of `kept` (what `old` loaded as, less the folder `gone`) must
// keep: comments, empty lines and the first line of each folder that stays.
std::vector<std::string> KeptLines(const std::string& old, std::size_t loaded,
                                   const std::vector<AbsoluteIRI>& gone) {
    std::vector<std::string> kept;
    std::vector<AbsoluteIRI> seen;
    const auto lines = RawLines(old);
    const bool oneFolderALine =
        std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line[0] != '#' && line != "\n" && line != "\r\n" && line != "\r";
        }) == static_cast<std::ptrdiff_t>(loaded);
    for (const std::string& line : lines) {
        const auto named =
            oneFolderALine && gone.empty() ? std::vector<AbsoluteIRI>{} : FolderOfLine(line);
        if (!named.empty() &&
            (named == gone || std::find(seen.begin(), seen.end(), named[0]) != seen.end())) {
            continue;
        }
        seen.insert(seen.end(), named.begin(), named.end());
        kept.push_back(line);
    }
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    const auto seed = [](char choices, char position, const std::string& name,
                         const std::string& file) {
        return std::string{choices, position} + name + "\n" + file;
    };
    vpath_fuzz::SeedEmptyCorpora(
        *argc, *argv,
        {seed(4, 1, "new", "# vpath search path\n/home/ada/tb\n/srv/a\n"),
         seed(5, 0, "caf\xE9", "/a\r\n\r\n# note\r\n/b/./c/../d//\r\n/b/d\r\n/e"),
         seed(6, 1, "x\r", "/last/ends/in/cr\r"), seed(4, 2, "n", "# c\n/a\n/last/ends/in/cr\r"),
         seed(3, 0, "x", "/a\n/b\n/a/\n/c"), seed(12, 0, "x\r", ""),
         seed(6, 2, "%2F", "#\n/x y/%41\n/n\xFF\xFE\n\n/z\n/x y/%41/\n")});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vpath_fuzz::Input input(data, size);
    const unsigned choices = input.Byte();
    const unsigned position = input.Byte();
    const std::string name(input.Piece('\n'));
    const std::string old(input.Rest());
    const auto path = vpath_fuzz::Scratch() / "pathdef";
    const bool missing = choices & 8;
    if (missing)
        std::filesystem::remove(path);
    else
        vpath_fuzz::WriteFile(path, old);

    PathDefinitionFile file(path.string());
    if (choices & 1)
        file.KeepLastReading();
    Notification problems;
    const auto loaded = file.Load(problems);
    Require((loaded.outcome == PathDefinitionFile::Outcome::Failed) != problems.empty());
    if (loaded.outcome !=
        (missing ? PathDefinitionFile::Outcome::Missing : PathDefinitionFile::Outcome::Loaded)) {
        Require(loaded.outcome == PathDefinitionFile::Outcome::Failed);
        return 0;
    }

    std::vector<AbsoluteIRI> folders = loaded.folders;
    std::vector<AbsoluteIRI> gone;
    const bool adds = (choices & 4) || folders.empty();
    if (adds) {
        AbsoluteIRI added;
        try {
            added = Velmora::current_working_folder::CurrentWorkingFolder().resolve(
                Velmora::text::FromNative("/fuzz/" + name));
        } catch (const std::exception&) {
            return 0;
        }
        if (std::find(folders.begin(), folders.end(), added) != folders.end())
            return 0;
        folders.insert(
            folders.begin() + static_cast<std::ptrdiff_t>(position % (folders.size() + 1)), added);
    } else {
        const auto at = folders.begin() + static_cast<std::ptrdiff_t>(position % folders.size());
        gone.push_back(*at);
        folders.erase(at);
    }

    const bool saved = (choices & 2) ? file.SaveChange(loaded.folders, folders, problems) ==
                                           PathDefinitionFile::SaveResult::Saved
                                     : file.Save(folders, problems);
    const std::string now = vpath_fuzz::ReadFile(path);
    Require(saved == problems.empty());
    if (!saved) {
        Require(missing ? !std::filesystem::exists(path) : now == old);
        return 0;
    }
    Notification again;
    const auto reloaded = PathDefinitionFile(path.string()).Load(again);
    Require(reloaded.outcome == PathDefinitionFile::Outcome::Loaded && reloaded.folders == folders);
    if (missing)
        return 0;

    // The lines kept, in order, and one new line for an added folder.
    const auto kept = KeptLines(old, loaded.folders.size(), gone);
    std::size_t next = 0;
    std::size_t inserted = 0;
    for (const std::string& line : RawLines(now)) {
        // A kept last line without its line feed may only gain a line ending.
        const bool isKept =
            next < kept.size() &&
            (line == kept[next] || (kept[next].back() != '\n' &&
                                    (line == kept[next] + "\n" || line == kept[next] + "\r\n")));
        if (isKept)
            ++next;
        else
            ++inserted;
    }
    Require(next == kept.size() && inserted == (adds ? 1u : 0u));
    return 0;
}
