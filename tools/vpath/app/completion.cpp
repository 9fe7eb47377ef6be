// The bash and zsh completions of vpath, generated from its definitions: the commands, their
// options and what each option's value is; and what each command's arguments are, from the table
// below. Built on the shells' own helpers (bash-completion's _init_completion and _filedir, zsh's
// _arguments and _files), so that folders with spaces, "--option=value" and ":" complete as they
// do for any other command.

#include <algorithm>

#include <fmt/format.h>

#include "cli_app.hpp"
#include "definitions.hpp"
#include "docgen.hpp"

namespace vpath_cli {
namespace {

// What the arguments of a command complete to.
enum class Arguments {
    None,
    Folders,      // folders on disk
    PathFolders,  // the folders on the path (vpath path), else folders on disk
    Names,        // the names that which resolves (from vpath ls)
    Entries,      // the folders of the path that hold files (from vpath ls --packages)
    Files,        // files on disk
    Commands,     // vpath's commands
    Actions,      // the words of the command's IsMember check
};

struct CommandArguments {
    const char* command;
    Arguments arguments;
    const char* words;  // for Actions
};

constexpr CommandArguments kArguments[] = {
    {"which", Arguments::Names, ""},
    {"entries", Arguments::Entries, ""},
    {"add", Arguments::Folders, ""},
    {"rm", Arguments::PathFolders, ""},
    {"diff", Arguments::Files, ""},
    {"help", Arguments::Commands, ""},
    {"cache", Arguments::Actions, "status clear"},
};

CommandArguments ArgumentsOf(const std::string& command) {
    for (const auto& entry : kArguments) {
        if (command == entry.command)
            return entry;
    }
    return {"", Arguments::None, ""};
}

// What an option's value completes to, by its type: folders, a folder list, files, or nothing.
enum class Value { Folder, FolderList, File, Other };

Value ValueOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    if (type == "FOLDERS")
        return Value::FolderList;
    if (type.rfind("FOLDER", 0) == 0)
        return Value::Folder;
    return type == "FILE" ? Value::File : Value::Other;
}

std::string Words(const std::vector<const CLI::Option*>& options) {
    std::string words;
    for (const CLI::Option* option : options) {
        for (const auto& name : Names(*option))
            words += (words.empty() ? "" : " ") + name;
    }
    return words;
}

std::string Pattern(const std::vector<std::string>& names) {
    std::string pattern;
    for (const auto& name : names)
        pattern += (pattern.empty() ? "" : "|") + name;
    return pattern.empty() ? "--never--" : pattern;
}

// --- bash ------------------------------------------------------------------------------------

const char* BashAction(Arguments arguments) {
    switch (arguments) {
        case Arguments::Folders:
            return "_vpath_filedir -d";
        case Arguments::PathFolders:
            return "_vpath_path_folders";
        case Arguments::Names:
            return "_vpath_names which";
        case Arguments::Entries:
            return "_vpath_names entries";
        case Arguments::Files:
            return "_vpath_filedir";
        default:
            return ":";
    }
}

constexpr const char* kBashHelpers =
    R"bash(# Files or folders (-d) on disk; a ":" in their names breaks no word.
_vpath_filedir() {
    _filedir "$@"
    __ltrim_colon_completions "$cur"
}

# The options on the line that choose the path, for the runs of vpath below; not
# --path-file -, which would wait for standard input.
_vpath_path_options() {
    local i
    _vpath_given=()
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            --example | --no-cache | --path=* | --pathdef=* | --path-file=?*)
                _vpath_given+=("${words[i]}") ;;
            --path | --pathdef | --path-file)
                [[ ${words[i+1]} != - ]] && _vpath_given+=("${words[i]}" "${words[i+1]}")
                ((i++)) ;;
        esac
    done
}

