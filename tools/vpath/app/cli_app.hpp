#pragma once
// The vpath application around its subcommands: global options, help, the version, parse errors
// with suggestions, exit statuses and output errors. main registers the subcommands, then calls
// SetUpApp and RunApp.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/commands.hpp"
#include "context/cli_context.hpp"

namespace vpath_cli {

// Example: one line of the examples that help and the man page show.
struct Example {
    const char* command;  // the subcommand it shows, for that subcommand's help
    const char* line;     // as typed, without "vpath "
    const char* what;
};

// Subcommands: the subcommands as users see them (option groups are nameless subcommands to
// CLI11), in the order they were registered.
std::vector<const CLI::App*> Subcommands(const CLI::App& app);

// Examples: every example, in the order the main help shows them.
const std::vector<Example>& Examples();

// SetUpApp: call after every subcommand is registered. Adds the global options to the application
// and to each subcommand, --version, the help sections (examples, exit statuses), and lets parsing
// collect unknown arguments so that RunApp can name the nearest valid ones.
void SetUpApp(CLI::App& app, PathOptions& pathOptions);

// RunApp: parses the arguments, runs the chosen command and returns the exit status (see
// exit_status.hpp). Every message it prints starts with "vpath:". An error writing standard output
// is reported and makes the status kExitTrouble.
int RunApp(CLI::App& app, const std::vector<Command>& commands, int argc, char** argv);

// BeforeCommand: runs once the arguments are parsed, before the chosen command runs; a status it
// gives is the command's, which then does not run (the path service answered it).
using BeforeCommand = std::function<std::optional<int>(const CLI::App& chosen)>;
int RunApp(CLI::App& app, const std::vector<Command>& commands, int argc, char** argv,
           const BeforeCommand& beforeCommand);

}  // namespace vpath_cli
