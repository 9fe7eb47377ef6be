// vpath: search-path utilities on the command line.

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <CLI/CLI.hpp>

#include "app/cli_app.hpp"
#include "commands/commands.hpp"

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
        RegisterCache(app, pathOptions),
        RegisterEntries(app, pathOptions),
        RegisterShadows(app, pathOptions),
    };

    // Global options, help, --version, parse errors and exit statuses: see cli_app.hpp.
    SetUpApp(app, pathOptions);
    // Everything printed is written by now; what the process holds, the system takes back at once,
    // far quicker than freeing it object by object would.
    const int status = RunApp(app, commands, argc, argv);
    std::fflush(stderr);
    std::_Exit(status);
}
