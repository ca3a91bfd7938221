// parlova-cli control: drives the running Parlova (the app or "parlova-cli
// live") over its local control channel, so any desktop can bind keys to it.
#include "cli/Command.h"
#include "control/ControlServer.h"

#include <QJsonDocument>

#include <cstdio>

namespace parlova::cli {
namespace {

const char* kUsage =
    "Usage: parlova-cli control COMMAND\n\n"
    "Sends COMMAND to the running Parlova (the app, or \"parlova-cli live\"):\n"
    "  ptt press|release|toggle   hold or let go of the push-to-talk key\n"
    "  bypass on|off|toggle       the natural voice\n"
    "  voice next|prev|NAME       switch the voice\n"
    "  live start|stop            Talk Live / Stop Live\n"
    "  status [--json]            what runs now\n\n"
    "Bind these to keys in your desktop's keyboard settings, for example\n"
    "\"parlova-cli control ptt press\" on key press and \"... ptt release\" on release.\n";

int control(const std::vector<std::string>& args) {
    if (args.empty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    QStringList words;
    for (const auto& arg : args) words << QString::fromStdString(arg);
    const ControlReply reply = sendControlRequest(words.join(QLatin1Char(' ')));
    if (reply.ok && words.size() == 2 && words[0] == QLatin1String("status") && words[1] == QLatin1String("--json"))
        std::printf("%s\n", QJsonDocument(reply.status).toJson(QJsonDocument::Compact).constData());
    else
        std::fprintf(reply.ok ? stdout : stderr, "%s\n", reply.message.toUtf8().constData());
    return reply.ok ? 0 : 1;
}

CommandRegistration registration({"control", "Control the running Parlova (push to talk, voices, live).", kUsage,
                                   control});

}  // namespace
}  // namespace parlova::cli
