#include "lab/program/command_line_pages.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "lab/names/text.h"
#include "lab/server/inputs.h"

namespace lab {
namespace {

// What may stand where a value does.
struct Values {
    std::vector<std::string> names;  // that ship with the lab
    bool isFile = false;
};

struct CommandOption {
    std::vector<std::string> names;  // "-v", "--verbose"
    std::string value;               // "NAME|FILE"; empty for a flag
    std::string description;
};

struct CommandPage {
    std::string name;
    std::string description;
    std::string footer;
    std::vector<std::string> operands;  // "SCENARIO..."
    std::vector<CommandOption> options;
    Values values;  // of the operands
};

std::string Words(const std::vector<std::string>& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

Values ValuesOf(const std::string& type) {
    if (type == "NAME|FILE") return {DeviceProfileNames(), true};
    if (type == "SCENARIO") return {ShippedNames("scenarios", ".yaml"), true};
    if (type == "SCENES") return {ShippedNames("scenes", ".xml"), true};
    if (type == "CAPTURE") return {ShippedNames("captures", ".txt"), true};
    if (type == "SHELL") return {{"bash", "zsh", "fish"}, false};
    return {{}, type.starts_with("FILE") || type == "FOLDER"};
}

std::vector<CommandPage> PagesOf(const CLI::App& app) {
    std::vector<CommandPage> pages;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        CommandPage& page = pages.emplace_back();
        page.name = command->get_name();
        page.description = command->get_description();
        page.footer = command->get_footer();
        for (const CLI::Option* option : command->get_options()) {
            const bool isFlag = option->get_items_expected_max() == 0;
            // What else the library says of it, such as its range, is for --help.
            const std::string type = option->get_type_name();
            const std::string value = isFlag ? "" : type.substr(0, type.find(':'));
            if (option->get_positional()) {
                const std::string several = option->get_items_expected_max() > 1 ? "..." : "";
                const std::string operand = value + several;
                page.operands.push_back(option->get_required() ? operand : "[" + operand + "]");
                if (page.operands.size() == 1) page.values = ValuesOf(value);
                continue;
            }
            CommandOption& row = page.options.emplace_back();
            for (const std::string& name : option->get_snames()) row.names.push_back("-" + name);
            for (const std::string& name : option->get_lnames()) row.names.push_back("--" + name);
            row.value = value;
            row.description = option->get_description();
        }
    }
    return pages;
}

// A line of a manual page: what roff would take for its own is taken from it.
std::string Roff(const std::string& text) {
    std::string line = ReplacedAll(ReplacedAll(text, "\\", "\\e"), "-", "\\-");
    if (line.starts_with(".") || line.starts_with("'")) line.insert(0, "\\&");
    return line;
}

std::string NamesText(const CommandOption& option) {
    std::string text = Join(option.names);
    return option.value.empty() ? text : text + " " + option.value;
}

// A word for a shell between single quotes.
std::string ShellQuoted(const std::string& text) {
    return "'" + ReplacedAll(text, "'", "'\\''") + "'";
}

std::string OptionWords(const CommandPage& page) {
    std::vector<std::string> words;
    for (const CommandOption& option : page.options) {
        words.insert(words.end(), option.names.begin(), option.names.end());
    }
    return Words(words);
}

std::string BashCompletion(const std::vector<CommandPage>& pages) {
    std::vector<std::string> commands;
    std::string values;
    std::string operands;
    for (const CommandPage& page : pages) {
        commands.push_back(page.name);
        for (const CommandOption& option : page.options) {
            if (option.value.empty()) continue;
            std::vector<std::string> patterns;
            for (const std::string& name : option.names) {
                patterns.push_back(fmt::format("'{} {}'", page.name, name));
            }
            const Values some = ValuesOf(option.value);
            values += fmt::format("        {}) _tarquel_lab_values '{}' {}; return ;;\n",
                                  fmt::format("{}", fmt::join(patterns, " | ")), Words(some.names),
                                  some.isFile);
        }
        operands += fmt::format("        {}) _tarquel_lab_values '{} {}' {} ;;\n", page.name,
                                Words(page.values.names), OptionWords(page), page.values.isFile);
    }
    return fmt::format(R"(# Completion of tarquel-lab for bash.
_tarquel_lab_values() {{
    COMPREPLY=($(compgen -W "$1" -- "$word"))
    if $2; then
        compopt -o filenames 2>/dev/null
        COMPREPLY+=($(compgen -f -- "$word"))
    fi
}}

_tarquel_lab() {{
    local IFS=$' \t\n' word=${{COMP_WORDS[COMP_CWORD]}}
    if [ "$COMP_CWORD" -eq 1 ]; then
        _tarquel_lab_values '{} --help --version' false
        return
    fi
    case "${{COMP_WORDS[1]}} ${{COMP_WORDS[COMP_CWORD - 1]}}" in
{}    esac
    case "${{COMP_WORDS[1]}}" in
{}    esac
}}
complete -F _tarquel_lab tarquel-lab
)",
                       Words(commands), values, operands);
}

// The action of _arguments that offers the values.
std::string ZshAction(const std::string& what, const Values& values) {
    std::string action;
    if (!values.names.empty()) action = "compadd -- " + Words(values.names);
    if (values.isFile) action += action.empty() ? "_files" : "; _files";
    return ":" + what + (action.empty() ? ": " : ":{" + action + "}");
}

std::string ZshCompletion(const std::vector<CommandPage>& pages) {
    std::string commands;
    std::string cases;
    for (const CommandPage& page : pages) {
        commands += "            " + ShellQuoted(page.name + ":" + page.description) + "\n";
        cases += "        " + page.name + ")\n            _arguments \\\n";
        for (const CommandOption& option : page.options) {
            std::string text = ReplacedAll(option.description, ":", "\\:");
            text = ReplacedAll(ReplacedAll(text, "[", "("), "]", ")");
            for (const std::string& name : option.names) {
                std::string row = name + "[" + text + "]";
                if (!option.value.empty()) row += ZshAction(option.value, ValuesOf(option.value));
                cases += "                " + ShellQuoted(row) + " \\\n";
            }
        }
        cases += "                " + ShellQuoted("*" + ZshAction("operand", page.values)) +
                 "\n            ;;\n";
    }
    return "#compdef tarquel-lab\n# Completion of tarquel-lab for zsh.\n"
           "_tarquel_lab() {\n"
           "    if ((CURRENT == 2)); then\n"
           "        local -a commands=(\n" +
           commands +
           "        )\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    local command=$words[2]\n"
           "    words=($words[2,-1])\n"
           "    ((CURRENT--))\n"
           "    case $command in\n" +
           cases +
           "    esac\n"
           "}\n"
           "_tarquel_lab \"$@\"\n";
}

std::string FishCompletion(const std::vector<CommandPage>& pages) {
    std::string text = "# Completion of tarquel-lab for fish.\ncomplete -c tarquel-lab -f\n";
    for (const CommandPage& page : pages) {
        text += fmt::format("complete -c tarquel-lab -n __fish_use_subcommand -a {} -d {}\n",
                            page.name, ShellQuoted(page.description));
        const std::string condition =
            fmt::format("complete -c tarquel-lab -n '__fish_seen_subcommand_from {}'", page.name);
        const auto valuesText = [](const Values& values) {
            std::string row = values.isFile ? " -F" : "";
            if (!values.names.empty()) row += " -a " + ShellQuoted(Words(values.names));
            return row;
        };
        text += condition + valuesText(page.values) + "\n";
        for (const CommandOption& option : page.options) {
            std::string row = condition;
            for (const std::string& name : option.names) {
                row += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            }
            if (!option.value.empty()) row += " -r" + valuesText(ValuesOf(option.value));
            text += row + " -d " + ShellQuoted(option.description) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string ManualPage(const CLI::App& app) {
    const std::vector<CommandPage> pages = PagesOf(app);
    std::string text = fmt::format(
        ".TH TARQUEL\\-LAB 1 \"\" \"tarquel\\-lab {}\" \"User Commands\"\n"
        ".SH NAME\ntarquel\\-lab \\- a phone on the desk for the plug\\-in of performance scenes\n"
        ".SH SYNOPSIS\n",
        TARQUEL_LAB_VERSION);
    for (const CommandPage& page : pages) {
        text += fmt::format(".B tarquel\\-lab {}\n[\\fIOPTION\\fR]... {}\n.br\n", page.name,
                            Roff(Words(page.operands)));
    }
    text += ".SH DESCRIPTION\n" + Roff(app.get_description()) + "\n";
    for (const CommandPage& page : pages) {
        text += ".SH \"tarquel\\-lab " + page.name + "\"\n" + Roff(page.description) + "\n";
        for (const CommandOption& option : page.options) {
            text += ".TP\n.B " + Roff(NamesText(option)) + "\n" + Roff(option.description) + "\n";
        }
        text += ".PP\n.nf\n";
        std::istringstream footer(page.footer);
        for (std::string line; std::getline(footer, line);) text += Roff(line) + "\n";
        text += ".fi\n";
    }
    text +=
        ".SH \"EXIT STATUS\"\n"
        ".TP\n.B 0\nAll is well.\n"
        ".TP\n.B 1\nFindings: it ran, and something is wrong.\n"
        ".TP\n.B 2\nA file or the usage is at fault; nothing was found out.\n"
        ".SH FILES\n"
        "Below the folder that the program is installed in:\n"
        ".TP\n.B share/tarquel\\-lab\nThe devices, scene files, scenarios and captures that ship\n"
        ".TP\n.B share/doc/tarquel\\-lab\nMore to read, scenarios.md first\n"
        ".TP\n.B lib/libtarquel_qcom.so\nThe plug\\-in\n";
    return text;
}

std::string ShellCompletion(const CLI::App& app, const std::string& shell) {
    const std::vector<CommandPage> pages = PagesOf(app);
    if (shell == "bash") return BashCompletion(pages);
    return shell == "zsh" ? ZshCompletion(pages) : FishCompletion(pages);
}

}  // namespace lab
