// parlova-cli mic install|remove|status: the virtual microphone "Parlova Mic".
#include "cli/Command.h"
#include "devices/AudioBackend.h"
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <cstdio>

namespace parlova::cli {
namespace {

int runFlow(bool install) {
    AudioDeviceList devices;
    VirtualMicSetup setup(&devices);
    setup.setRefreshDelay(0);
    int status = 0;
    QEventLoop loop;
    QObject::connect(&setup, &VirtualMicSetup::errorMessage, [&](const QString& message) {
        std::fprintf(stderr, "%s\n", message.toUtf8().constData());
        status = 1;
    });
    QObject::connect(&setup, &VirtualMicSetup::finished, &loop, &QEventLoop::quit);
    QObject::connect(&setup, &VirtualMicSetup::installingChanged, [&] {
        if (setup.installing()) std::fprintf(stderr, "Installing \"Parlova Mic\"\xE2\x80\xA6\n");
    });
    if (install) setup.install();
    else setup.remove();
    loop.exec();
    if (status == 0) {
        const auto cable = devices.virtualCable();
        if (install)
            std::printf("Installed \"Parlova Mic\". Call apps can pick it as their microphone; it comes back at every login.\n");
        else
            std::printf("Removed the virtual mic.%s\n", cable ? " (Another virtual cable is still present.)" : "");
    }
    return status;
}

int printStatus() {
    const auto s = VirtualMic::status();
    if (!s.serverReachable) {
        std::fprintf(stderr, "%s\n", kNoServerMessage.c_str());
        return 1;
    }
    std::printf("Sound server: %s\n", s.pipewire ? "PipeWire (pipewire-pulse)" : "PulseAudio");
    std::printf("Parlova Mic loaded now: %s\n", s.loaded ? "yes" : "no");
    std::printf("Loaded at login: %s (%s)\n", s.persisted ? "yes" : "no", s.configPath.toUtf8().constData());
    if (s.formerPresent) std::printf("The former \"Tovix Voice Changer Mic\" is still present; install or remove takes it away.\n");
    const auto cableID = AudioDeviceList::virtualCableID();
    const auto defaultInput = AudioDeviceList::defaultInputID();
    if (cableID && defaultInput && *cableID == *defaultInput)
        std::printf("The system microphone is set to the virtual mic.\n");
    return 0;
}

int run(const std::vector<std::string>& args) {
    if (args.size() != 1) {
        std::fprintf(stderr, "Usage: parlova-cli mic install|remove|status\n");
        return 2;
    }
    if (args[0] == "install") return runFlow(true);
    if (args[0] == "remove") return runFlow(false);
    if (args[0] == "status") return printStatus();
    std::fprintf(stderr, "Unknown action \"%s\". Use install, remove or status.\n", args[0].c_str());
    return 2;
}

CommandRegistration registration{{
    "mic",
    "Install, remove or check the virtual mic \"Parlova Mic\"",
    "Usage: parlova-cli mic install|remove|status\n\n"
    "  install  load \"Parlova Mic\" into the sound server now and at every login\n"
    "           (installing again updates it)\n"
    "  remove   unload it and stop loading it at login\n"
    "  status   say whether it is loaded and persisted\n\n"
    "Both install and remove also take away the former \"Tovix Voice Changer Mic\".\n"
    "Nothing needs administrator rights: the device lives in your own sound server.\n",
    run,
}};

}  // namespace
}  // namespace parlova::cli
