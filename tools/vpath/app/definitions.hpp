#pragma once
// What the generated documents read of the application's definitions: a command's options, its
// arguments, an option's names.

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "global_options.hpp"

namespace vpath_cli {

// Options: the visible options of `scope`: its own ones, or the global ones.
inline std::vector<const CLI::Option*> Options(const CLI::App& scope, bool global) {
    std::vector<const CLI::Option*> options;
    for (const CLI::Option* option : scope.get_options()) {
        if (option->get_group().empty() || option->get_positional() ||
            (option->get_group() == kGlobalGroup) != global) {
            continue;
        }
        options.push_back(option);
    }
    return options;
}

// Positionals: the arguments of `scope`, in order.
inline std::vector<const CLI::Option*> Positionals(const CLI::App& scope) {
    std::vector<const CLI::Option*> positionals;
    for (const CLI::Option* option : scope.get_options()) {
        if (option->get_positional())
            positionals.push_back(option);
    }
    return positionals;
}

// Names: "-a", "--all".
inline std::vector<std::string> Names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_snames())
        names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

inline bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;  // 0 for flags
}

}  // namespace vpath_cli
