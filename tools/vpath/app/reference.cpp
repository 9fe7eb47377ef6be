#include "reference.hpp"

#include <fmt/format.h>

namespace vpath_cli {
namespace {

// Roff for a text: backslashes and hyphens escaped, `literal` in bold.
std::string Roff(const std::string& text) {
    std::string out;
    bool literal = false;
    for (const char c : text) {
        if (c == '`') {
            out += literal ? "\\fR" : "\\fB";
            literal = !literal;
        } else if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\''))
        out.insert(0, "\\&");
    return out;
}

std::string Bare(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c != '`')
            out += c;
    }
    return out;
}

// The words of `text` in lines of at most `width` columns, each indented by `indent`.
std::string Wrapped(const std::string& text, std::size_t indent, std::size_t width = 79) {
    std::string out;
    std::string line;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string word = text.substr(start, end - start);
        if (!line.empty() && indent + line.size() + 1 + word.size() > width) {
            out += std::string(indent, ' ') + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        start = end + 1;
    }
    if (!line.empty())
        out += std::string(indent, ' ') + line + "\n";
    return out;
}

const ReferenceSection kDescription = {
    "DESCRIPTION",
    nullptr,
    {
        {nullptr,
         "The search path is an ordered list of folders. A name such as `area` resolves to the "
         "first file of that name under the language's extensions (`.vlx`, `.vlp`, `.vl`), in the "
         "folders of the path and in their class (`@`) folders; a name with folders in it "
         "(`shapes/circle`) also reaches package (`+`) folders."},
        {nullptr,
         "A special folder (package `+`, class `@`, `private` or `resources`) named on the path "
         "while a folder that holds it is on the path too is searched through that folder only, "
         "wherever either stands, so each file is reached once; alone on the path it is searched "
         "as an ordinary folder. The resources folder of a folder on the path is never searched "
         "by name."},
        {nullptr,
         "The path is kept in a path definition file, one folder per line. Until one is saved the "
         "path is empty: add a folder with `vpath add FOLDER`, or try the bundled example toolbox "
         "with `--example`."},
        {nullptr,
         "Options end at `--`: the words after it are arguments, even those that start with `-` "
         "(`vpath which -- -odd`)."},
    }};

