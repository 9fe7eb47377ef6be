// vpath: search-path utilities on the command line.

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <CLI/CLI.hpp>

#include "app/cli_app.hpp"
#include "commands/commands.hpp"
#include "context/service_use.hpp"

namespace vpath_cli {

int RunVpath(int argc, char** argv) {
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
        RegisterService(app, pathOptions),
    };

    // Global options, help, --version, parse errors and exit statuses: see cli_app.hpp.
    SetUpApp(app, pathOptions);
    return RunApp(app, commands, argc, argv, [&](const CLI::App& chosen) {
        return AnswerThroughService(chosen, pathOptions, argc, argv);
    });
}

}  // namespace vpath_cli

int main(int argc, char** argv) {
    // Everything printed is written by now; what the process holds, the system takes back at once,
    // far quicker than freeing it object by object would.
    const int status = vpath_cli::RunVpath(argc, argv);
    std::fflush(stderr);
    std::_Exit(status);
}