# A folder list (--path a:b:c): the folder after the last ":" completes.
_vpath_folder_list() {
    local whole=$cur prefix=${cur%"${cur##*:}"}
    cur=${cur##*:}
    _filedir -d
    cur=$whole
    COMPREPLY=("${COMPREPLY[@]/#/$prefix}")
    __ltrim_colon_completions "$cur"
}

# The folders on the path, as vpath path prints them; folders on disk when none of them fits.
_vpath_path_folders() {
    local folder
    _vpath_path_options
    while IFS= read -r -d '' folder; do
        [[ $folder == "$cur"* ]] && COMPREPLY+=("$folder")
    done < <("$_vpath_program" "${_vpath_given[@]}" path -z 2>/dev/null)
    if ((${#COMPREPLY[@]})); then
        compopt -o filenames 2>/dev/null
        __ltrim_colon_completions "$cur"
    else
        _vpath_filedir -d
    fi
}

# The names that which resolves, or for entries the folders that hold files ("+" and "@" left
# out, as entries allows), from vpath ls, which the path cache makes fast.
_vpath_names() {
    local list=ls program='{ sub(/.*\//, ""); sub(/\.[^.]*$/, "") }'
    if [[ $1 == entries ]]; then
        list='ls --packages' program='{ sub(/\/[^\/]*$/, ""); sub(/.*\//, ""); sub(/^[+@]/, "") }'
    fi
    _vpath_path_options
    mapfile -t COMPREPLY < <("$_vpath_program" "${_vpath_given[@]}" $list 2>/dev/null |
        prefix=$cur awk "$program"' index($0, ENVIRON["prefix"]) == 1 && !seen[$0]++')
    __ltrim_colon_completions "$cur"
}
)bash";

}  // namespace

std::string BashCompletion(const CLI::App& app) {
    std::vector<std::string> folder, folderList, file, other;
    std::string commands, optionCases, argumentCases;
    auto noteValues = [&](const std::vector<const CLI::Option*>& options) {
        for (const CLI::Option* option : options) {
            if (!TakesValue(*option))
                continue;
            const Value value = ValueOf(*option);
            auto& list = value == Value::Folder       ? folder
                         : value == Value::FolderList ? folderList
                         : value == Value::File       ? file
                                                      : other;
            for (const auto& name : Names(*option)) {
                if (std::find(list.begin(), list.end(), name) == list.end())
                    list.push_back(name);
            }
        }
    };
    noteValues(Options(app, true));
    for (const CLI::App* sub : Subcommands(app)) {
        const std::string& name = sub->get_name();
        commands += (commands.empty() ? "" : " ") + name;
        noteValues(Options(*sub, false));
        optionCases += fmt::format("            {}) options=\"{} {}\" ;;\n", name,
                                   Words(Options(*sub, false)), Words(Options(*sub, true)));
    }
    for (const CLI::App* sub : Subcommands(app)) {
        const CommandArguments arguments = ArgumentsOf(sub->get_name());
        const std::string action =
            arguments.arguments == Arguments::Commands
                ? fmt::format("COMPREPLY=($(compgen -W \"{}\" -- \"$cur\"))", commands)
            : arguments.arguments == Arguments::Actions
                ? fmt::format("COMPREPLY=($(compgen -W \"{}\" -- \"$cur\"))", arguments.words)
                : BashAction(arguments.arguments);
        if (arguments.arguments != Arguments::None)
            argumentCases += fmt::format("        {}) {} ;;\n", sub->get_name(), action);
    }
    std::vector<std::string> valued = folder;
    for (const auto* list : {&folderList, &file, &other})
        valued.insert(valued.end(), list->begin(), list->end());
    return fmt::format(
        "# bash completion for vpath. Generated from the definitions of the vpath command; do not "
        "edit.\n"
        "# Needs bash-completion (_init_completion, _filedir).\n\n"
        "{}\n"
        "_vpath() {{\n"
        "    local cur prev words cword split\n"
        "    _init_completion -s -n : || return\n"
        "    _vpath_program=${{words[0]}}\n"
        "    local command='' options i\n"
        "    for ((i = 1; i < cword; i++)); do\n"
        "        case ${{words[i]}} in\n"
        "            {}) ((i++)) ;;\n"
        "            -*) ;;\n"
        "            *) command=${{words[i]}}; break ;;\n"
        "        esac\n"
        "    done\n"
        "    case $prev in\n"
        "        {}) _vpath_filedir -d; return ;;\n"
        "        {}) _vpath_folder_list; return ;;\n"
        "        {}) _vpath_filedir; return ;;\n"
        "        {}) return ;;\n"
        "    esac\n"
        "    $split && return\n"
        "    if [[ $cur == -* ]]; then\n"
        "        case $command in\n"
        "            '') options=\"-h --help --version {}\" ;;\n"
        "{}"
        "        esac\n"
        "        COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
        "        return\n"
        "    fi\n"
        "    case $command in\n"
        "        '') COMPREPLY=($(compgen -W \"{}\" -- \"$cur\")) ;;\n"
        "{}"
        "    esac\n"
        "}}\n"
        "complete -F _vpath vpath\n",
        kBashHelpers, Pattern(valued), Pattern(folder), Pattern(folderList), Pattern(file),
        Pattern(other), Words(Options(app, true)), optionCases, commands, argumentCases);
}

// --- zsh -------------------------------------------------------------------------------------

namespace {

// A description as zsh's _arguments and _describe take it: first sentence, no special characters.
std::string ZshText(const std::string& text) {
    std::string first = text.substr(0, text.find("; "));
    first = first.substr(0, first.find(". "));
    std::string out;
    for (const char c : first) {
        if (c == '[' || c == ']' || c == ':' || c == '\\')
            out += '\\';
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out;
}

std::string ZshOptionSpecs(const std::vector<const CLI::Option*>& options) {
    std::string specs;
    for (const CLI::Option* option : options) {
        std::string action;
        if (TakesValue(*option)) {
            const Value value = ValueOf(*option);
            action = fmt::format(":{}:{}", ZshText(option->get_type_name()),
                                 value == Value::Folder       ? "_files -/"
                                 : value == Value::FolderList ? "_sequence -s \\: _files -/"
                                 : value == Value::File       ? "_files"
                                                              : " ");
        }
        const std::string repeat = option->get_items_expected_max() > 1 ? "*" : "";
        for (const auto& name : Names(*option)) {
            specs += fmt::format("        '{}{}[{}]{}'\n", repeat, name,
                                 ZshText(option->get_description()), action);
        }
    }
    return specs;
}

std::string ZshArguments(const CLI::App& sub) {
    const auto positionals = Positionals(sub);
    if (positionals.empty())
        return "";
    const std::string what = ZshText(positionals.front()->get_name());
    const CommandArguments arguments = ArgumentsOf(sub.get_name());
    switch (arguments.arguments) {
        case Arguments::Folders:
            return fmt::format("        '*:{}:_files -/'\n", what);
        case Arguments::PathFolders:
            return fmt::format("        '*:{}:_vpath_path_folders'\n", what);
        case Arguments::Names:
            return fmt::format("        '*:{}:_vpath_names'\n", what);
        case Arguments::Entries:
            return fmt::format("        '*:{}:_vpath_entries'\n", what);
        case Arguments::Files:
            return fmt::format("        '*:{}:_files'\n", what);
        case Arguments::Commands:
            return fmt::format("        '1:{}:_vpath_commands'\n", what);
        case Arguments::Actions:
            return fmt::format("        '1:{}:({})'\n", what, arguments.words);
        default:
            return fmt::format("        '*:{}: '\n", what);
    }
}

constexpr const char* kZshHelpers =
    R"zsh(# The options parsed so far that choose the path, for the runs of vpath below (not
# --path-file -, which would wait for standard input), appended to $given.
_vpath_given() {
    local option
    for option in --example --no-cache; do
        (( ${+opt_args[$option]} )) && given+=($option)
    done
    for option in --path --pathdef --path-file; do
        (( ${+opt_args[$option]} )) && [[ $opt_args[$option] != - ]] &&
            given+=($option ${(Q)opt_args[$option]})
    done
}
_vpath_commands() {
    _describe -t commands command commands
}
# The folders on the path, as vpath path prints them; folders on disk besides.
_vpath_path_folders() {
    local -a folders given=($given)
    _vpath_given
    folders=(${(0)"$(_call_program folders $vpath $given path -z 2>/dev/null)"})
    _alternative 'path:folder on the path:compadd -a folders' 'folders:folder:_files -/'
}
# The names that which resolves, from vpath ls.
_vpath_names() {
    local -a files given=($given)
    _vpath_given
    files=(${(0)"$(_call_program names $vpath $given ls -z 2>/dev/null)"})
    compadd "$@" - ${(u)${files:t:r}}
}
# The folders that hold files, "+" and "@" left out as entries allows, from vpath ls.
_vpath_entries() {
    local -a files given=($given)
    _vpath_given
    files=(${(0)"$(_call_program names $vpath $given ls --packages -z 2>/dev/null)"})
    compadd "$@" - ${(u)${${files:h:t}#[+@]}}
}
)zsh";

}  // namespace

std::string ZshCompletion(const CLI::App& app) {
    std::string commands;
    std::string cases;
    const std::string global = ZshOptionSpecs(Options(app, true));
    for (const CLI::App* sub : Subcommands(app)) {
        commands +=
            fmt::format("        '{}:{}'\n", sub->get_name(), ZshText(sub->get_description()));
        const std::string specs =
            ZshOptionSpecs(Options(*sub, false)) + global + ZshArguments(*sub);
        cases += fmt::format("    {})\n        specs=(\n{}        )\n        ;;\n", sub->get_name(),
                             specs);
    }
    return fmt::format(
        "#compdef vpath\n"
        "# zsh completion for vpath. Generated from the definitions of the vpath command; do not "
        "edit.\n"
        "local curcontext=$curcontext state line vpath=$words[1]\n"
        "local -a commands global specs given\n"
        "local -A opt_args\n"
        "commands=(\n{}    )\n"
        "global=(\n{}    )\n"
        "{}"
        "_arguments -C $global \\\n"
        "    '(- *)--version[Print the version and exit]' \\\n"
        "    '(- *)'{{-h,--help}}'[Print help and exit]' \\\n"
        "    '1:command:->command' \\\n"
        "    '*::argument:->argument' && return\n"
        "case $state in\n"
        "command)\n"
        "    _vpath_commands\n"
        "    ;;\n"
        "argument)\n"
        "    _vpath_given\n"
        "    case $words[1] in\n"
        "{}"
        "    esac\n"
        "    _arguments $specs\n"
        "    ;;\n"
        "esac\n",
        commands, global, kZshHelpers, cases);
}

}  // namespace vpath_cli
