#include "global_options.hpp"

#include <optional>
#include <string>

#include "context/path_cache_use.hpp"

namespace vpath_cli {
namespace {

void AddValue(CLI::App& app, const std::string& name, const std::string& type,
              const std::string& help, std::optional<std::string>& target) {
    if (app.get_option_no_throw(name) != nullptr)
        return;
    app.add_option_function<std::string>(
           name, [&target](const std::string& value) { target = value; }, help)
        ->type_name(type)
        ->group(kGlobalGroup);
}

void AddFlag(CLI::App& app, const std::string& name, const std::string& help, bool& target) {
    if (app.get_option_no_throw(name) != nullptr)
        return;
    app.add_flag_function(
           name, [&target](std::int64_t) { target = true; }, help)
        ->group(kGlobalGroup);
}

}  // namespace

void AddGlobalOptions(CLI::App& app, PathOptions& options) {
    AddValue(app, "--path", "FOLDERS",
             "Search this path instead of the saved one: folders separated by ':' or ';' "
             "(paths or file: IRIs); cannot be changed",
             options.pathList);
    AddValue(app, "--path-file", "FILE",
             "The same, one folder per line, from FILE or from standard input for '-' (for paths "
             "too long for an argument); a regular file or standard input, of at most 16 MiB",
             options.pathFile);
    AddFlag(app, "--example", "Search the bundled example toolbox instead of the saved path",
            options.example);
    AddValue(app, "--pathdef", "FILE",
             "The path definition file that keeps the saved path; by default $VPATH_PATHDEF, "
             "else $XDG_CONFIG_HOME/vpath/pathdef, else ~/.config/vpath/pathdef",
             options.pathDefinition);
    AddFlag(app, "--no-service",
            "Answer without the path service, even when one runs (as VPATH_SERVICE=off does)",
            options.noService);
    if (app.get_option_no_throw("--no-cache") == nullptr) {
        app.add_flag_callback("--no-cache", DisableCache,
                              "Neither read nor write the path cache: scan every folder")
            ->group(kGlobalGroup);
    }
}

}  // namespace vpath_cli
