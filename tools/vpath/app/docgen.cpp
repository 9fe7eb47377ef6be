#include "docgen.hpp"

#include <fmt/format.h>

#include "build_info.hpp"
#include "cli_app.hpp"
#include "context/exit_status.hpp"
#include "global_options.hpp"

namespace vpath_cli {
namespace {

constexpr const char* kDocumentOption = "--generate-doc";

// The visible options of `scope`; its own ones or the global ones.
std::vector<const CLI::Option*> Options(const CLI::App& scope, bool global) {
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

std::vector<const CLI::Option*> Positionals(const CLI::App& scope) {
    std::vector<const CLI::Option*> positionals;
    for (const CLI::Option* option : scope.get_options()) {
        if (option->get_positional())
            positionals.push_back(option);
    }
    return positionals;
}

std::vector<std::string> Names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_snames())
        names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;  // 0 for flags
}

// --- man page --------------------------------------------------------------------------------

std::string Roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\''))
        out.insert(0, "\\&");
    return out;
}

std::string ManOption(const CLI::Option& option) {
    std::string names;
    for (const auto& name : Names(option))
        names += (names.empty() ? "" : ", ") + fmt::format("\\fB{}\\fR", Roff(name));
    if (TakesValue(option))
        names += fmt::format(" \\fI{}\\fR", Roff(option.get_type_name()));
    return fmt::format(".TP\n{}\n{}\n", names, Roff(option.get_description()));
}

std::string ManSynopsis(const CLI::App& sub) {
    std::string line = fmt::format("\\fBvpath {}\\fR", Roff(sub.get_name()));
    if (!Options(sub, false).empty())
        line += " [\\fIOPTIONS\\fR]";
    for (const CLI::Option* positional : Positionals(sub)) {
        const bool many = positional->get_items_expected_max() > 1;
        const std::string name =
            fmt::format("\\fI{}\\fR{}", Roff(positional->get_name()), many ? "..." : "");
        line += positional->get_required() ? " " + name : " [" + name + "]";
    }
    return line;
}

// --- completions -----------------------------------------------------------------------------

// What a value of this type completes to: folders, files, or nothing.
enum class Completion { Folder, File, None };

Completion ValueCompletion(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    if (type.rfind("FOLDER", 0) == 0)
        return Completion::Folder;
    if (type == "FILE")
        return Completion::File;
    return Completion::None;
}

std::string Words(const std::vector<const CLI::Option*>& options) {
    std::string words;
    for (const CLI::Option* option : options) {
        for (const auto& name : Names(*option))
            words += (words.empty() ? "" : " ") + name;
    }
    return words;
}

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
        const auto names = Names(*option);
        std::string action;
        if (TakesValue(*option)) {
            const Completion completion = ValueCompletion(*option);
            action = fmt::format(":{}:{}", ZshText(option->get_type_name()),
                                 completion == Completion::Folder ? "_files -/"
                                 : completion == Completion::File ? "_files"
                                                                  : " ");
        }
        const std::string repeat = option->get_items_expected_max() > 1 ? "*" : "";
        for (const auto& name : names) {
            specs += fmt::format("        '{}{}[{}]{}'\n", repeat, name,
                                 ZshText(option->get_description()), action);
        }
    }
    return specs;
}

}  // namespace

void AddDocumentOption(CLI::App& app) {
    app.add_option(kDocumentOption, "Print the man page or a shell completion")
        ->check(CLI::IsMember({"man", "bash", "zsh"}))
        ->group("");
}

std::optional<std::string> GeneratedDocument(const CLI::App& app) {
    const CLI::Option* option = app.get_option_no_throw(kDocumentOption);
    if (option == nullptr || option->count() == 0)
        return std::nullopt;
    const std::string kind = option->as<std::string>();
    if (kind == "man")
        return ManPage(app);
    return kind == "bash" ? BashCompletion(app) : ZshCompletion(app);
}

