#include "cli_app.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <sstream>

#include <fmt/format.h>

#include <velmora/os/system.hpp>

#include "build_info.hpp"
#include "docgen.hpp"
#include "global_options.hpp"
#include "reference.hpp"
#include "suggest.hpp"

namespace vpath_cli {
namespace {

std::vector<std::string> OptionNames(const CLI::App& scope) {
    std::vector<std::string> names;
    for (const CLI::Option* option : scope.get_options()) {
        if (option->get_group().empty())
            continue;  // hidden
        for (const auto& name : option->get_lnames())
            names.push_back("--" + name);
        for (const auto& name : option->get_snames())
            names.push_back("-" + name);
    }
    return names;
}

std::string Indented(const std::string& text, std::size_t indent, std::size_t width = 79) {
    std::string out(indent, ' ');
    std::size_t column = indent;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string word = text.substr(start, end - start);
        if (column > indent && column + 1 + word.size() > width) {
            out += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out += word;
        column += word.size();
        start = end + 1;
    }
    return out + "\n";
}

std::string Footer(const std::string& command) {
    std::string footer;
    for (const Example& example : Examples()) {
        if (!command.empty() && command != example.command)
            continue;
        if (footer.empty())
            footer = "Examples:\n";
        footer += fmt::format("  vpath {}\n{}", example.line, Indented(example.what, 6));
    }
    if (!footer.empty())
        footer += "\n";
    footer += "Global options go before or after the command alike; '--' ends the options.\n";
    if (command.empty()) {
        std::string topics;
        for (const ReferenceSection& section : ReferenceSections()) {
            if (section.topic != nullptr)
                topics += (topics.empty() ? "" : ", ") + std::string(section.topic);
        }
        footer += fmt::format("\nMore in 'man vpath' and 'vpath help TOPIC': {}.\n", topics);
    }
    footer += "\nExit status:\n";
    for (const auto& [status, meaning] : kExitStatuses)
        footer += fmt::format("  {}{}", status, Indented(meaning, 5).substr(3));
    return footer;
}

// Reports a usage error of `scope` ("which", or "" for vpath itself) the way every usage error is
// reported: "vpath: ..." and where to read more.
int UsageError(const std::string& scope, const std::string& message) {
    Fail(scope.empty() ? message : scope + ": " + message);
    Fail(fmt::format("see 'vpath{}{} --help'", scope.empty() ? "" : " ", scope));
    return kExitUsage;
}

// The arguments that parsing left over, if any, reported with the nearest valid names. An
// unknown argument explains the parse better than anything that failed because of it.
std::optional<int> ReportUnknownArguments(CLI::App& app) {
    std::vector<CLI::App*> scopes = {&app};
    for (CLI::App* sub : app.get_subcommands())
        scopes.push_back(sub);
    for (CLI::App* scope : scopes) {
        const std::string name = scope == &app ? "" : scope->get_name();
        for (const std::string& argument : scope->remaining()) {
            if (argument == "--")
                continue;  // left among the extras though it only ended the options
            if (argument.size() > 1 && argument[0] == '-') {
                const std::string option = argument.substr(0, argument.find('='));
                return UsageError(name, fmt::format("unknown option '{}'{}", option,
                                                    DidYouMean(option, OptionNames(*scope))));
            }
            if (scope != &app)
                return UsageError(name, fmt::format("unexpected argument '{}'", argument));
            std::vector<std::string> commands;
            for (const CLI::App* sub : Subcommands(app))
                commands.push_back(sub->get_name());
            return UsageError(name, fmt::format("unknown command '{}'{}", argument,
                                                DidYouMean(argument, commands)));
        }
    }
    return std::nullopt;
}

constexpr const char* kHelpCommand = "help";

const CLI::App* Named(const std::vector<const CLI::App*>& subcommands, const std::string& name) {
    const auto at = std::find_if(subcommands.begin(), subcommands.end(),
                                 [&](const CLI::App* sub) { return sub->get_name() == name; });
    return at == subcommands.end() ? nullptr : *at;
}

// The text of vpath help [COMMAND|TOPIC]: what --help prints for vpath or for the command, or a
// section of the reference; nothing for a name that is neither.
std::optional<std::string> HelpText(const CLI::App& app, const std::string& name) {
    if (name.empty()) {
        // As app.help() would, were the help command not the one chosen.
        return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
    }
    if (const CLI::App* command = Named(Subcommands(app), name))
        return command->help(app.get_name());
    for (const ReferenceSection& section : ReferenceSections()) {
        if (section.topic != nullptr && name == section.topic)
            return PlainText(section);
    }
    return std::nullopt;
}

std::optional<int> RunHelp(const CLI::App& app) {
    const CLI::App* help = Named(Subcommands(app), kHelpCommand);
    if (help == nullptr || !help->parsed())
        return std::nullopt;
    const CLI::Option* given = help->get_option("command");
    const std::string name = given->count() == 0 ? "" : given->as<std::string>();
    const auto text = HelpText(app, name);
    if (!text) {
        std::vector<std::string> names;
        for (const CLI::App* sub : Subcommands(app))
            names.push_back(sub->get_name());
        for (const ReferenceSection& section : ReferenceSections()) {
            if (section.topic != nullptr)
                names.push_back(section.topic);
        }
        return UsageError(kHelpCommand, fmt::format("unknown command or topic '{}'{}", name,
                                                    DidYouMean(name, names)));
    }
    std::fwrite(text->data(), 1, text->size(), stdout);
    return kExitOk;
}

int ReportParseError(CLI::App& app, const CLI::ParseError& error) {
    if (const auto status = ReportUnknownArguments(app))
        return *status;
    const auto chosen = app.get_subcommands();
    return UsageError(chosen.empty() ? "" : chosen.back()->get_name(), error.what());
}

// Flushes standard output; a write that failed (a full disk, a closed pipe) is an error.
int FinishOutput(int status) {
    // std::cout writes through stdout's buffer, so either flush may be the one that fails. Output
    // longer than the buffer is written as it is made: a write that failed then left its errno,
    // and nothing is left for the flush to fail on.
    const int earlier = std::ferror(stdout) ? errno : 0;
    errno = 0;
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    const int error = errno != 0 ? errno : earlier;
    if (flushed && !std::ferror(stdout) && !std::cout.fail())
        return status;
    Fail(error != 0 ? "error writing standard output: " + Velmora::os::ErrorText(error)
                    : std::string("error writing standard output"));
    return kExitTrouble;
}

int Dispatch(CLI::App& app, const std::vector<Command>& commands, int argc, char** argv,
             const BeforeCommand& beforeCommand) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) {  // --help, --version: through stdout's buffer, as all output
            std::ostringstream out;
            app.exit(e, out);
            const std::string text = out.str();
            std::fwrite(text.data(), 1, text.size(), stdout);
            return kExitOk;
        }
        return ReportParseError(app, e);
    }
    if (const auto status = ReportUnknownArguments(app))
        return *status;
    if (const auto generated = GeneratedDocument(app))
        return std::fwrite(generated->data(), 1, generated->size(), stdout), kExitOk;
    if (const auto status = RunHelp(app))
        return *status;
    try {
        for (const auto& command : commands) {
            if (!command.app->parsed())
                continue;
            if (beforeCommand) {
                if (const auto status = beforeCommand(*command.app))
                    return *status;
            }
            return command.run();
        }
    } catch (const CLI::ParseError& e) {
        return ReportParseError(app, e);
    } catch (const std::exception& e) {
        Fail(e.what());
        return kExitTrouble;
    }
    std::string names;
    for (const CLI::App* sub : Subcommands(app))
        names += (names.empty() ? "" : ", ") + sub->get_name();
    return UsageError("", "a command is required: " + names);
}

}  // namespace

