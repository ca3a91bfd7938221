// parlova-cli render: renders an audio file through a voice, exactly as the
// app's export does.
#include "cli/Command.h"
#include "engine/VoiceEngine.h"
#include "cli/VoiceLookup.h"
#include "cli/MicOptions.h"

#include <unistd.h>

#include <cstdio>

namespace parlova::cli {
namespace {

const char* kUsage =
    "Usage: parlova-cli render --voice NAME [--set FIELD=VALUE]... INPUT OUTPUT\n\n"
    "Renders INPUT through the voice NAME (a stored voice, or \"Natural\") into OUTPUT.\n"
    "OUTPUT's extension picks the format: .m4a (AAC), .wav (32-bit float) or .flac (24-bit).\n"
    "INPUT may be wav, flac, ogg/opus, mp3 or m4a/aac at any sample rate.\n\n"
    "  --voice NAME         the voice to use (names are matched ignoring case)\n"
    "  --set FIELD=VALUE    override one setting of the voice for this render, e.g.\n"
    "                       --set formant=3.5 or --set pitch=-300 (repeatable)\n"
    "  --bypass             render with the natural voice, as the app's bypass does\n"
    "  --clean-mic          clean the input up first, as live mode's \"Clean up my mic\" does\n"
    "  --gate-db N          the noise gate's threshold in dBFS (implies --clean-mic; default -45)\n"
    "  --quiet              no progress output\n\n"
    "Fields: pitch (cents), formant (semitones), targetPitch (Hz, 0 = off), vibratoRate,\n"
    "vibratoDepth, tremoloRate, tremoloDepth, lowCut, highCut, body, presence, reverb,\n"
    "gain, grain.\n";

int render(const std::vector<std::string>& args) {
    std::string voiceName;
    std::vector<std::string> overrides, files;
    bool quiet = false, bypass = false;
    MicOptions mic;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if ((arg == "--voice" || arg == "--set") && i + 1 < args.size()) {
            (arg == "--voice" ? voiceName : overrides.emplace_back()) = args[++i];
        } else if (arg.rfind("--voice=", 0) == 0) {
            voiceName = arg.substr(8);
        } else if (arg == "--quiet") {
            quiet = true;
        } else if (arg == "--bypass") {
            bypass = true;
        } else if (takeMicOption(args, i, mic, false)) {
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::fprintf(stderr, "Unknown or incomplete option \"%s\".\n\n%s", arg.c_str(), kUsage);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (voiceName.empty() || files.size() != 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (!mic.ok) return 2;

    std::optional<Voice> voice = voiceWithOverrides(voiceName, overrides);
    if (!voice) return 2;

    VoiceEngine engine(nullptr, nullptr);
    engine.set(*voice);
    engine.setBypass(bypass);
    applyMicOptions(mic, engine, true);
    if (!engine.loadClip(QString::fromStdString(files[0]))) {
        std::fprintf(stderr, "%s\n", engine.errorMessage().toUtf8().constData());
        return 1;
    }
    // Progress only where it helps: long clips, and never unless asked on a pipe.
    const bool showProgress = !quiet && engine.clipDuration() >= 20.0;
    const bool tty = isatty(STDERR_FILENO) != 0;
    int lastShown = -1;
    const bool ok = engine.exportClipAndWait(QString::fromStdString(files[1]), [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (showProgress && percent / 10 != lastShown / 10 && (tty || percent % 10 == 0 || percent == 100)) {
            std::fprintf(stderr, tty ? "\rRendering %s: %3d%%" : "Rendering %s: %d%%\n",
                         voice->name.toUtf8().constData(), percent);
            lastShown = percent;
        }
        return true;
    });
    if (showProgress && tty) std::fputc('\n', stderr);
    if (!ok) {
        std::fprintf(stderr, "%s\n", engine.errorMessage().toUtf8().constData());
        return 1;
    }
    if (!quiet) std::fprintf(stderr, "Wrote %s\n", files[1].c_str());
    return 0;
}

CommandRegistration registration({"render", "Render an audio file through a voice.", kUsage, render});

}  // namespace
}  // namespace parlova::cli
