// parlova-cli mic install|remove|status|restore: the virtual microphone
// "Parlova Mic" and the system microphone it may have been left as.
#include "cli/Command.h"
#include "cli/MicRepair.h"
#include "devices/AudioBackend.h"
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "engine/CallMode.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>

#include <cstdio>

namespace parlova::cli {
namespace {

int runFlow(bool install, bool quiet) {
    AudioDeviceList devices;
    VirtualMicSetup setup(&devices);
    setup.setRefreshDelay(0);
    std::string failure;
    QEventLoop loop;
    QObject::connect(&setup, &VirtualMicSetup::errorMessage,
                     [&](const QString& message) { failure = message.toStdString(); });
    QObject::connect(&setup, &VirtualMicSetup::finished, &loop, &QEventLoop::quit);
    QObject::connect(&setup, &VirtualMicSetup::installingChanged, [&] {
        if (setup.installing() && !quiet) std::fprintf(stderr, "Installing \"Parlova Mic\"\xE2\x80\xA6\n");
    });
    if (install) setup.install();
    else setup.remove();
    loop.exec();
    if (!failure.empty()) throw Failure(failure);
    if (quiet) return kExitOk;
    if (install)
        std::fprintf(stderr, "Installed \"Parlova Mic\". Call apps can pick it as their microphone; it comes back at every login.\n");
    else {
        // A fresh look: the list's own refresh may not have answered yet.
        const auto table = AudioBackend::system().snapshot();
        const bool another = table && deviceRules::virtualCableID(*table).has_value();
        std::fprintf(stderr, "Removed the virtual mic.%s\n", another ? " (Another virtual cable is still present.)" : "");
    }
    return kExitOk;
}

int install(const Arguments& args) { return runFlow(true, args.quiet()); }

int remove(const Arguments& args) {
    // The real microphone goes back before the device it points at disappears.
    restoreSystemMic();
    return runFlow(false, args.quiet());
}

int restore(const Arguments& args) {
    const MicRepairOutcome outcome = restoreSystemMic();
    if (!outcome.serverReached) throw Failure(kNoServerMessage);
    if (args.quiet()) return kExitOk;
    if (const auto sentence = describe(outcome)) std::fprintf(stderr, "%s\n", sentence->toUtf8().constData());
    else
        std::fprintf(stderr, "The system microphone is \"%s\"; there was nothing to restore.\n",
                     outcome.microphone.toUtf8().constData());
    return kExitOk;
}

int status(const Arguments& args) {
    const auto s = VirtualMic::status();
    if (!s.serverReachable) throw Failure(kNoServerMessage);
    const auto table = AudioBackend::system().snapshot();
    const auto cable = table ? deviceRules::virtualCableID(*table) : std::nullopt;
    const bool systemMicIsVirtual = cable && table->defaultInput == cable;
    const QString saved = QSettings().value(CallMode::kMicBeforeCallModeKey).toString();
    if (args.has("--json")) {
        const QJsonObject o{{"server", s.pipewire ? "pipewire" : "pulseaudio"},
                            {"loaded", s.loaded},
                            {"persisted", s.persisted},
                            {"configPath", s.configPath},
                            {"formerPresent", s.formerPresent},
                            {"systemMicIsVirtual", systemMicIsVirtual},
                            {"savedMic", saved.isEmpty() ? QJsonValue::Null : QJsonValue(saved)}};
        std::printf("%s\n", QJsonDocument(o).toJson(QJsonDocument::Compact).constData());
        return kExitOk;
    }
    std::printf("Sound server: %s\n", s.pipewire ? "PipeWire (pipewire-pulse)" : "PulseAudio");
    std::printf("Parlova Mic loaded now: %s\n", s.loaded ? "yes" : "no");
    std::printf("Loaded at login: %s (%s)\n", s.persisted ? "yes" : "no", s.configPath.toUtf8().constData());
    std::printf("System microphone on the virtual mic: %s\n", systemMicIsVirtual ? "yes" : "no");
    // What to do about it, one line each.
    if (!s.loaded) std::printf("To add it, run 'parlova-cli mic install'.\n");
    else if (!s.persisted) std::printf("To have it at every login too, run 'parlova-cli mic install'.\n");
    if (s.formerPresent)
        std::printf("The former \"Tovix Voice Changer Mic\" is still present; 'parlova-cli mic install' or "
                    "'parlova-cli mic remove' takes it away.\n");
    if (systemMicIsVirtual)
        std::printf("Unless a call mode is running now, run 'parlova-cli mic restore' to make your real "
                    "microphone the system microphone again.\n");
    return kExitOk;
}

int needsAction(const Arguments&) { throw UsageError("Name an action: install, remove, status or restore."); }

CommandRegistration micCommand({"mic", "Install, remove, check or restore the virtual mic \"Parlova Mic\"", {},
                                "The virtual microphone \"Parlova Mic\" lets call apps hear your changed voice.\n"
                                "Nothing needs administrator rights: it lives in your own sound server.\n",
                                {}, "", needsAction});
CommandRegistration installCommand({"mic install", "Add \"Parlova Mic\" now and at every login", {},
                                    "Loads \"Parlova Mic\" into the sound server now and at every login (installing\n"
                                    "again updates it). Also takes away the former \"Tovix Voice Changer Mic\".\n",
                                    {quietOption()}, "", install});
CommandRegistration removeCommand({"mic remove", "Remove \"Parlova Mic\"", {},
                                   "Gives the real microphone back if needed, then unloads \"Parlova Mic\" and stops\n"
                                   "loading it at login. Also takes away the former \"Tovix Voice Changer Mic\".\n",
                                   {quietOption()}, "", remove});
CommandRegistration statusCommand({"mic status", "Say whether \"Parlova Mic\" is installed and in use", {},
                                   "Says whether \"Parlova Mic\" is loaded and kept for the next login, and whether it\n"
                                   "is the system microphone, with what to run to fix what it finds.\n",
                                   {jsonOption("the status")}, "", status});
CommandRegistration restoreCommand({"mic restore", "Make your real microphone the system microphone again", {},
                                    "Makes your real microphone the system microphone again after a call mode that\n"
                                    "was killed or crashed left it on \"Parlova Mic\".\n",
                                    {quietOption()}, "", restore});

}  // namespace
}  // namespace parlova::cli
