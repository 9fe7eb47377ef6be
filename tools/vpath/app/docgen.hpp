#pragma once
// The man page and the bash and zsh completions, generated from the application's own definitions
// (its subcommands, options, help texts, examples and exit statuses) so that they cannot drift from
// what the command accepts. The build runs `vpath --generate-doc man|bash|zsh` and installs the
// results; the option is hidden from help.

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

namespace vpath_cli {

// AddDocumentOption: the hidden --generate-doc KIND option.
void AddDocumentOption(CLI::App& app);

// GeneratedDocument: the document that --generate-doc asked for, or nothing when it was not given.
std::optional<std::string> GeneratedDocument(const CLI::App& app);

// ManPage, BashCompletion, ZshCompletion: the documents themselves.
std::string ManPage(const CLI::App& app);
std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);

}  // namespace vpath_cli
