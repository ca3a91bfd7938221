// parlova-cli completion bash|zsh|fish: shell completion scripts made from
// the command table, so every command and option registered is completed.
// Voice names come from the user's own list when the shell asks, and the
// names of the board's sounds from the board.
#include "cli/Command.h"
#include "cli/VoiceLookup.h"

#include <cstdio>
#include <set>
#include <sstream>

namespace parlova::cli {
namespace {

std::vector<const Command*> topCommands() {
    std::vector<const Command*> list;
    for (const auto& c : commands())
        if (c.name.find(' ') == std::string::npos) list.push_back(&c);
    return list;
}

std::string actionWords(const Command& c) {
    std::string words;
    for (const Command* a : actionsOf(c.name)) words += (words.empty() ? "" : " ") + a->name.substr(c.name.size() + 1);
    return words;
}

std::string optionWords(const Command& c) {
    std::string words = "--help";
    for (const auto& o : c.options) words += " " + o.name;
    return words;
}

// Options whose value is a voice, a field setting, a type or free text.
std::set<std::string> valueOptions() {
    std::set<std::string> names;
    for (const auto& c : commands())
        for (const auto& o : c.options)
            if (!o.value.empty()) names.insert(o.name);
    return names;
}

bool namesVoice(const Command& c) { return !c.operands.empty() && (c.operands[0] == "NAME" || c.operands[0] == "[NAME]"); }
bool namesSound(const Command& c) { return !c.operands.empty() && c.operands[0] == "ENTRY"; }

std::string fieldWords() {
    std::string words;
    for (const auto& f : settingNames()) words += (words.empty() ? "" : " ") + f + "=";
    return words;
}

std::string bash() {
    std::ostringstream s;
    std::string tops;
    for (const Command* c : topCommands()) tops += c->name + " ";
    s << "# bash completion for parlova-cli (made by 'parlova-cli completion bash')\n"
         "_parlova_cli_voices() {\n"
         "    local IFS=$'\\n'\n"
         "    COMPREPLY=($(compgen -W \"$(parlova-cli voices --names 2>/dev/null)\" -- \"$1\"))\n"
         "    COMPREPLY=(\"${COMPREPLY[@]// /\\\\ }\")\n"
         "}\n"
         "_parlova_cli_sounds() {\n"
         "    local IFS=$'\\n'\n"
         "    COMPREPLY=($(compgen -W \"$(parlova-cli board list --names 2>/dev/null)\" -- \"$1\"))\n"
         "    COMPREPLY=(\"${COMPREPLY[@]// /\\\\ }\")\n"
         "}\n"
         "_parlova_cli() {\n"
         "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
         "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
         "        COMPREPLY=($(compgen -W \""
      << tops << "help --help --version\" -- \"$cur\"))\n"
         "        return\n"
         "    fi\n"
         "    local key=${COMP_WORDS[1]} first=2\n"
         "    case \"$key\" in\n";
    for (const Command* c : topCommands()) {
        const std::string actions = actionWords(*c);
        if (actions.empty()) continue;
        s << "    " << c->name << ")\n"
          << "        if [ \"$COMP_CWORD\" -eq 2 ] && [[ $cur != -* ]]; then\n"
          << "            COMPREPLY=($(compgen -W \"" << actions << "\" -- \"$cur\")); return\n"
          << "        fi\n"
          << "        case \" " << actions << " \" in *\" ${COMP_WORDS[2]} \"*) key=\"$key ${COMP_WORDS[2]}\"; first=3;; esac;;\n";
    }
    s << "    help) COMPREPLY=($(compgen -W \"" << tops << "\" -- \"$cur\")); return;;\n"
      << "    esac\n"
      << "    case \"$prev\" in\n"
      << "    --voice) _parlova_cli_voices \"$cur\"; return;;\n"
      << "    --set) compopt -o nospace; COMPREPLY=($(compgen -W \"" << fieldWords() << "\" -- \"$cur\")); return;;\n"
      << "    --type) COMPREPLY=($(compgen -W \"wav flac\" -- \"$cur\")); return;;\n";
    std::string free;
    for (const auto& name : valueOptions())
        if (name != "--voice" && name != "--set" && name != "--type") free += (free.empty() ? "" : "|") + name;
    if (!free.empty()) s << "    " << free << ") return;;\n";
    s << "    esac\n"
      << "    local options=\"\" voice=\"\" sound=\"\" fields=\"\"\n"
      << "    case \"$key\" in\n";
    for (const auto& c : commands()) {
        s << "    \"" << c.name << "\") options=\"" << optionWords(c) << "\"";
        if (namesVoice(c)) s << "; voice=1";
        if (namesSound(c)) s << "; sound=1";
        if (c.name == "voices set") s << "; fields=1";
        s << ";;\n";
    }
    s << "    esac\n"
      << "    if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W \"$options\" -- \"$cur\")); return; fi\n"
      << "    if [ -n \"$voice\" ] && [ \"$COMP_CWORD\" -eq \"$first\" ]; then _parlova_cli_voices \"$cur\"; return; fi\n"
      << "    if [ -n \"$sound\" ] && [ \"$COMP_CWORD\" -eq \"$first\" ]; then _parlova_cli_sounds \"$cur\"; return; fi\n"
      << "    if [ -n \"$fields\" ]; then compopt -o nospace; COMPREPLY=($(compgen -W \"" << fieldWords()
      << " name= emoji=\" -- \"$cur\")); return; fi\n"
      << "}\n"
      << "complete -o default -F _parlova_cli parlova-cli\n";
    return s.str();
}

std::string zshQuote(std::string text) {
    std::string out;
    for (char c : text) {
        if (c == '\n') c = ' ';
        if (c == '\'') out += "'\\''";
        else if (c == '[' || c == ']' || c == ':') out += std::string("\\") + c;
        else out += c;
    }
    return out;
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string zshArguments(const Command& c) {
    std::string line = "'(- *)--help[show the help]'";
    for (const auto& o : c.options) {
        line += " '" + std::string(o.repeatable ? "*" : "") + o.name + "[" + zshQuote(firstLine(o.help)) + "]";
        if (o.name == "--voice") line += ":voice:_parlova_cli_voices";
        else if (o.name == "--set") line += ":setting:(" + fieldWords() + ")";
        else if (o.name == "--type") line += ":type:(wav flac)";
        else if (!o.value.empty()) line += ":" + o.value + ":";
        line += "'";
    }
    if (namesVoice(c)) line += " '1:voice:_parlova_cli_voices'";
    else if (namesSound(c)) line += " '1:sound:_parlova_cli_sounds'";
    else if (c.name == "voices import" || c.name == "render" || c.name == "play" || c.name == "record" ||
             c.name == "board add")
        line += " '*:file:_files'";
    if (c.name == "voices set") line += " '*:setting:(" + fieldWords() + " name= emoji=)'";
    return line;
}

std::string zsh() {
    std::ostringstream s;
    s << "#compdef parlova-cli\n# zsh completion for parlova-cli (made by 'parlova-cli completion zsh')\n"
      << "_parlova_cli_voices() {\n"
      << "    local -a names\n"
      << "    names=(${(f)\"$(parlova-cli voices --names 2>/dev/null)\"})\n"
      << "    compadd -a names\n"
      << "}\n"
      << "_parlova_cli_sounds() {\n"
      << "    local -a names\n"
      << "    names=(${(f)\"$(parlova-cli board list --names 2>/dev/null)\"})\n"
      << "    compadd -a names\n"
      << "}\n"
      << "_parlova-cli() {\n"
      << "    local -a cmds\n"
      << "    cmds=(\n";
    for (const Command* c : topCommands()) s << "        '" << c->name << ":" << zshQuote(c->summary) << "'\n";
    s << "        'help:show the help of a command'\n    )\n"
      << "    if (( CURRENT == 2 )); then _describe command cmds; return; fi\n"
      << "    local key=${words[2]}\n"
      << "    case $key in\n";
    for (const Command* c : topCommands()) {
        const std::string actions = actionWords(*c);
        if (actions.empty()) continue;
        s << "    " << c->name << ")\n"
          << "        if (( CURRENT == 3 )); then compadd " << actions << "; return; fi\n"
          << "        key=\"$key ${words[3]}\"; shift words; (( CURRENT-- ));;\n";
    }
    s << "    help) compadd ${cmds%%:*}; return;;\n"
      << "    esac\n"
      << "    shift words; (( CURRENT-- ))\n"
      << "    case $key in\n";
    for (const auto& c : commands()) s << "    '" << c.name << "') _arguments " << zshArguments(c) << ";;\n";
    s << "    esac\n}\n_parlova-cli \"$@\"\n";
    return s.str();
}

std::string fishQuote(const std::string& text) {
    std::string out = "'";
    for (char c : firstLine(text)) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

std::string fish() {
    std::ostringstream s;
    s << "# fish completion for parlova-cli (made by 'parlova-cli completion fish')\n"
      << "complete -c parlova-cli -f\n"
      << "function __parlova_cli_is --description 'the command line so far names this command'\n"
      << "    set -l words (commandline -opc)\n"
      << "    set -e words[1]\n"
      << "    test (count $words) -ge (count $argv); or return 1\n"
      << "    for i in (seq (count $argv))\n"
      << "        test \"$words[$i]\" = \"$argv[$i]\"; or return 1\n"
      << "    end\n"
      << "end\n";
    for (const Command* c : topCommands())
        s << "complete -c parlova-cli -n __fish_use_subcommand -a " << c->name << " -d " << fishQuote(c->summary) << "\n";
    s << "complete -c parlova-cli -n __fish_use_subcommand -l version -d 'show the version'\n";
    for (const auto& c : commands()) {
        const auto actions = actionsOf(c.name);
        // A command's own options and its actions only until an action is named.
        std::string condition = "'__parlova_cli_is " + c.name;
        if (!actions.empty()) condition += "; and not __fish_seen_subcommand_from " + actionWords(c);
        condition += "'";
        for (const Command* a : actions) {
            s << "complete -c parlova-cli -n " << condition << " -a " << a->name.substr(c.name.size() + 1) << " -d "
              << fishQuote(a->summary) << "\n";
        }
        for (const auto& o : c.options) {
            s << "complete -c parlova-cli -n " << condition << " -l " << o.name.substr(2);
            if (!o.value.empty()) s << " -r";
            if (o.name == "--voice") s << " -a '(parlova-cli voices --names 2>/dev/null)'";
            else if (o.name == "--set") s << " -a '" << fieldWords() << "'";
            else if (o.name == "--type") s << " -a 'wav flac'";
            s << " -d " << fishQuote(o.help) << "\n";
        }
        if (namesVoice(c)) s << "complete -c parlova-cli -n " << condition << " -a '(parlova-cli voices --names 2>/dev/null)'\n";
        if (namesSound(c))
            s << "complete -c parlova-cli -n " << condition << " -a '(parlova-cli board list --names 2>/dev/null)'\n";
        if (c.name == "render" || c.name == "play" || c.name == "record" || c.name == "voices import" ||
            c.name == "board add")
            s << "complete -c parlova-cli -n " << condition << " -F\n";
        if (c.name == "voices set") s << "complete -c parlova-cli -n " << condition << " -a '" << fieldWords() << " name= emoji='\n";
    }
    return s.str();
}

int run(const Arguments& args) {
    const std::string shell = args.operand(0);
    if (shell == "bash") std::fputs(bash().c_str(), stdout);
    else if (shell == "zsh") std::fputs(zsh().c_str(), stdout);
    else if (shell == "fish") std::fputs(fish().c_str(), stdout);
    else throw UsageError("Completion is made for bash, zsh or fish (got \"" + shell + "\").");
    return kExitOk;
}

CommandRegistration registration({"completion", "Print a shell completion script (bash, zsh or fish)", {"SHELL"},
                                  "Prints the completion script for SHELL: bash, zsh or fish. 'cmake --install'\n"
                                  "installs all three.\n",
                                  {},
                                  "To try one in the running shell:\n"
                                  "  bash: source <(parlova-cli completion bash)\n"
                                  "  zsh:  source <(parlova-cli completion zsh)\n"
                                  "  fish: parlova-cli completion fish | source\n",
                                  run});

}  // namespace
}  // namespace parlova::cli
