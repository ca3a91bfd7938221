// parlova-cli: headless commands over the same core the desktop app uses.
#include "cli/Command.h"
#include "devices/LegacyMigration.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

namespace parlova::cli {

std::vector<Command>& commands() {
    static std::vector<Command> list;
    return list;
}

bool wantsHelp(const std::vector<std::string>& args) {
    return std::any_of(args.begin(), args.end(), [](const std::string& a) { return a == "--help" || a == "-h"; });
}

}  // namespace parlova::cli

namespace {

void printOverview(FILE* to) {
    std::fprintf(to, "Usage: parlova-cli COMMAND [OPTIONS]\n\nParlova voice changer, without the window.\n\nCommands:\n");
    auto list = parlova::cli::commands();
    std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const auto& c : list) std::fprintf(to, "  %-10s %s\n", c.name.c_str(), c.summary.c_str());
    std::fprintf(to, "\nRun \"parlova-cli COMMAND --help\" for a command's options.\n");
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Parlova");
    QCoreApplication::setApplicationName("Parlova");
    // Settings and files of the former name are taken over once, before
    // anything reads them.
    parlova::LegacyMigration::run();

    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        printOverview(stdout);
        return args.empty() ? 2 : 0;
    }
    for (const auto& command : parlova::cli::commands()) {
        if (command.name != args[0]) continue;
        std::vector<std::string> rest(args.begin() + 1, args.end());
        if (parlova::cli::wantsHelp(rest)) {
            std::fputs(command.usage.c_str(), stdout);
            return 0;
        }
        return command.run(rest);
    }
    std::fprintf(stderr, "Unknown command \"%s\".\n\n", args[0].c_str());
    printOverview(stderr);
    return 2;
}
