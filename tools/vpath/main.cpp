// vpath: search-path utilities on the command line.

#include <vector>

#include <CLI/CLI.hpp>

#include "cli_app.hpp"
#include "commands.hpp"

int main(int argc, char** argv) {
    using namespace vpath_cli;
    CLI::App app{"vpath: resolve names on a search path of folders", "vpath"};
    PathOptions pathOptions;

    const std::vector<Command> commands = {
        RegisterWhich(app, pathOptions),
        RegisterLs(app, pathOptions),
        RegisterPath(app, pathOptions),
        RegisterAdd(app, pathOptions),
        RegisterRm(app, pathOptions),
        RegisterSplit(app),
        RegisterDiff(app),
        RegisterWatch(app, pathOptions),
    };

    // Global options, help, --version, parse errors and exit statuses: see cli_app.hpp.
    SetUpApp(app, pathOptions);
    return RunApp(app, commands, argc, argv);
}
