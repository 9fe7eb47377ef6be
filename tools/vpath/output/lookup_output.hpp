#pragma once
// How the lookup commands print folders, files and hits, as text and as JSON for scripts.
//
// In JSON every folder and file is an object {"path": ..., "iri": ...}: the path is for reading
// (bytes that are not UTF-8 shown as U+FFFD), the IRI keeps every byte (percent-encoded).

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathmanagement/search_target.hpp>

namespace vpath_cli {

// KindName: "folder", "package", "class", "private" or "resources".
const char* KindName(Velmora::PathManagement::PathEntryType kind);

nlohmann::json FolderJson(const foundation::storage::vfs::AbsoluteIRI& folder);
nlohmann::json FileJson(const Velmora::PathManagement::PathItem& item);
// A found file: {"file", "folder", "kind"} (the kind of the folder that holds it).
nlohmann::json HitJson(const Velmora::PathManagement::FoundItem& hit);

// PrintFoldersJson: the folders as one JSON array of {"path", "iri", "exists"}.
void PrintFoldersJson(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders);

// AddNullFlag: -z, --null on a command that prints paths, one a line: with it each path ends with a
// NUL instead, so that names holding line breaks come through (xargs -0, sort -z). Set in `null`.
CLI::Option* AddNullFlag(CLI::App& command, bool& null);
// EndOfPath: what ends each printed path: a NUL with --null, else a line break.
inline char EndOfPath(bool null) {
    return null ? '\0' : '\n';
}

// JsonLine: the value on one line, for appending to the output.
std::string JsonLine(const nlohmann::json& value);
// Prints `text` on standard output as it stands.
void Print(const std::string& text);

}  // namespace vpath_cli
