#pragma once
// Global options: accepted before the subcommand and after it, and listed in every subcommand's
// help under "Global options".
//
//   vpath --path tb which area      the same as
//   vpath which --path tb area
//
// To add one: give it a field (in PathOptions, or a struct of its own that main passes on) and
// one line in AddGlobalOptions. SetUpApp puts it on the application and on every subcommand.

#include <CLI/CLI.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {

inline constexpr const char* kGlobalGroup = "Global options";

// AddGlobalOptions: registers the global options on `app` (the application or one subcommand),
// writing into `options`. An option that `app` already defines under the same name stays its own:
// a subcommand's `--json` is not replaced by a global one.
void AddGlobalOptions(CLI::App& app, PathOptions& options);

}  // namespace vpath_cli
