// parlova-cli control: drives the running Parlova (the app or "parlova-cli
// live") over its local control channel, so any desktop can bind keys to it.
#include "cli/Command.h"
#include "control/ControlServer.h"

#include <QJsonDocument>

#include <cstdio>

namespace parlova::cli {
namespace {

// Sends "ACTION OPERAND..." and prints the answer: results on stdout, a
// refusal on stderr with exit status 1.
int send(const std::string& action, const Arguments& args) {
    QStringList words{QString::fromStdString(action)};
    for (const auto& operand : args.operands()) words << QString::fromStdString(operand);
    const bool json = args.has("--json");
    if (json) words << QStringLiteral("--json");
    const ControlReply reply = sendControlRequest(words.join(QLatin1Char(' ')));
    if (reply.ok && json)
        std::printf("%s\n", QJsonDocument(reply.status).toJson(QJsonDocument::Compact).constData());
    else
        std::fprintf(reply.ok ? stdout : stderr, "%s\n", reply.message.toUtf8().constData());
    return reply.ok ? kExitOk : kExitFailure;
}

// "say TEXT... [--voice NAME | --clone NAME]": the words of the text, then the
// option, whose name is the rest of the request line.
int sendSay(const Arguments& args) {
    if (args.has("--voice") && args.has("--clone"))
        throw UsageError("Choose one voice: --voice NAME or --clone NAME, not both.");
    QStringList text;
    for (const auto& operand : args.operands()) text << QString::fromStdString(operand).simplified();
    QString request = QStringLiteral("say ") + text.join(QLatin1Char(' '));
    if (request.trimmed() == QLatin1String("say")) throw UsageError("TEXT is empty: give the words to say.");
    for (const char* option : {"--voice", "--clone"})
        if (args.has(option))
            request += QLatin1Char(' ') + QLatin1String(option) + QLatin1Char(' ') +
                       QString::fromStdString(args.value(option)).simplified();
    const ControlReply reply = sendControlRequest(request);
    std::fprintf(reply.ok ? stdout : stderr, "%s\n", reply.message.toUtf8().constData());
    return reply.ok ? kExitOk : kExitFailure;
}

CommandRegistration action(const std::string& name, const std::string& summary, const std::string& operand,
                           std::vector<Option> options = {}) {
    std::vector<std::string> operands;
    if (!operand.empty()) operands.push_back(operand);
    return CommandRegistration({"control " + name, summary, operands, summary + ".\n", std::move(options), "",
                                [name](const Arguments& args) { return send(name, args); }});
}

int needsAction(const Arguments&) {
    throw UsageError("Name an action: ptt, bypass, voice, live, board, say or status.");
}

CommandRegistration control({"control", "Control the running Parlova (push to talk, voices, live)", {},
                             "Sends an action to the running Parlova (the app, or 'parlova-cli live') over its\n"
                             "private local socket. Bind these to keys in your desktop's keyboard settings, for\n"
                             "example 'parlova-cli control ptt press' on key press and '... ptt release' on release.\n",
                             {}, "", needsAction});
CommandRegistration ptt = action("ptt", "Hold or let go of the push-to-talk key", "press|release|toggle");
CommandRegistration bypass = action("bypass", "Turn the natural voice on or off", "on|off|toggle");
CommandRegistration voice = action("voice", "Switch to the next, the previous or a named voice", "next|prev|NAME");
CommandRegistration live = action("live", "Start or stop talking live", "start|stop|toggle");
CommandRegistration status = action("status", "Say what runs now", "", {jsonOption("the status")});
CommandRegistration board({"control board", "Play a sound of the soundboard, or stop them",
                           {"play|key|stop", "[ENTRY...]"},
                           "Plays the board's sound ENTRY (by its name, or with 'key' by the key 1 to 9 it is\n"
                           "on) into the call while live runs, else on the output device; 'stop' stops every\n"
                           "sound the board plays. 'parlova-cli board list' shows the sounds.\n",
                           {}, "Example: parlova-cli control board play Applause\n",
                           [](const Arguments& args) { return send("board", args); }});
CommandRegistration say({"control say", "Say typed text into the call", {"TEXT..."},
                         "Says TEXT into the call while live runs (else on the output device): in the cloned\n"
                         "voice --clone, or by espeak-ng through the effect voice --voice, or in the voice\n"
                         "selected now. It plays as soon as it is made.\n",
                         {{"--voice", "NAME", "the effect voice that says it"},
                          {"--clone", "NAME", "the cloned voice that says it"}},
                         "Example: parlova-cli control say \"I'll be right back.\" --clone \"My Voice\"\n", sendSay});

}  // namespace
}  // namespace parlova::cli
