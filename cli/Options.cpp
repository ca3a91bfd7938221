// The one argument parser of parlova-cli, and the help text made from the
// same declarations, so what a command shows is exactly what it accepts.
#include "cli/Command.h"
#include "cli/Suggest.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace parlova::cli {

std::vector<Command>& commands() {
    static std::vector<Command> list;
    return list;
}

Option quietOption() { return {"--quiet", "", "print no progress or status, only errors"}; }

Option jsonOption(const std::string& what) { return {"--json", "", "print " + what + " as one compact JSON object"}; }

const Command* findCommand(const std::string& name) {
    for (const auto& c : commands())
        if (c.name == name) return &c;
    return nullptr;
}

std::vector<const Command*> actionsOf(const std::string& name) {
    std::vector<const Command*> actions;
    for (const auto& c : commands())
        if (c.name.rfind(name + " ", 0) == 0) actions.push_back(&c);
    std::sort(actions.begin(), actions.end(), [](const Command* a, const Command* b) { return a->name < b->name; });
    return actions;
}

std::string Arguments::value(const std::string& option, const std::string& fallback) const {
    const auto it = values_.find(option);
    return it == values_.end() || it->second.empty() ? fallback : it->second.back();
}

std::vector<std::string> Arguments::values(const std::string& option) const {
    const auto it = values_.find(option);
    return it == values_.end() ? std::vector<std::string>{} : it->second;
}

double Arguments::seconds(const std::string& option) const {
    const std::string text = value(option);
    char* end = nullptr;
    const double s = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(s > 0) || s > 86400.0 * 365)
        throw UsageError(option + " needs a positive number of seconds (got \"" + text + "\").");
    return s;
}

namespace {

struct OperandShape {
    size_t required = 0;
    size_t optional = 0;
    bool unlimited = false;
};

OperandShape shapeOf(const std::vector<std::string>& operands) {
    OperandShape shape;
    for (const auto& o : operands) {
        const bool optional = o.front() == '[';
        const bool many = o.find("...") != std::string::npos;
        if (optional) ++shape.optional;
        else ++shape.required;
        if (many) shape.unlimited = true;
    }
    return shape;
}

std::string bare(std::string operand) {
    operand.erase(std::remove_if(operand.begin(), operand.end(), [](char c) { return c == '[' || c == ']'; }),
                  operand.end());
    if (auto dots = operand.find("..."); dots != std::string::npos) operand.erase(dots);
    return operand;
}

}  // namespace

Arguments parseArguments(const Command& command, const std::vector<std::string>& args) {
    Arguments parsed;
    auto find = [&](const std::string& name) -> const Option* {
        for (const auto& o : command.options)
            if (o.name == name) return &o;
        return nullptr;
    };
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
            parsed.operands_.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const auto equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        const Option* option = find(name);
        if (!option) {
            std::vector<std::string> names;
            for (const auto& o : command.options) names.push_back(o.name);
            throw UsageError("Unknown option \"" + name + "\"." + didYouMean(name, names));
        }
        std::string value;
        if (option->value.empty()) {
            if (equals != std::string::npos) throw UsageError("The option " + name + " takes no value.");
        } else if (equals != std::string::npos) {
            value = arg.substr(equals + 1);
        } else if (i + 1 < args.size() && args[i + 1].rfind("--", 0) != 0) {
            value = args[++i];
        } else {
            throw UsageError("The option " + name + " needs a value (" + option->value + ").");
        }
        auto& slot = parsed.values_[name];
        if (!slot.empty() && !option->repeatable) throw UsageError("The option " + name + " is given more than once.");
        slot.push_back(value);
    }
    for (const auto& o : command.options)
        if (o.required && !parsed.has(o.name))
            throw UsageError("The option " + o.name + " " + o.value + " is missing.");
    const OperandShape shape = shapeOf(command.operands);
    const size_t count = parsed.operands_.size();
    if (count < shape.required) {
        size_t seen = 0;
        for (const auto& o : command.operands)
            if (o.front() != '[' && seen++ == count) throw UsageError(bare(o) + " is missing.");
    }
    if (!shape.unlimited && count > shape.required + shape.optional)
        throw UsageError("Unexpected argument \"" + parsed.operands_[shape.required + shape.optional] + "\".");
    return parsed;
}

std::string helpText(const Command& command) {
    std::ostringstream out;
    out << "Usage: parlova-cli " << command.name;
    for (const auto& o : command.options)
        if (o.required) out << ' ' << o.name << ' ' << o.value;
    if (std::any_of(command.options.begin(), command.options.end(), [](const Option& o) { return !o.required; }))
        out << " [OPTIONS]";
    for (const auto& o : command.operands) out << ' ' << o;
    out << "\n";
    const auto actions = actionsOf(command.name);
    for (const Command* a : actions) {
        out << "       parlova-cli " << a->name;
        if (!a->options.empty()) out << " [OPTIONS]";
        for (const auto& o : a->operands) out << ' ' << o;
        out << "\n";
    }
    out << "\n" << command.description;
    if (!actions.empty()) {
        out << "\nActions (each has its own --help):\n";
        for (const Command* a : actions)
            out << "  " << a->name.substr(command.name.size() + 1)
                << std::string(size_t(std::max<long>(2, 16 - long(a->name.size() - command.name.size()))), ' ')
                << a->summary << "\n";
    }
    out << "\nOptions:\n";
    std::vector<Option> options = command.options;
    options.push_back({"--help", "", "show this help and exit"});
    for (const auto& o : options) {
        std::string left = o.name + (o.value.empty() ? "" : " " + o.value);
        if (o.repeatable) left += " ...";
        out << "  " << left;
        std::istringstream lines(o.help);
        std::string line;
        bool first = true;
        while (std::getline(lines, line)) {
            const size_t pad = first ? (left.size() < 22 ? 22 - left.size() : 0) : 0;
            if (first && pad == 0) out << "\n" << std::string(24, ' ');
            else if (!first) out << std::string(24, ' ');
            out << std::string(pad, ' ') << line << "\n";
            first = false;
        }
    }
    if (!command.notes.empty()) out << "\n" << command.notes;
    return out.str();
}

}  // namespace parlova::cli