std::vector<const CLI::App*> Subcommands(const CLI::App& app) {
    std::vector<const CLI::App*> subcommands;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (!sub->get_name().empty())
            subcommands.push_back(sub);
    }
    return subcommands;
}

const std::vector<Example>& Examples() {
    static const std::vector<Example> examples = {
        {"which", "which area clamp", "the file each name resolves to"},
        {"which", "which -a area", "every file of that name in path order, the shadowed marked"},
        {"which", "which --from geometry validate_shape",
         "as seen from a file in the folder geometry: its private folder first"},
        {"which", "which --path 'tools:file:///opt/tb' area", "on a path of your own"},
        {"which", "--example which area", "on the bundled example toolbox"},
        {"ls", "ls --ext .vlp --ext .vlx", "the files with these extensions, in path order"},
        {"path", "path", "the folders of the saved path, first searched first"},
        {"path", "path --path-file folders.txt",
         "the folders of a file, one a line, as vpath takes them"},
        {"add", "add ~/tb", "put a folder at the front of the saved path"},
        {"add", "add --end ~/tb ~/more", "put folders at its end instead"},
        {"rm", "rm ~/tb", "take a folder off the saved path"},
        {"split", "split 'a:b;c'", "the folders of a path-list text, one a line"},
        {"diff", "diff old.pathdef new.pathdef", "what differs between two saved paths"},
        {"watch", "watch --json", "each change of the path as it happens, one JSON object a line"},
        {"watch", "watch --poll 5", "the same, reading the folders again every 5 seconds"},
    };
    return examples;
}

void SetUpApp(CLI::App& app, PathOptions& pathOptions) {
    app.set_version_flag("--version", fmt::format("vpath {}", kVersion),
                         "Print the version and exit");
    AddGlobalOptions(app, pathOptions);
    AddDocumentOption(app);
    app.allow_extras();
    // One command a line: a command's arguments that are named like commands ("vpath which ls",
    // "vpath help which") are its arguments.
    app.require_subcommand(0, 1);
    app.footer(Footer(""));
    app.add_subcommand(kHelpCommand, "Print the help of vpath, or of a command: what --help prints")
        ->add_option("command", "The command whose help to print, or a topic of the reference")
        ->type_name("COMMAND");
    for (const CLI::App* listed : Subcommands(app)) {
        CLI::App* sub = app.get_subcommand(listed->get_name());
        AddGlobalOptions(*sub, pathOptions);
        // And on their own subcommands: `vpath service start --pathdef FILE`.
        for (CLI::App* nested : sub->get_subcommands([](CLI::App*) { return true; }))
            AddGlobalOptions(*nested, pathOptions);
        sub->allow_extras();
        const std::string own = sub->get_footer();
        sub->footer(own.empty() ? Footer(sub->get_name()) : own + "\n\n" + Footer(sub->get_name()));
    }
}

int RunApp(CLI::App& app, const std::vector<Command>& commands, int argc, char** argv) {
    return RunApp(app, commands, argc, argv, {});
}

int RunApp(CLI::App& app, const std::vector<Command>& commands, int argc, char** argv,
           const BeforeCommand& beforeCommand) {
    return FinishOutput(Dispatch(app, commands, argc, argv, beforeCommand));
}

}  // namespace vpath_cli
