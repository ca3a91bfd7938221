#pragma once
// Subcommands of parlova-cli register themselves here, one file per command
// and one registration each, so the dispatcher in main.cpp never needs to know
// them. A command declares its options and operands; the one parser in
// Options.cpp reads every command's arguments by those declarations, and the
// help, the man page and the shell completions are made from them too.
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace parlova::cli {

struct Option {
    std::string name;   // "--voice"
    std::string value;  // "NAME" for an option that takes a value; empty for a flag
    std::string help;   // one or two lines for the help text
    bool repeatable = false;
    bool required = false;
};

// Options many commands share, declared once.
Option quietOption();
Option jsonOption(const std::string& what);

// What the parser found, by the command's declarations.
class Arguments {
public:
    bool has(const std::string& option) const { return values_.count(option) != 0; }
    // The option's last value, or `fallback` when it was not given.
    std::string value(const std::string& option, const std::string& fallback = {}) const;
    // Every value of a repeatable option, in order.
    std::vector<std::string> values(const std::string& option) const;
    const std::vector<std::string>& operands() const { return operands_; }
    const std::string& operand(size_t i) const { return operands_.at(i); }
    bool quiet() const { return has("--quiet"); }
    // A positive number of seconds, or a usage error naming the option.
    double seconds(const std::string& option) const;

private:
    friend Arguments parseArguments(const struct Command&, const std::vector<std::string>&);
    std::map<std::string, std::vector<std::string>> values_;
    std::vector<std::string> operands_;
};

using CommandFunction = std::function<int(const Arguments& args)>;

struct Command {
    std::string name;         // "render", or "voices copy" for an action of a command
    std::string summary;      // one line for the overview
    // Operands as the synopsis shows them: "INPUT", "[NAME]", "FIELD=VALUE..."
    // (a trailing "..." takes one or more, "[...]" optional).
    std::vector<std::string> operands;
    std::string description;  // what the command does, a paragraph or two
    std::vector<Option> options;
    std::string notes;        // after the options: examples, field lists
    CommandFunction run;
};

std::vector<Command>& commands();

struct CommandRegistration {
    explicit CommandRegistration(Command command) { commands().push_back(std::move(command)); }
};

// A mistake in the arguments: one line, exit status 2, followed by the hint
// to the command's help.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A command that could not do its work: the sentence, exit status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The command registered under `name`, or null.
const Command* findCommand(const std::string& name);
// Reads `args` (those after the command's name) by the command's declarations.
// Throws UsageError.
Arguments parseArguments(const Command& command, const std::vector<std::string>& args);
// The full help text of a command, as "--help" prints it.
std::string helpText(const Command& command);
// The actions registered under a command ("copy", "set", ... for "voices").
std::vector<const Command*> actionsOf(const std::string& name);

// Exit statuses shared by every command.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

}  // namespace parlova::cli
