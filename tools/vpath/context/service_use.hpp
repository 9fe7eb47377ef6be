#pragma once
// The command's side of the path service: when a command is answered by the service of the saved
// path, and how a service is started.
//
// A command on the saved path (which, ls, path, entries, shadows, add, rm, cache status) is sent
// to the service of that path when one runs, and prints exactly what the service's run of it
// printed, with its exit status; `which --batch` sends its names in pieces as it reads them
// (OpenServiceBatch). It answers by itself, from the disk, when
//   - it is given --no-service, or VPATH_SERVICE is "off";
//   - it is given a path of its own (--path, --path-file, --example);
//   - no service runs, or the one that runs does not greet it in time, dies before its reply is
//     whole, or declines (another path, other settings). A batch whose service dies answers the
//     names whose answers had not come, and those after them, by itself.
// With VPATH_SERVICE=auto, a command that finds no service starts one (and answers by itself).

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <velmora/searchpath/service_client.hpp>
#include <velmora/searchpath/service_place.hpp>

#include "cli_context.hpp"

namespace vpath_cli {

// AnswerThroughService: the exit status of the command `chosen`, answered and printed by the
// path service; none when the command must answer by itself.
std::optional<int> AnswerThroughService(const CLI::App& chosen, const PathOptions& options,
                                        int argc, char** argv);

// OpenServiceBatch: the service's batch of `which --batch` with `arguments` (the command and its
// options, without names), its opening printed and its status in `status`; null when the
// command must answer by itself.
std::unique_ptr<Velmora::SearchPath::PathServiceBatch> OpenServiceBatch(
    const PathOptions& options, const std::vector<std::string>& arguments, int& status);

// ServicePlaceOf: the service files of the saved path the options choose; none when there is no
// place for them.
std::optional<Velmora::SearchPath::ServicePlace> ServicePlaceOf(const PathOptions& options);

// SpawnService: starts `vpath service run` for `place` in the background, logging to the place's
// log; returns the process id, or throws std::runtime_error.
std::uint32_t SpawnService(const Velmora::SearchPath::ServicePlace& place,
                           const std::optional<long>& idleSeconds);

}  // namespace vpath_cli
