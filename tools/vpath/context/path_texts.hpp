#pragma once
// The texts that give a path on the command line, split into the folder texts they hold: a --path
// text, and the content of a --path-file.

#include <string>
#include <vector>

#include <velmora/text/ustring.hpp>

namespace vpath_cli {

// SplitPathArgument: the folder texts of a --path text. As SplitVorlanPath, except that the colon
// of an IRI's scheme ("file:///a", "file:/a", "http://h/a") does not separate.
//
//   u"a:file:///b;c"    => {u"a", u"file:///b", u"c"}
//   u"file:/b::x"       => {u"file:/b", u"x"}
//   u"file:b"           => {u"file", u"b"}
//   u"FILE:/b"          => {u"FILE:/b"}     schemes are recognised whatever their case
std::vector<ustring> SplitPathArgument(const ustring& text);

// PathFileLines: the folder texts of `content`, the content of the --path-file `file`: one a line,
// without comment ("#") and empty lines, read as the path definition file reads its lines (a line
// ends in LF or CRLF; a last line without LF keeps a carriage return it ends in).
// Throws std::runtime_error, naming `file` and the line, when a line holds a NUL: the line is shown
// whole, the NUL as \0 and a backslash as \\.
std::vector<ustring> PathFileLines(const std::string& file, const std::string& content);

}  // namespace vpath_cli
