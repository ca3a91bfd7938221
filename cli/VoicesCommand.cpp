// parlova-cli voices: lists the stored voices (the same settings as the app).
#include "cli/Command.h"
#include "voices/VoiceStore.h"

#include <cstdio>

namespace parlova::cli {
namespace {

int listVoices(const std::vector<std::string>& args) {
    bool json = false, names = false;
    for (const auto& arg : args) {
        if (arg == "--json") json = true;
        else if (arg == "--names") names = true;
        else {
            std::fprintf(stderr, "Unknown option \"%s\". Run \"parlova-cli voices --help\".\n", arg.c_str());
            return 2;
        }
    }
    VoiceStore store;
    if (json) {
        std::printf("%s\n", encodeVoices(store.voices()).constData());
        return 0;
    }
    for (const Voice& v : store.voices()) {
        if (names) {
            std::printf("%s\n", v.name.toUtf8().constData());
            continue;
        }
        std::printf("%s %-24s pitch %+5.0f cents  formant %+4.1f st  %s%s\n", v.emoji.toUtf8().constData(),
                    v.name.toUtf8().constData(), v.pitch, v.formant,
                    v.targetPitch > 0 ? QString("auto pitch %1 Hz").arg(v.targetPitch).toUtf8().constData() : "",
                    v.presetKey ? "  (starting voice)" : "");
    }
    return 0;
}

CommandRegistration registration({
    "voices",
    "List the stored voices.",
    "Usage: parlova-cli voices [--json | --names]\n\n"
    "Lists the voices stored in Parlova's settings, in display order.\n\n"
    "  --json    print the stored list as JSON (the form the settings keep)\n"
    "  --names   print only the names, one per line\n",
    listVoices,
});

}  // namespace
}  // namespace parlova::cli
