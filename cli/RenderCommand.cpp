// parlova-cli render: renders an audio file through a voice, exactly as the
// window's export does.
#include "cli/Command.h"
#include "cli/StdStreams.h"
#include "cli/VoiceLookup.h"
#include "engine/VoiceEngine.h"
#include "cli/MicOptions.h"

#include <unistd.h>

#include <cstdio>

namespace parlova::cli {
namespace {

int render(const Arguments& args) {
    const std::string input = args.operand(0), output = args.operand(1);
    refuseSameFile(input, output);
    const Voice voice = voiceWithOverrides(args.value("--voice"), args.values("--set"));
    AudioOutput out(output, args.value("--type"));
    AudioInput in(input);
    auto sentence = [&](const QString& message) { return out.describe(in.describe(message.toStdString())); };

    BackendJobs unused;  // rendering asks no sound server anything
    VoiceEngine engine(nullptr, nullptr, unused);
    engine.set(voice);
    engine.setBypass(args.has("--bypass"));
    applyMicOptions(readMicOptions(args, false), engine, true);
    if (!engine.loadClip(QString::fromStdString(in.path()))) throw Failure(sentence(engine.errorMessage()));
    // Progress only where it helps: long clips, a line per tenth on a pipe.
    const bool showProgress = !args.quiet() && engine.clipDuration() >= 20.0;
    const bool tty = isatty(STDERR_FILENO) != 0;
    int lastShown = -1;
    const bool ok = engine.exportClipAndWait(QString::fromStdString(out.path()), [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (showProgress && percent / 10 != lastShown / 10 && (tty || percent % 10 == 0 || percent == 100)) {
            std::fprintf(stderr, tty ? "\rRendering %s: %3d%%" : "Rendering %s: %d%%\n", voice.name.toUtf8().constData(),
                         percent);
            lastShown = percent;
        }
        return true;
    });
    if (showProgress && tty) std::fputc('\n', stderr);
    if (!ok) throw Failure(sentence(engine.errorMessage()));
    out.deliver();
    if (!args.quiet() && !out.isStdout()) std::fprintf(stderr, "Wrote %s\n", output.c_str());
    return kExitOk;
}

CommandRegistration registration({
    "render",
    "Render an audio file through a voice",
    {"INPUT", "OUTPUT"},
    "Renders INPUT through the voice NAME into OUTPUT. OUTPUT's extension picks the\n"
    "format: .m4a (AAC), .wav (32-bit float) or .flac (24-bit). INPUT may be wav, flac,\n"
    "ogg/opus, mp3 or m4a/aac at any sample rate. '-' as INPUT reads standard input\n"
    "(wav or flac); '-' as OUTPUT writes standard output (wav unless --type flac).\n",
    withMicOptions({{"--voice", "NAME", "the voice to use: a stored voice or \"Natural\" (any letter case)", false, true},
     {"--set", "FIELD=VALUE", "change one setting for this render only, e.g. pitch=-300;\n"
                              "refused outside the range 'parlova-cli voices set --help' lists",
      true},
     {"--bypass", "", "render with your natural voice, as the window's bypass does"},
     {"--type", "TYPE", "wav or flac: the type written to standard output"},
     quietOption()}, false),
    "Example: parlova-cli render --voice \"Old Lady\" --set formant=3 talk.wav old.m4a\n"
    "         sox talk.wav -t wav - | parlova-cli render --voice Natural - - | play -\n",
    render,
});

}  // namespace
}  // namespace parlova::cli