const std::vector<ReferenceSection> kSections = {
    {"THE PATH DEFINITION FILE",
     "pathdef",
     {
         {nullptr,
          "The saved path is kept in one text file: one folder per line, as the bytes of its "
          "absolute path, first searched first. Lines that start with `#` are comments and empty "
          "lines are passed over. Lines may end in LF or CRLF; `.` and `..` segments and repeated "
          "`/` are resolved as text. A file holds at most 16 MiB. A folder whose name holds a "
          "line break, or ends in a carriage return, cannot be added."},
         {nullptr,
          "A change saves the file atomically: the new content is written to a temporary file "
          "beside it, flushed to the disk and renamed over it, so that a crash leaves the old "
          "file or the new one. The file keeps its comments, its blank lines, its permissions and "
          "owner; where it is a symbolic link, the file it leads to is replaced."},
         {nullptr,
          "Locking: each change (`add`, `rm`) holds an advisory lock (flock) on `.NAME.lock` "
          "beside the file from reading it to saving it, so that changes made at once by several "
          "processes are none of them lost. A change that waits more than a second for another "
          "says so on standard error. Readers never wait."},
     }},
    {"THE PATH CACHE",
     "path-cache",
     {
         {nullptr,
          "A start reads every folder of the path from disk once; the path cache keeps what was "
          "read, so that a later start needs one `stat` per folder and lists again only the "
          "folders whose stamps moved. Each path has its own cache file, "
          "`$XDG_CACHE_HOME/vpath/HASH.cache` (else `~/.cache/vpath/`), one per path definition "
          "file and one per folder list given with `--path`. It is written again after a start "
          "or a change only when that pays for itself (more than 1/64 of the path would "
          "otherwise be listed again at every start). A cache that cannot be written costs time "
          "and nothing else: a warning says why."},
         {nullptr,
          "`vpath cache` shows the cache of the path and what it holds; `vpath cache clear` "
          "removes it, `--all` every cache of yours; `--no-cache` neither reads nor writes one."},
     }},
    {"REPORTED CHANGES",
     "changes",
     {
         {nullptr,
          "`add`, `rm`, `diff` and `watch` print one line per folder that changed, special "
          "subfolders included:"},
         {"added FOLDER", "the folder is on the path now and was not before."},
         {"removed FOLDER", "the folder was on the path and is not any more."},
         {"moved FOLDER",
          "the folder stays on the path at another place among the others. `add` reports the "
          "folders it was asked to move, never those that only shifted to make room; `rm` moves "
          "none."},
         {"refreshed FOLDER",
          "the folder stays where it is and was read anew because its files changed on disk."},
         {nullptr, "`watch` starts each line with the time of the change (UTC, ISO 8601)."},
     }},
    {"JSON OUTPUT",
     "json",
     {
         {nullptr,
          "With `--json` every folder and file is an object `{\"path\": ..., \"iri\": ...}`: the "
          "path for reading, the IRI keeping every byte. A hit is `{\"file\", \"folder\", "
          "\"kind\"}`, the kind of the folder that holds the file: `folder`, `package`, `class`, "
          "`private` or `resources`. Objects are printed one a line."},
         {"which",
          "`{\"name\", \"found\", \"hits\"}` per name; each hit has `inUse` and, "
          "when shadowed, `shadowedBy` (a file)."},
         {"which --explain",
          "`{\"name\", \"found\", \"answer\", \"tried\", \"nearMisses\"}`: the answer a hit or "
          "null, each tried folder `{\"folder\", \"kind\", \"files\"}`, each near miss a hit with "
          "`why` and `hint`."},
         {"ls", "one array of hits."},
         {"path", "one array of folders, each with `exists`."},
         {"entries",
          "`{\"partial\", \"entries\"}` per partial pathname, each entry a folder "
          "with `kind`."},
         {"shadows",
          "`{\"name\", \"inUse\", \"shadowed\"}` per name: a hit and an array of "
          "hits."},
         {"diff, watch",
          "`{\"added\", \"removed\", \"moved\", \"refreshed\"}`, arrays of folders; `watch` adds "
          "`time`."},
     }},
    {"NAMES THAT ARE NOT UTF-8",
     "names",
     {
         {nullptr,
          "File and folder names are bytes. vpath takes them from its arguments, the path "
          "definition file and the disk as they are, and prints them as they are in text output, "
          "so that a printed path names the same file. In JSON a path shows each byte that is "
          "not UTF-8 as U+FFFD and the IRI keeps it, percent-encoded. For names that hold line "
          "breaks, `-z` (`--null`) ends each printed path with a NUL, and `which --batch -z` "
          "reads names ended by NUL."},
     }},
    {"OUTPUT",
     "output",
     {
         {nullptr,
          "`which -a` marks the shadowed files with `(shadowed)` on a terminal; to a pipe or a "
          "file it prints the paths alone, as which(1) does. A start that reads folders from "
          "disk for more than a second shows how many it has read on standard error when that "
          "is a terminal, and nothing otherwise. Every message starts with `vpath:`."},
     }},
    {"THE PATH SERVICE",
     "service",
     {
         {nullptr,
          "`vpath service start` runs a resident process for the saved path that holds it in "
          "memory, kept fresh by watching its folders and its path definition file. While it "
          "runs, `which`, `ls`, `path`, `entries`, `shadows`, `add`, `rm` and `cache status` "
          "are answered by it, with the same output and exit status, after it has taken in every "
          "change made before the question; `which --batch` sends it each name as it is read. A "
          "service that is absent, dead or slow to greet leaves the command to answer from the "
          "disk. `vpath service status` tells whether it runs, "
          "`vpath service stop` ends it, and it ends by itself after 30 minutes without a "
          "request (`--idle-timeout`). Commands given `--path`, `--path-file` or `--example`, "
          "and `--no-service`, answer without it."},
         {nullptr,
          "With systemd, `systemctl --user enable --now vpath.socket` has the user's service "
          "manager start the service of the usual path definition file (the one named without "
          "`VPATH_PATHDEF`) when a command connects to `$XDG_RUNTIME_DIR/vpath/default.sock`; "
          "the service still ends when idle and systemd starts it again at the next command. A "
          "service started by hand while the socket unit listens leaves it to systemd's."},
     }},
    {"ENVIRONMENT",
     "environment",
     {
         {"VPATH_PATHDEF", "The path definition file, unless `--pathdef` gives one."},
         {"XDG_CONFIG_HOME",
          "Without `VPATH_PATHDEF`, the path definition file is `$XDG_CONFIG_HOME/vpath/pathdef`, "
          "else `~/.config/vpath/pathdef`."},
         {"XDG_CACHE_HOME",
          "The path caches are in `$XDG_CACHE_HOME/vpath`, else `~/.cache/vpath`."},
         {"VPATH_LOG",
          "Show the diagnostic channels on standard error: `warn`, `info` or `debug`."},
         {"VPATH_THREADS", "The most threads that scans and sorts use."},
         {"VPATH_PROGRESS_DELAY",
          "The seconds a start runs before it shows its progress on a terminal (1)."},
         {"VPATH_AT_FOLDER_PRECEDENCE",
          "With `1`, a class folder's file found with `--from` wins only where its folder comes "
          "first on the path; otherwise it wins wherever it stands."},
         {"VPATH_SERVICE",
          "With `off`, commands answer without the path service (as `--no-service` does); with "
          "`auto`, a command that finds none starts it."},
         {"XDG_RUNTIME_DIR", "The path service's socket is in `$XDG_RUNTIME_DIR/vpath`."},
     }},
    {"FILES",
     nullptr,
     {
         {"~/.config/vpath/pathdef", "The saved search path."},
         {"~/.config/vpath/.pathdef.lock", "The lock of its changes."},
         {"~/.cache/vpath/*.cache", "The path caches."},
         {"/usr/share/vpath/examples/toolbox", "The example toolbox of `--example`."},
         {"/usr/lib/systemd/user/vpath.socket",
          "The user unit that starts the path service of the usual path (with `vpath.service`)."},
     }},
};

}  // namespace

const std::vector<ReferenceSection>& ReferenceSections() {
    return kSections;
}

const ReferenceSection& Description() {
    return kDescription;
}

std::string ManText(const ReferenceSection& section) {
    std::string text;
    bool first = true;
    for (const ReferenceItem& item : section.items) {
        if (item.term == nullptr) {
            text += fmt::format("{}{}\n", first ? "" : ".PP\n", Roff(item.text));
        } else {
            text += fmt::format(".TP\n\\fB{}\\fR\n{}\n", Roff(item.term), Roff(item.text));
        }
        first = false;
    }
    return text;
}

std::string PlainText(const ReferenceSection& section) {
    std::string text = std::string(section.title) + "\n";
    for (const ReferenceItem& item : section.items) {
        if (item.term == nullptr) {
            text += "\n" + Wrapped(Bare(item.text), 2);
        } else {
            text += "\n  " + Bare(item.term) + "\n" + Wrapped(Bare(item.text), 6);
        }
    }
    return text;
}

}  // namespace vpath_cli
