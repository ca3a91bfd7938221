// parlova-cli live / record / play: live mode, recording and playback on the
// sound server, with the same engine the app uses.
#include "cli/Command.h"
#include "cli/SignalWatch.h"
#include "cli/VoiceLookup.h"
#include "cli/MicOptions.h"
#include "control/HandsFree.h"
#include "voices/VoiceStore.h"
#include "engine/VoiceEngine.h"

#include <cstdio>
#include <cstdlib>

namespace parlova::cli {
namespace {

const char* kLiveUsage =
    "Usage: parlova-cli live --voice NAME [--call] [--hear-myself] [--input UID] [--output UID]\n"
    "                        [--set FIELD=VALUE]... [--seconds N] [--talk MODE] [--clean-mic [--gate-db N]]\n\n"
    "Talks live: your microphone in the voice NAME on the output device, until N seconds\n"
    "pass or Ctrl-C. The system microphone is always given back on the way out.\n\n"
    "  --call          call mode: render into \"Parlova Mic\" and make it the system\n"
    "                  microphone, so call apps hear the voice (install it first with\n"
    "                  \"parlova-cli mic install\")\n"
    "  --hear-myself   in call mode, also play the voice on the output device (never on\n"
    "                  speakers, which would echo into the call)\n"
    "  --input UID     microphone to use (see \"parlova-cli devices\"); default: the system one\n"
    "  --output UID    output device; default: the system one\n"
    "  --seconds N     stop after N seconds\n"
    "  --talk MODE     always (default), push-to-talk or push-to-mute; the key is\n"
    "                  \"parlova-cli control ptt press|release|toggle\" or a global shortcut\n"
    "  --clean-mic     lower steady room noise and close a noise gate between words\n"
    "  --gate-db N     the gate's threshold in dBFS (implies --clean-mic; default -45)\n"
    "While live runs, \"parlova-cli control ...\" drives it (see \"parlova-cli control --help\").\n";

const char* kRecordUsage =
    "Usage: parlova-cli record OUTPUT --seconds N [--input UID]\n\n"
    "Records N seconds of your microphone (your natural voice) into OUTPUT\n"
    "(.wav, .flac or .m4a by its extension).\n";

const char* kPlayUsage =
    "Usage: parlova-cli play FILE --voice NAME [--output UID] [--set FIELD=VALUE]...\n\n"
    "Plays FILE through the voice NAME on the output device until it ends or Ctrl-C.\n";

struct Options {
    std::string voice = "Natural", input, output;
    std::vector<std::string> overrides, files;
    bool call = false, hearMyself = false;
    double seconds = 0;
    bool ok = true;
    MicOptions mic;
};

Options parse(const std::vector<std::string>& args, const char* usage) {
    Options o;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--voice" && hasValue) o.voice = args[++i];
        else if (a == "--input" && hasValue) o.input = args[++i];
        else if (a == "--output" && hasValue) o.output = args[++i];
        else if (a == "--set" && hasValue) o.overrides.push_back(args[++i]);
        else if (a == "--seconds" && hasValue) {
            char* end = nullptr;
            o.seconds = std::strtod(args[++i].c_str(), &end);
            if (*end != '\0' || o.seconds <= 0) {
                std::fprintf(stderr, "--seconds needs a positive number.\n");
                o.ok = false;
            }
        } else if (a == "--call") o.call = true;
        else if (a == "--hear-myself") o.hearMyself = true;
        else if (takeMicOption(args, i, o.mic, true)) o.ok = o.ok && o.mic.ok;
        else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "Unknown or incomplete option \"%s\".\n\n%s", a.c_str(), usage);
            o.ok = false;
        } else o.files.push_back(a);
    }
    return o;
}

std::string deviceName(const DeviceEntry& device) { return device.name.value_or("unnamed device"); }

void printErrors(VoiceEngine& engine) {
    QObject::connect(&engine, &VoiceEngine::errorMessageChanged, [&engine] {
        if (!engine.errorMessage().isEmpty()) std::fprintf(stderr, "%s\n", engine.errorMessage().toUtf8().constData());
    });
}