std::string ManPage(const CLI::App& app) {
    std::string page = fmt::format(
        ".\\\" Generated from the definitions of the vpath command; do not edit.\n"
        ".TH VPATH 1 \"\" \"vpath {}\" \"User Commands\"\n"
        ".SH NAME\nvpath \\- resolve names on a search path of folders\n"
        ".SH SYNOPSIS\n\\fBvpath\\fR [\\fIGLOBAL OPTIONS\\fR] \\fICOMMAND\\fR [\\fIOPTIONS\\fR] "
        "[\\fIARGUMENTS\\fR]\n.br\n\\fBvpath \\-\\-version\\fR\n"
        ".SH DESCRIPTION\n"
        "The search path is an ordered list of folders. A name such as \\fBarea\\fR resolves to "
        "the "
        "first file of that name under the language's extensions (\\fB.vlx\\fR, \\fB.vlp\\fR, "
        "\\fB.vl\\fR), in the folders of the path and in their class (\\fB@\\fR) folders; a name "
        "with "
        "folders in it (\\fBshapes/circle\\fR) also reaches package (\\fB+\\fR) folders.\n"
        ".PP\nA special folder (package \\fB+\\fR, class \\fB@\\fR, \\fBprivate\\fR or "
        "\\fBresources\\fR) named on the path while a folder that holds it is on the path too is "
        "searched through that folder only, wherever either stands, so each file is reached "
        "once; alone on the path it is searched as an ordinary folder. The resources folder of a "
        "folder on the path is never searched by name.\n"
        ".PP\nThe path is kept in a path definition file, one folder per line. Until one is "
        "saved the path is empty: add a folder with \\fBvpath add\\fR \\fIFOLDER\\fR, or try "
        "the bundled example toolbox with \\fB\\-\\-example\\fR.\n"
        ".SH COMMANDS\n",
        kVersion);
    for (const CLI::App* sub : Subcommands(app)) {
        page += fmt::format(".SS {}\n{}\n", ManSynopsis(*sub), Roff(sub->get_description()));
        const auto options = Options(*sub, false);
        if (!options.empty()) {
            page += ".RS\n";
            for (const CLI::Option* option : options) {
                if (option->get_name() != "--help")
                    page += ManOption(*option);
            }
            page += ".RE\n";
        }
    }
    page += ".SH GLOBAL OPTIONS\nAccepted before the command or after it.\n";
    for (const CLI::Option* option : Options(app, true))
        page += ManOption(*option);
    page += ".TP\n\\fB\\-\\-version\\fR\nPrint the version and exit.\n";
    page += ".SH EXAMPLES\n";
    for (const Example& example : Examples())
        page += fmt::format(".TP\n\\fBvpath {}\\fR\n{}\n", Roff(example.line), Roff(example.what));
    page += ".SH EXIT STATUS\n";
    for (const auto& [status, meaning] : kExitStatuses)
        page += fmt::format(".TP\n\\fB{}\\fR\n{}\n", status, Roff(meaning));
    page +=
        ".SH PATH SERVICE\n"
        "\\fBvpath service start\\fR runs a resident process for the saved path that holds it in "
        "memory, kept fresh by watching its folders and its path definition file. While it runs, "
        "\\fBwhich\\fR (but \\fB\\-\\-batch\\fR), \\fBls\\fR, \\fBpath\\fR, "
        "\\fBentries\\fR and \\fBshadows\\fR are answered by it, with the same output and exit "
        "status, after it has taken in every change made before the question. A service that is "
        "absent, dead or slow to greet leaves the command to answer from the disk. It ends after "
        "30 minutes without a request (\\fB\\-\\-idle\\-timeout\\fR).\n";
    page +=
        ".SH ENVIRONMENT\n"
        ".TP\n\\fBVPATH_PATHDEF\\fR\nThe path definition file, unless \\fB\\-\\-pathdef\\fR "
        "gives one.\n"
        ".TP\n\\fBXDG_CONFIG_HOME\\fR\nWithout \\fBVPATH_PATHDEF\\fR, the path definition file "
        "is \\fB$XDG_CONFIG_HOME/vpath/pathdef\\fR, else \\fB~/.config/vpath/pathdef\\fR.\n"
        ".TP\n\\fBVPATH_LOG\\fR\nShow the diagnostic channels on standard error: \\fBwarn\\fR, "
        "\\fBinfo\\fR or \\fBdebug\\fR.\n"
        ".TP\n\\fBVPATH_THREADS\\fR\nThe most threads that scans and sorts use.\n"
        ".TP\n\\fBVPATH_AT_FOLDER_PRECEDENCE\\fR\nWith \\fB1\\fR, a class folder's file found "
        "with \\fB\\-\\-from\\fR wins only where its folder comes first on the path; "
        "otherwise it wins wherever it stands.\n"
        ".TP\n\\fBVPATH_SERVICE\\fR\nWith \\fBoff\\fR, commands answer without the path "
        "service (as \\fB\\-\\-no\\-service\\fR does); with \\fBauto\\fR, a command that "
        "finds none starts it.\n"
        ".TP\n\\fBXDG_RUNTIME_DIR\\fR\nThe path service's socket is in "
        "\\fB$XDG_RUNTIME_DIR/vpath\\fR.\n"
        ".SH FILES\n"
        ".TP\n\\fI~/.config/vpath/pathdef\\fR\nThe saved search path.\n"
        ".TP\n\\fI/usr/share/vpath/examples/toolbox\\fR\nThe example toolbox of "
        "\\fB\\-\\-example\\fR.\n";
    return page;
}

