// parlova-cli: headless commands over the same core the desktop app uses.
// Results go to standard output, progress and status to standard error.
// Exit status: 0 done, 1 failed, 2 a mistake in the arguments.
#include "cli/Command.h"
#include "cli/MicRepair.h"
#include "cli/Suggest.h"
#include "devices/LegacyMigration.h"
#include "engine/LiveOwner.h"
#include "media/AudioFileSupport.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

using namespace parlova::cli;

namespace {

std::string overview() {
    std::string text =
        "Usage: parlova-cli COMMAND [OPTIONS] [ARGUMENTS]\n\n"
        "Parlova voice changer without the window: render files in a voice, talk live,\n"
        "feed call apps through \"Parlova Mic\", and manage voices from scripts.\n\n"
        "Commands:\n";
    std::vector<const Command*> list;
    for (const auto& c : commands())
        if (c.name.find(' ') == std::string::npos) list.push_back(&c);
    std::sort(list.begin(), list.end(), [](const Command* a, const Command* b) { return a->name < b->name; });
    for (const Command* c : list)
        text += "  " + c->name + std::string(c->name.size() < 12 ? 12 - c->name.size() : 1, ' ') + c->summary + "\n";
    text +=
        "  help        Show the help of a command: parlova-cli help COMMAND\n"
        "\nOptions:\n"
        "  --help      show this help and exit\n"
        "  --version   show the version and exit\n\n"
        "Run 'parlova-cli COMMAND --help' for a command's options. Results go to standard\n"
        "output, progress and messages to standard error. Exit status: 0 done, 1 failed,\n"
        "2 a mistake in the command line.\n";
    return text;
}

int usageError(std::string message, const std::string& commandName) {
    while (!message.empty() && message.back() == '\n') message.pop_back();
    std::fprintf(stderr, "%s\n", message.c_str());
    if (commandName.empty()) std::fprintf(stderr, "Try 'parlova-cli --help'.\n");
    else std::fprintf(stderr, "Try 'parlova-cli %s --help'.\n", commandName.c_str());
    return kExitUsage;
}

std::vector<std::string> topNames() {
    std::vector<std::string> names;
    for (const auto& c : commands())
        if (c.name.find(' ') == std::string::npos) names.push_back(c.name);
    return names;
}

// The command named by the first one or two words, and how many words it took.
const Command* resolve(const std::vector<std::string>& words, size_t* used) {
    if (words.size() >= 2)
        if (const Command* action = findCommand(words[0] + " " + words[1])) {
            *used = 2;
            return action;
        }
    *used = 1;
    return words.empty() ? nullptr : findCommand(words[0]);
}

bool asksForHelp(const std::vector<std::string>& args) {
    for (const auto& a : args) {
        if (a == "--") return false;
        if (a == "--help" || a == "-h") return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Parlova");
    QCoreApplication::setApplicationName("Parlova");
    QCoreApplication::setApplicationVersion(PARLOVA_VERSION);
    // File messages name the paths as typed, not just the last component.
    parlova::audiofile::wholePathsInMessages = true;

    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::fputs(overview().c_str(), stderr);
        return kExitUsage;
    }
    if (args[0] == "--help" || args[0] == "-h") {
        std::fputs(overview().c_str(), stdout);
        return kExitOk;
    }
    if (args[0] == "--version") {
        std::printf("parlova-cli %s\n", PARLOVA_VERSION);
        return kExitOk;
    }
    if (args[0] == "help") {
        if (args.size() == 1) {
            std::fputs(overview().c_str(), stdout);
            return kExitOk;
        }
        size_t used = 0;
        const std::vector<std::string> words(args.begin() + 1, args.end());
        const Command* command = resolve(words, &used);
        if (!command || used != words.size())
            return usageError("There's no command \"" + words.back() + "\"." + didYouMean(words[0], topNames()), "");
        std::fputs(helpText(*command).c_str(), stdout);
        return kExitOk;
    }

    size_t used = 0;
    const Command* command = resolve(args, &used);
    if (!command)
        return usageError("Unknown command \"" + args[0] + "\"." + didYouMean(args[0], topNames()), "");
    const std::vector<std::string> rest(args.begin() + static_cast<long>(used), args.end());
    if (asksForHelp(rest)) {
        std::fputs(helpText(*command).c_str(), stdout);
        return kExitOk;
    }
    // A word after a command that has actions, and is none of them.
    const auto actions = actionsOf(command->name);
    if (!actions.empty() && !rest.empty() && rest[0][0] != '-' && command->operands.empty()) {
        std::vector<std::string> names;
        for (const Command* a : actions) names.push_back(a->name.substr(command->name.size() + 1));
        return usageError("\"" + rest[0] + "\" isn't an action of " + command->name + "." +
                              didYouMean(rest[0], names),
                          command->name);
    }

    try {
        const Arguments parsed = parseArguments(*command, rest);
        // Settings and files of the former name are taken over once, before
        // anything reads them; a microphone an earlier run left on the
        // virtual mic is given back before any command starts.
        parlova::LegacyMigration::run();
        parlova::LiveOwner::setIdentity(QString("\u201cparlova-cli %1\u201d (process %2)")
                                            .arg(QString::fromStdString(command->name))
                                            .arg(QCoreApplication::applicationPid()));
        // "mic status" reports the state as found, "mic restore" repairs it
        // itself, and control commands act on the running Parlova only. The
        // repair itself leaves a microphone alone while any Parlova is live.
        const bool repairs = command->name != "mic status" && command->name != "mic restore" &&
                             command->name != "mic remove" && command->name != "completion" &&
                             command->name.rfind("control", 0) != 0;
        if (repairs) repairSystemMicOnStart(parsed.quiet());
        return command->run(parsed);
    } catch (const UsageError& error) {
        return usageError(error.what(), command->name);
    } catch (const Failure& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return kExitFailure;
    }
}
