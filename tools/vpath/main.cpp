// vpath: search-path utilities on the command line.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include <CLI/CLI.hpp>

#include <foundation/core/except/exception.hpp>

#include "commands.hpp"
#include "path_cache_use.hpp"

namespace {

// LeaveQuickly: ends the process with `status` once everything printed has been written, without
// freeing what the process holds (the system takes it back at once). A failure to write standard
// output is an error: the output is lost.
int LeaveQuickly(int status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        vpath_cli::Fail("cannot write standard output");
        status = vpath_cli::kExitUsage;
    }
    std::fflush(stderr);
    std::_Exit(status);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace vpath_cli;
    CLI::App app{"vpath: resolve names on a search path of folders"};
    app.require_subcommand(1);

    PathOptions pathOptions;
    app.add_option_function<std::string>(
           "--path", [&](const std::string& text) { pathOptions.pathList = text; },
           "The search path as a path-list text (folders separated by ':' or ';'); "
           "overrides the saved path and cannot be changed")
        ->type_name("FOLDERS");
    app.add_option_function<std::string>(
           "--pathdef", [&](const std::string& file) { pathOptions.pathDefinition = file; },
           "The path definition file that keeps the search path; by default $VPATH_PATHDEF, "
           "else $XDG_CONFIG_HOME/vpath/pathdef, else ~/.config/vpath/pathdef")
        ->type_name("FILE");
    app.add_flag_callback("--no-cache", DisableCache,
                          "Neither read nor write the path cache: scan every folder");

    const std::vector<Command> commands = {
        RegisterWhich(app, pathOptions),
        RegisterLs(app, pathOptions),
        RegisterPath(app, pathOptions),
        RegisterAdd(app, pathOptions),
        RegisterRm(app, pathOptions),
        RegisterSplit(app),
        RegisterDiff(app),
        RegisterWatch(app, pathOptions),
        RegisterCache(app, pathOptions),
        RegisterEntries(app, pathOptions),
        RegisterShadows(app, pathOptions),
    };

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kExitOk : kExitUsage;
    }
    try {
        for (const auto& command : commands) {
            if (command.app->parsed())
                return LeaveQuickly(command.run());
        }
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kExitOk : kExitUsage;
    } catch (const std::exception& e) {
        Fail(e.what());
        return kExitUsage;
    }
    return kExitUsage;
}