std::string BashCompletion(const CLI::App& app) {
    std::string commands;
    std::string cases;
    std::string folderOptions;
    std::string fileOptions;
    std::string valueOptions;
    auto noteValues = [&](const std::vector<const CLI::Option*>& options) {
        for (const CLI::Option* option : options) {
            if (!TakesValue(*option))
                continue;
            const Completion completion = ValueCompletion(*option);
            std::string& list = completion == Completion::Folder ? folderOptions
                                : completion == Completion::File ? fileOptions
                                                                 : valueOptions;
            for (const auto& name : Names(*option)) {
                if ((" " + list + " ").find(" " + name + " ") == std::string::npos)
                    list += (list.empty() ? "" : " ") + name;
            }
        }
    };
    noteValues(Options(app, true));
    for (const CLI::App* sub : Subcommands(app)) {
        commands += (commands.empty() ? "" : " ") + sub->get_name();
        noteValues(Options(*sub, false));
        cases += fmt::format("        {}) options=\"{} {}\" ;;\n", sub->get_name(),
                             Words(Options(*sub, false)), Words(Options(*sub, true)));
    }
    auto pattern = [](std::string list) {
        for (auto& c : list) {
            if (c == ' ')
                c = '|';
        }
        return list.empty() ? std::string("--never--") : list;
    };
    return fmt::format(
        "# bash completion for vpath. Generated from the definitions of the vpath command; do not "
        "edit.\n"
        "_vpath() {{\n"
        "    local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}}\n"
        "    local command='' options i\n"
        "    COMPREPLY=()\n"
        "    case $prev in\n"
        "        {}) COMPREPLY=($(compgen -d -- \"$cur\")); return ;;\n"
        "        {}) COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
        "        {}) return ;;\n"
        "    esac\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        case ${{COMP_WORDS[i]}} in\n"
        "            {}) command=${{COMP_WORDS[i]}}; break ;;\n"
        "        esac\n"
        "    done\n"
        "    case $command in\n"
        "        '') options=\"-h --help --version {}\" ;;\n"
        "{}"
        "    esac\n"
        "    if [[ $cur == -* ]]; then\n"
        "        COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
        "    elif [[ -z $command ]]; then\n"
        "        COMPREPLY=($(compgen -W \"{}\" -- \"$cur\"))\n"
        "    fi\n"
        "}}\n"
        "complete -o default -F _vpath vpath\n",
        pattern(folderOptions), pattern(fileOptions), pattern(valueOptions), pattern(commands),
        Words(Options(app, true)), cases, commands);
}

std::string ZshCompletion(const CLI::App& app) {
    std::string commands;
    std::string cases;
    const std::string global = ZshOptionSpecs(Options(app, true));
    for (const CLI::App* sub : Subcommands(app)) {
        commands +=
            fmt::format("        '{}:{}'\n", sub->get_name(), ZshText(sub->get_description()));
        std::string specs = ZshOptionSpecs(Options(*sub, false)) + global;
        const auto positionals = Positionals(*sub);
        if (!positionals.empty())
            specs +=
                fmt::format("        '*:{}:_files'\n", ZshText(positionals.front()->get_name()));
        cases += fmt::format("    {})\n        specs=(\n{}        )\n        ;;\n", sub->get_name(),
                             specs);
    }
    return fmt::format(
        "#compdef vpath\n"
        "# zsh completion for vpath. Generated from the definitions of the vpath command; do not "
        "edit.\n"
        "local curcontext=$curcontext state line\n"
        "local -a commands global specs\n"
        "commands=(\n{}    )\n"
        "global=(\n{}    )\n"
        "_arguments -C $global \\\n"
        "    '(- *)--version[Print the version and exit]' \\\n"
        "    '(- *)'{{-h,--help}}'[Print help and exit]' \\\n"
        "    '1:command:->command' \\\n"
        "    '*::argument:->argument' && return\n"
        "case $state in\n"
        "command)\n"
        "    _describe -t commands command commands\n"
        "    ;;\n"
        "argument)\n"
        "    case $words[1] in\n"
        "{}"
        "    esac\n"
        "    _arguments $specs\n"
        "    ;;\n"
        "esac\n",
        commands, global, cases);
}

}  // namespace vpath_cli
