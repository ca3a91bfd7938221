#pragma once
// The hands-free options shared by "live" and "render": --talk MODE,
// --clean-mic and --gate-db N. They apply to one run and are not remembered.
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
    bool ok = true;
};

// Takes args[i] (and its value) when it is one of these options; prints the
// reason and clears `ok` for a bad value.
inline bool takeMicOption(const std::vector<std::string>& args, size_t& i, MicOptions& o, bool talkAllowed) {
    const std::string& a = args[i];
    const bool hasValue = i + 1 < args.size();
    if (a == "--clean-mic") {
        o.cleanMic = true;
    } else if (a == "--gate-db" && hasValue) {
        char* end = nullptr;
        const std::string& value = args[++i];
        const float db = std::strtof(value.c_str(), &end);
        if (value.empty() || *end != '\0' || db < CleanMicSetting::kMinGateDb || db > CleanMicSetting::kMaxGateDb) {
            std::fprintf(stderr, "--gate-db needs a number from %.0f to %.0f.\n", CleanMicSetting::kMinGateDb,
                         CleanMicSetting::kMaxGateDb);
            o.ok = false;
        }
        o.cleanMic = true;
        o.gateDb = db;
    } else if (talkAllowed && a == "--talk" && hasValue) {
        o.talk = talkModeFromName(QString::fromStdString(args[++i]));
        if (!o.talk) {
            std::fprintf(stderr, "--talk needs always, push-to-talk or push-to-mute.\n");
            o.ok = false;
        }
    } else {
        return false;
    }
    return true;
}

// For this run only: the user's stored choices stay as they are.
inline void applyMicOptions(const MicOptions& o, VoiceEngine& engine, bool cleanMicExplicit) {
    if (o.gateDb) engine.cleanMic().setGateDb(*o.gateDb, false);
    if (o.cleanMic || cleanMicExplicit) engine.cleanMic().setEnabled(o.cleanMic, false);
    if (o.talk) engine.talk().setMode(*o.talk, false);
}

}  // namespace parlova::cli
