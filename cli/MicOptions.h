#pragma once
// The hands-free options shared by "live" and "render": --talk MODE,
// --clean-mic and --gate-db N. They apply to one run and are not remembered.
#include "cli/Command.h"
#include "engine/VoiceEngine.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace parlova::cli {

struct MicOptions {
    std::optional<TalkMode> talk;
    bool cleanMic = false;
    std::optional<float> gateDb;
};

// The options as a command declares them; push-to-talk only where live runs.
inline std::vector<Option> micOptions(bool withTalk) {
    std::vector<Option> options{
        {"--clean-mic", "", "take out room noise and key clicks and close a noise gate between words"},
        {"--gate-db", "N", "the noise gate's threshold in dBFS (implies --clean-mic; default -45)"}};
    if (withTalk)
        options.push_back({"--talk", "MODE",
                           "always (default), push-to-talk or push-to-mute; the key is\n"
                           "'parlova-cli control ptt press|release|toggle' or a global shortcut"});
    return options;
}

// A command's own options followed by these.
inline std::vector<Option> withMicOptions(std::vector<Option> options, bool withTalk) {
    for (Option& option : micOptions(withTalk)) options.push_back(std::move(option));
    return options;
}

// Reads them; a bad value is a usage error.
inline MicOptions readMicOptions(const Arguments& args, bool talkAllowed) {
    MicOptions o;
    o.cleanMic = args.has("--clean-mic");
    if (args.has("--gate-db")) {
        const std::string value = args.value("--gate-db");
        char* end = nullptr;
        const float db = std::strtof(value.c_str(), &end);
        if (value.empty() || *end != '\0' || db < CleanMicSetting::kMinGateDb || db > CleanMicSetting::kMaxGateDb)
            throw UsageError("--gate-db needs a number from " + std::to_string(int(CleanMicSetting::kMinGateDb)) +
                             " to " + std::to_string(int(CleanMicSetting::kMaxGateDb)) + " (got " + value + ").");
        o.cleanMic = true;
        o.gateDb = db;
    }
    if (talkAllowed && args.has("--talk")) {
        o.talk = talkModeFromName(QString::fromStdString(args.value("--talk")));
        if (!o.talk) throw UsageError("--talk needs always, push-to-talk or push-to-mute.");
    }
    return o;
}

// For this run only: the user's stored choices stay as they are.
inline void applyMicOptions(const MicOptions& o, VoiceEngine& engine, bool cleanMicExplicit) {
    if (o.gateDb) engine.cleanMic().setGateDb(*o.gateDb, false);
    if (o.cleanMic || cleanMicExplicit) engine.cleanMic().setEnabled(o.cleanMic, false);
    if (o.talk) engine.talk().setMode(*o.talk, false);
}

}  // namespace parlova::cli
