#include "docgen.hpp"

#include <fmt/format.h>

#include "build_info.hpp"
#include "cli_app.hpp"
#include "context/exit_status.hpp"
#include "definitions.hpp"
#include "reference.hpp"

namespace vpath_cli {
namespace {

constexpr const char* kDocumentOption = "--generate-doc";

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
        ".SH SYNOPSIS\n\\fBvpath\\fR [\\fIOPTIONS\\fR] \\fICOMMAND\\fR [\\fIOPTIONS\\fR] "
        "[\\fB\\-\\-\\fR] [\\fIARGUMENTS\\fR]\n.br\n\\fBvpath help\\fR [\\fICOMMAND\\fR|"
        "\\fITOPIC\\fR]\n.br\n\\fBvpath \\-\\-version\\fR\n"
        ".SH DESCRIPTION\n{}"
        ".SH COMMANDS\n",
        kVersion, ManText(Description()));
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
    page += ".SH OPTIONS\nAccepted before the command or after it.\n";
    for (const CLI::Option* option : Options(app, true))
        page += ManOption(*option);
    page += ".TP\n\\fB\\-\\-version\\fR\nPrint the version and exit.\n";
    for (const ReferenceSection& section : ReferenceSections())
        page += fmt::format(".SH {}\n{}", section.title, ManText(section));
    page += ".SH EXIT STATUS\n";
    for (const auto& [status, meaning] : kExitStatuses)
        page += fmt::format(".TP\n\\fB{}\\fR\n{}\n", status, Roff(meaning));
    page += ".SH EXAMPLES\n";
    for (const Example& example : Examples())
        page += fmt::format(".TP\n\\fBvpath {}\\fR\n{}\n", Roff(example.line), Roff(example.what));
    page +=
        ".SH SEE ALSO\n"
        "\\fBwhich\\fR(1), \\fBxargs\\fR(1), \\fBjq\\fR(1), \\fBinotify\\fR(7); "
        "\\fIdocs/embedding.md\\fR in vpath's sources, for the library behind the command.\n";
    return page;
}

}  // namespace vpath_cli
