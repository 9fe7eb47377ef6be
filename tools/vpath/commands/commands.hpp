#pragma once
// The subcommands of vpath. Each registers itself on the application and runs when chosen.

#include <functional>

#include <CLI/CLI.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {

// A registered command: its subcommand, and what runs after parsing when it was chosen (returning
// the exit status).
struct Command {
    CLI::App* app;
    std::function<int()> run;
};

Command RegisterWhich(CLI::App& app, const PathOptions& pathOptions);
Command RegisterLs(CLI::App& app, const PathOptions& pathOptions);
Command RegisterPath(CLI::App& app, const PathOptions& pathOptions);
Command RegisterAdd(CLI::App& app, const PathOptions& pathOptions);
Command RegisterRm(CLI::App& app, const PathOptions& pathOptions);
Command RegisterSplit(CLI::App& app);
Command RegisterDiff(CLI::App& app);
Command RegisterWatch(CLI::App& app, const PathOptions& pathOptions);
Command RegisterCache(CLI::App& app, const PathOptions& pathOptions);
Command RegisterEntries(CLI::App& app, const PathOptions& pathOptions);
Command RegisterShadows(CLI::App& app, const PathOptions& pathOptions);
Command RegisterService(CLI::App& app, const PathOptions& pathOptions);

// RunVpath: the whole command on `argv`, as main runs it; returns the exit status. The path
// service runs it for each command it answers.
int RunVpath(int argc, char** argv);

}  // namespace vpath_cli