int live(const std::vector<std::string>& args) {
    Options o = parse(args, kLiveUsage);
    if (!o.ok || !o.files.empty()) return 2;
    auto voice = voiceWithOverrides(o.voice, o.overrides);
    if (!voice) return 2;

    VoiceEngine engine;
    printErrors(engine);
    engine.set(*voice);
    engine.setInputUID(QString::fromStdString(o.input), false);
    engine.setOutputUID(QString::fromStdString(o.output), false);
    engine.setCallMode(o.call);
    engine.setHearMyself(o.hearMyself);
    applyMicOptions(o.mic, engine, false);
    VoiceStore store;
    HandsFree handsFree(engine, store);
    QObject::connect(&handsFree, &HandsFree::shortcutsChanged, [&handsFree] {
        std::fprintf(stderr, "%s\n", handsFree.shortcutHint().toUtf8().constData());
    });
    if (QString error; !handsFree.start(&error)) std::fprintf(stderr, "%s\n", error.toUtf8().constData());
    QObject::connect(&engine.talk(), &TalkControl::statusChanged, [&engine] {
        if (engine.isLive()) std::fprintf(stderr, "%s\n", engine.talk().status().toUtf8().constData());
    });
    quitOnSignals(&engine);

    bool started = false, stoppedByError = false;
    auto liveEnded = QObject::connect(&engine, &VoiceEngine::liveStateChanged, [&] {
        if (!engine.isLive()) {
            stoppedByError = true;
            QCoreApplication::exit(1);
        }
    });
    QObject::connect(&engine, &VoiceEngine::liveStarted, [&] {
        if (started) return;
        started = true;
        const LiveRoute& r = engine.liveGraph()->route();
        std::fprintf(stderr, "Talking live as %s: \xE2\x80\x9C%s\xE2\x80\x9D \xE2\x86\x92 \xE2\x80\x9C%s\xE2\x80\x9D",
                     voice->name.toUtf8().constData(), deviceName(r.mic).c_str(), deviceName(r.output).c_str());
        if (r.monitor) std::fprintf(stderr, ", hearing myself on \xE2\x80\x9C%s\xE2\x80\x9D", deviceName(*r.monitor).c_str());
        std::fprintf(stderr, ".\n");
        if (r.isCall) std::fprintf(stderr, "Call apps using the system microphone now hear this voice.\n");
        std::fprintf(stderr, "Audio thread: %s.\n", describe(engine.realtimeGrant()));
        if (!engine.talk().status().isEmpty()) std::fprintf(stderr, "%s\n", engine.talk().status().toUtf8().constData());
        std::fprintf(stderr, "Press Ctrl-C to stop.\n");
        if (o.seconds > 0) QTimer::singleShot(static_cast<int>(o.seconds * 1000), [] { QCoreApplication::quit(); });
        // The delay is known once both streams have reported their latency.
        QTimer::singleShot(1000, &engine, [&engine] {
            if (engine.liveGraph())
                std::fprintf(stderr, "Delay from the microphone to the output: about %.0f ms.\n",
                             engine.liveDelaySeconds() * 1000.0);
        });
    });
    // A server that does not answer is not a reason to sit silent.
    QTimer::singleShot(3000, &engine, [&] {
        if (!started && engine.isStartingLive())
            std::fprintf(stderr, "Waiting for the sound server to answer\xE2\x80\xA6 (Ctrl-C gives up)\n");
    });

    engine.toggleLive();
    const int code = QCoreApplication::exec();
    QObject::disconnect(liveEnded);
    if (engine.isLive()) engine.toggleLive();  // stops and gives the real microphone back
    if (!started || stoppedByError) return code == 0 ? 1 : code;
    std::fprintf(stderr, "Live stopped.\n");
    return 0;
}

int record(const std::vector<std::string>& args) {
    Options o = parse(args, kRecordUsage);
    if (!o.ok || o.files.size() != 1 || o.seconds <= 0) {
        if (o.ok) std::fputs(kRecordUsage, stderr);
        return 2;
    }
    if (!audioFileTypeForPath(o.files[0])) {
        std::fprintf(stderr, "Couldn't start recording: use a .wav, .flac or .m4a file name.\n");
        return 2;
    }
    VoiceEngine engine;
    printErrors(engine);
    engine.setInputUID(QString::fromStdString(o.input), false);
    quitOnSignals(&engine);
    QObject::connect(&engine, &VoiceEngine::recordingChanged, [&] {
        if (!engine.isRecording()) QCoreApplication::quit();
    });
    // The clock starts once the microphone is open.
    QObject::connect(&engine, &VoiceEngine::liveStarted, [&] {
        std::fprintf(stderr, "Recording for %.1f s\xE2\x80\xA6\n", o.seconds);
        QTimer::singleShot(static_cast<int>(o.seconds * 1000), [&engine] {
            if (engine.isRecording()) engine.toggleRecording();
        });
    });
    engine.toggleRecording();
    if (!engine.isRecording()) return 1;
    QCoreApplication::exec();
    if (engine.isRecording()) engine.toggleRecording();
    if (engine.clipURL().isEmpty()) return 1;
    try {
        auto in = AudioFileReader::open(engine.clipURL().toStdString());
        auto out = AudioFileWriter::create(o.files[0], in->format());
        std::vector<const float*> channels;
        for (int c = 0; c < in->format().channels; ++c) channels.push_back(in->channelData(c));
        out->write(channels.data(), static_cast<int>(in->frameLength()));
        out->finish();
    } catch (const VoiceEngineError& error) {
        std::fprintf(stderr, "Couldn't save the recording: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr, "Recorded %.2f s into %s\n", engine.clipDuration(), o.files[0].c_str());
    return 0;
}

int play(const std::vector<std::string>& args) {
    Options o = parse(args, kPlayUsage);
    if (!o.ok || o.files.size() != 1) {
        if (o.ok) std::fputs(kPlayUsage, stderr);
        return 2;
    }
    auto voice = voiceWithOverrides(o.voice, o.overrides);
    if (!voice) return 2;
    VoiceEngine engine;
    printErrors(engine);
    engine.set(*voice);
    engine.setOutputUID(QString::fromStdString(o.output), false);
    if (!engine.loadClip(QString::fromStdString(o.files[0]))) return 1;
    quitOnSignals(&engine);
    QObject::connect(&engine, &VoiceEngine::playingChanged, [&] {
        if (!engine.isPlaying()) QCoreApplication::quit();
    });
    engine.startPlayback();
    if (!engine.isPlaying()) return 1;
    std::fprintf(stderr, "Playing %s as %s…\n", o.files[0].c_str(), voice->name.toUtf8().constData());
    QCoreApplication::exec();
    engine.stopPlayback();
    return 0;
}

CommandRegistration liveCommand({"live", "Talk live in a voice (optionally into call apps).", kLiveUsage, live});
CommandRegistration recordCommand({"record", "Record your microphone into a file.", kRecordUsage, record});
CommandRegistration playCommand({"play", "Play a file through a voice.", kPlayUsage, play});

}  // namespace
}  // namespace parlova::cli
