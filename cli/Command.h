#pragma once
// Subcommands of parlova-cli register themselves here, one file per command, so
// the dispatcher in main.cpp never needs to know them.
#include <functional>
#include <string>
#include <vector>

namespace parlova::cli {

using CommandFunction = std::function<int(const std::vector<std::string>& args)>;

struct Command {
    std::string name;
    std::string summary;  // one line for the overview
    std::string usage;    // full help text printed by "--help"
    CommandFunction run;  // gets the arguments after the command name
};

std::vector<Command>& commands();

struct CommandRegistration {
    explicit CommandRegistration(Command command) { commands().push_back(std::move(command)); }
};

// True when args contain --help or -h.
bool wantsHelp(const std::vector<std::string>& args);

}  // namespace parlova::cli
