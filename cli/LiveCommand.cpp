// parlova-cli live / record / play: live mode, recording and playback on the
// sound server, with the same engine the window uses.
#include "cli/Command.h"
#include "cli/DeviceLookup.h"
#include "cli/LiveReport.h"
#include "cli/NextStep.h"
#include "cli/SignalWatch.h"
#include "cli/StdStreams.h"
#include "cli/VoiceLookup.h"
#include "cli/MicOptions.h"
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "control/HandsFree.h"
#include "control/VoiceSelection.h"
#include "voices/VoiceStore.h"
#include "engine/VoiceEngine.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace parlova::cli {
namespace {

const Option kInput{"--input", "DEVICE", "microphone to use: a name or UID from 'parlova-cli devices';\n"
                                         "default: the system microphone"};
const Option kOutput{"--output", "DEVICE", "output device, as for --input; default: the system output"};
const Option kVoice{"--voice", "NAME", "the voice: a stored voice or \"Natural\" (any letter case)", false, true};
const Option kSet{"--set", "FIELD=VALUE", "change one setting of the voice for this run, e.g. pitch=-300", true};
const Option kLiveVoice{"--voice", "NAME", "the voice: a stored voice or \"Natural\" (any letter case)"};
const Option kClone{"--clone", "NAME", "instead of --voice: a cloned voice ('parlova-cli clone list'), re-speaking\n"
                                       "you through the local speech model"};
const Option kLatency{"--latency", "fastest|balanced|clearest",
                      "with --clone: how far behind you the cloned voice runs (~0.3, ~0.4 or\n"
                      "~0.6 s; clearer words on fast speech the longer it is); default balanced"};

// The cloned voice --clone names, with what live needs of it. The library and
// the cloner outlive the engine that speaks through them.
struct CloneChoice {
    CloneLibrary library;
    std::unique_ptr<VoiceCloner> cloner;
    QUuid id;
    CloneTarget target;
    CloneLatency latency = CloneLatency::balanced;
};

std::unique_ptr<CloneChoice> chooseClone(const Arguments& args) {
    auto choice = std::make_unique<CloneChoice>();
    const QString name = QString::fromStdString(args.value("--clone"));
    const auto voice = choice->library.find(name);
    if (!voice) {
        QStringList names;
        for (const ClonedVoice& v : choice->library.voices()) names << v.name;
        throw UsageError("There is no cloned voice called \"" + name.toStdString() + "\"; " +
                         (names.isEmpty() ? std::string("there are none yet ('parlova-cli clone create NAME').")
                                          : "the cloned voices are: " + names.join(", ").toStdString() + "."));
    }
    if (args.has("--latency")) {
        const auto latency = cloneLatencyFromRaw(QString::fromStdString(args.value("--latency")));
        if (!latency) throw UsageError("--latency is fastest, balanced or clearest.");
        choice->latency = *latency;
    }
    choice->cloner = std::make_unique<VoiceCloner>();
    if (!choice->cloner->isInstalled()) throw Failure(VoiceCloner::notSetUpForStreaming().toStdString());
    choice->id = voice->id;
    choice->target = choice->library.target(voice->id);
    return choice;
}

// The devices the options name, checked against one snapshot; the engine
// gets their UIDs. Nothing is looked up when neither option is given.
struct ChosenDevices {
    QString input, output;
};

ChosenDevices chooseDevices(const Arguments& args, const DeviceTable* table) {
    ChosenDevices chosen;
    if (!table) return chosen;
    if (args.has("--input"))
        chosen.input = lookupDevice(*table, args.value("--input"), Direction::input, "--input").uid;
    if (args.has("--output"))
        chosen.output = lookupDevice(*table, args.value("--output"), Direction::output, "--output").uid;
    return chosen;
}

// In call mode the voice goes to the virtual mic; hearing it too needs an
// output that does not echo into the call.
void checkHearMyself(const DeviceTable& table, const QString& outputUID) {
    const auto id = outputUID.isEmpty() ? table.defaultOutput : deviceRules::deviceID(table, outputUID);
    const DeviceEntry* entry = id ? table.find(*id) : nullptr;
    if (!entry) throw UsageError("--hear-myself needs an output device, and there is none.");
    const std::string name = entry->name.value_or(entry->uid.value_or("the output"));
    if (deviceRules::isSpeaker(*entry))
        throw UsageError("--hear-myself would play the voice on \"" + name + "\", a speaker, and echo into the call; " +
                         "choose headphones with --output.");
    const auto cable = deviceRules::virtualCableID(table);
    if (cable && *cable == entry->id)
        throw UsageError("--hear-myself needs an output other than the virtual mic; choose headphones with --output.");
}

void reportErrors(VoiceEngine& engine, LiveReport& report, const std::string& rerun) {
    QObject::connect(&engine, &VoiceEngine::errorMessageChanged, [&engine, &report, rerun] {
        if (!engine.errorMessage().isEmpty()) report.error(withNextStep(engine.errorMessage(), rerun));
    });
}

int live(const Arguments& args) {
    const bool cloned = args.has("--clone");
    if (cloned == args.has("--voice"))
        throw UsageError(cloned ? "Choose one voice: --voice NAME or --clone NAME, not both."
                                : "Choose a voice: --voice NAME (or --clone NAME for a cloned voice).");
    if (args.has("--latency") && !cloned) throw UsageError("--latency works only with --clone.");
    if (args.has("--low-delay") && cloned)
        throw UsageError("--low-delay is for effect voices; a cloned voice's delay is --latency.");
    if (args.has("--set") && cloned) throw UsageError("--set changes an effect voice; a cloned voice has no settings.");
    const Voice voice = cloned ? Voice::natural() : voiceWithOverrides(args.value("--voice"), args.values("--set"));
    const double seconds = args.has("--seconds") ? args.seconds("--seconds") : 0;
    if (args.has("--hear-myself") && !args.has("--call"))
        throw UsageError("--hear-myself works only with --call: without call mode the voice already plays on the output.");
    std::optional<DeviceTable> table;
    if (args.has("--input") || args.has("--output") || args.has("--hear-myself")) table = systemDevices();
    const ChosenDevices devices = chooseDevices(args, table ? &*table : nullptr);
    if (args.has("--hear-myself")) checkHearMyself(*table, devices.output);
    const std::unique_ptr<CloneChoice> clone = cloned ? chooseClone(args) : nullptr;
    const QString speaker = cloned ? clone->target.name + " (" + label(clone->latency) + ")" : voice.name;

    LiveReport report(args.has("--json"), args.quiet());
    // One live per session: a second one would mix two voices into the call
    // and give the system microphone back under the first one's feet.
    if (const auto owner = LiveOwner::current(); owner && !LiveOwner::isPassing(owner)) {
        report.error(LiveOwner::refusal(owner).toStdString());
        return kExitFailure;
    }
    // "control voice" moves through the cloned voices too, where there are
    // any: the library and a cloner for them outlive the engine.
    std::unique_ptr<CloneLibrary> library;
    std::unique_ptr<VoiceCloner> cloner;
    if (!clone && QFileInfo::exists(QDir(CloneLibrary::defaultDirectory()).filePath(CloneLibrary::kFileName))) {
        library = std::make_unique<CloneLibrary>();
        cloner = std::make_unique<VoiceCloner>();
    }
    VoiceEngine engine(nullptr, &AudioBackend::system(), BackendJobs::shared());
    reportErrors(engine, report, "'parlova-cli live'");
    VoiceCloner* voiceCloner = clone ? clone->cloner.get() : cloner.get();
    if (voiceCloner) {
        QObject::connect(voiceCloner, &VoiceCloner::statusChanged, [&report, voiceCloner] {
            if (!voiceCloner->status().isEmpty()) report.status(voiceCloner->status());
        });
        engine.setCloner(voiceCloner);
    }
    if (clone) engine.setCloneLatency(clone->latency);
    VoiceStore store;
    VoiceSelection selection(engine, store, clone ? &clone->library : library.get());
    if (clone) selection.selectClone(clone->id);
    else selection.selectEffect(voice);
    engine.setInputUID(devices.input, false);
    engine.setOutputUID(devices.output, false);
    engine.setCallMode(args.has("--call"));
    engine.setHearMyself(args.has("--hear-myself"));
    engine.setLowDelay(args.has("--low-delay"), false);
    // A server that never answers is given up on, and never past --seconds.
    if (seconds > 0)
        engine.setLiveStartBound(std::min(std::chrono::milliseconds(LiveSession::kDefaultStartBoundMs),
                                          std::chrono::milliseconds(static_cast<long>(seconds * 1000))));
    applyMicOptions(readMicOptions(args, true), engine, false);
    // The soundboard plays through "control board" and "control say" and the
    // board's shortcuts; it follows edits made by the window or "parlova-cli board".
    BoardStore boardStore;
    if (!boardStore.keptAsidePath().isEmpty())
        report.status("The soundboard couldn't be read; the file was kept as " + boardStore.keptAsidePath() + ".");
    Soundboard soundboard(boardStore, engine, store, clone ? &clone->library : library.get());
    QObject::connect(&soundboard, &Soundboard::failed, [&report](const QString& why) { report.status(why); });
    HandsFree handsFree(engine, selection);
    handsFree.setBoard(&boardStore, &soundboard);
    QObject::connect(&handsFree, &HandsFree::shortcutsChanged, [&handsFree, &args] {
        if (!args.quiet()) std::fprintf(stderr, "%s\n", handsFree.shortcutHint().toUtf8().constData());
    });
    if (QString error; !handsFree.start(&error, liveControlSocketPath()))
        std::fprintf(stderr, "%s\n", error.toUtf8().constData());
    QObject::connect(&engine, &VoiceEngine::systemMicElsewhereChanged, [&engine, &report] {
        const QString elsewhere = engine.systemMicElsewhere();
        if (!engine.isLive()) return;  // the call is ending: the microphone goes back anyway
        report.status(elsewhere.isEmpty() ? QStringLiteral("Call apps hear Parlova Mic again.")
                                          : systemMicElsewhereSentence(elsewhere));
    });
    QObject::connect(&engine.talk(), &TalkControl::statusChanged, [&engine, &args] {
        if (engine.isLive() && !args.quiet()) std::fprintf(stderr, "%s\n", engine.talk().status().toUtf8().constData());
    });
    quitOnSignals(&engine);
    // Said once, when the engine has watched the route long enough to know it.
    bool delayTold = false;
    QObject::connect(&engine, &VoiceEngine::liveDelayKnownChanged, [&] {
        if (delayTold) return;
        if (const auto delay = engine.liveDelayEstimate()) {
            delayTold = true;
            report.delay(*delay);
        }
    });

    bool started = false, stoppedByError = false;
    auto liveEnded = QObject::connect(&engine, &VoiceEngine::liveStateChanged, [&] {
        if (engine.isLive()) return;
        // Stopped on request ("parlova-cli control live stop") is a normal end.
        stoppedByError = !engine.errorMessage().isEmpty() || !started;
        QCoreApplication::exit(stoppedByError ? 1 : 0);
    });
    // An effect voice talks as soon as the route runs; a cloned one once the
    // worker's converted speech comes back.
    const auto talking = [&] {
        if (started || !engine.liveGraph()) return;
        started = true;
        report.started(speaker, engine.liveGraph()->route(), engine.realtimeGrant());
        if (!engine.talk().status().isEmpty() && !args.quiet())
            std::fprintf(stderr, "%s\n", engine.talk().status().toUtf8().constData());
        if (seconds > 0) QTimer::singleShot(static_cast<int>(seconds * 1000), [] { QCoreApplication::quit(); });
    };
    if (clone) QObject::connect(&engine, &VoiceEngine::cloneSpeechFlowing, talking);
    else QObject::connect(&engine, &VoiceEngine::liveStarted, talking);
    // A cloned voice whose speech never comes back is not waited for past
    // --seconds and the start bound.
    if (clone && seconds > 0)
        QTimer::singleShot(static_cast<int>(seconds * 1000) + LiveSession::kDefaultStartBoundMs, &engine, [&] {
            if (started) return;
            report.error("No speech came back from " + clone->target.name.toStdString() +
                         "'s voice in time, so Live was stopped.");
            QCoreApplication::exit(1);
        });
    // A server that does not answer is not a reason to sit silent.
    QTimer::singleShot(3000, &engine, [&] {
        if (!started && engine.isStartingLive()) report.waiting();
    });

    engine.toggleLive();
    const int code = QCoreApplication::exec();
    QObject::disconnect(liveEnded);
    const bool stillWaiting = !started && engine.isStartingLive();
    if (engine.isLive()) engine.toggleLive();  // stops and gives the real microphone back
    if (stillWaiting) report.error("Live mode did not start: the sound server never answered.");
    if (!started || stoppedByError) return code == 0 ? kExitFailure : code;
    report.stopped();
    return kExitOk;
}

int record(const Arguments& args) {
    const double seconds = args.seconds("--seconds");
    AudioOutput out(args.operand(0), args.value("--type"));
    if (!audioFileTypeForPath(out.path()))
        throw UsageError("The recording needs a .wav, .flac or .m4a file name (got \"" + args.operand(0) + "\").");
    std::optional<DeviceTable> table;
    if (args.has("--input")) table = systemDevices();
    const ChosenDevices devices = chooseDevices(args, table ? &*table : nullptr);

    LiveReport report(false, args.quiet());
    VoiceEngine engine(nullptr, &AudioBackend::system(), BackendJobs::shared());
    reportErrors(engine, report, "'parlova-cli record'");
    engine.setInputUID(devices.input, false);
    quitOnSignals(&engine);
    QObject::connect(&engine, &VoiceEngine::recordingChanged, [&] {
        if (!engine.isRecording()) QCoreApplication::quit();
    });
    QObject::connect(&engine, &VoiceEngine::liveStarted, [&] {
        report.status(QString("Recording for %1 s\xE2\x80\xA6").arg(seconds, 0, 'f', 1));
    });
    engine.toggleRecording();
    if (!engine.isRecording()) return kExitFailure;
    engine.stopRecordingAfter(seconds);
    QCoreApplication::exec();
    if (engine.isRecording()) engine.toggleRecording();
    if (engine.clipURL().isEmpty()) return kExitFailure;
    try {
        auto in = AudioFileReader::open(engine.clipURL().toStdString());
        auto file = AudioFileWriter::create(out.path(), in->format());
        std::vector<const float*> channels;
        for (int c = 0; c < in->format().channels; ++c) channels.push_back(in->channelData(c));
        // The recording stops at the first block past the length asked for.
        const auto wanted = static_cast<int64_t>(std::llround(seconds * in->format().sampleRate));
        file->write(channels.data(), static_cast<int>(std::min<int64_t>(in->frameLength(), wanted)));
        file->finish();
    } catch (const VoiceEngineError& error) {
        throw Failure(out.describe("Couldn't save the recording: " + std::string(error.what())));
    }
    out.deliver();
    if (!out.isStdout())
        report.status(QString("Recorded %1 s into %2").arg(std::min(engine.clipDuration(), seconds), 0, 'f', 2).arg(out.path().c_str()));
    return kExitOk;
}

int play(const Arguments& args) {
    const Voice voice = voiceWithOverrides(args.value("--voice"), args.values("--set"));
    const double seconds = args.has("--seconds") ? args.seconds("--seconds") : 0;
    std::optional<DeviceTable> table;
    if (args.has("--output")) table = systemDevices();
    const ChosenDevices devices = chooseDevices(args, table ? &*table : nullptr);
    AudioInput in(args.operand(0));

    LiveReport report(false, args.quiet());
    VoiceEngine engine(nullptr, &AudioBackend::system(), BackendJobs::shared());
    engine.set(voice);
    engine.setOutputUID(devices.output, false);
    if (!engine.loadClip(QString::fromStdString(in.path()))) throw Failure(in.describe(engine.errorMessage().toStdString()));
    reportErrors(engine, report, "'parlova-cli play'");
    quitOnSignals(&engine);
    QObject::connect(&engine, &VoiceEngine::playingChanged, [&] {
        if (!engine.isPlaying()) QCoreApplication::quit();
    });
    engine.startPlayback();
    if (!engine.isPlaying()) return kExitFailure;
    report.status(QString("Playing %1 as %2\xE2\x80\xA6").arg(QString::fromStdString(args.operand(0)), voice.name));
    if (seconds > 0) QTimer::singleShot(static_cast<int>(seconds * 1000), [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    engine.stopPlayback();
    return kExitOk;
}

CommandRegistration liveCommand({
    "live", "Talk live in a voice (optionally into call apps)", {},
    "Talks live: your microphone in the voice NAME (--voice), or re-spoken in a cloned\n"
    "voice (--clone), on the output device, until the time given with --seconds passes\n"
    "or Ctrl-C. The system microphone is always given back on the way out. Only one\n"
    "live runs per session: beside another (the window's or a second 'live') it is\n"
    "refused, naming the one that runs.\n",
    withMicOptions({kLiveVoice, kClone, kLatency, kSet,
     {"--low-delay", "", "with --voice: a shorter delay (a shorter shifter block and microphone\n"
                         "buffering), for hearing yourself in headphones"},
     {"--call", "", "call mode: play into \"Parlova Mic\" and make it the system microphone,\n"
                    "so call apps hear the voice (install it first: 'parlova-cli mic install')"},
     {"--hear-myself", "", "in call mode, also play the voice on the output device (refused on\n"
                           "speakers, which would echo into the call)"},
     kInput, kOutput, {"--seconds", "N", "stop after N seconds"}, jsonOption("each status event"), quietOption()},
     true),
    "While live runs, 'parlova-cli control ...' drives it (push to talk, voices, bypass,\n"
    "the soundboard's sounds and typed speech).\n"
    "With --json every event is one line on standard output: started (the voice and the\n"
    "devices), delay, waiting, error and stopped.\n",
    live});
CommandRegistration recordCommand({
    "record", "Record your microphone into a file", {"OUTPUT"},
    "Records your natural voice from the microphone into OUTPUT (.wav, .flac or .m4a by\n"
    "its extension; '-' writes wav to standard output unless --type flac).\n",
    {{"--seconds", "N", "how long to record", false, true}, kInput,
     {"--type", "TYPE", "wav or flac: the type written to standard output"}, quietOption()},
    "", record});
CommandRegistration playCommand({
    "play", "Play a file through a voice", {"FILE"},
    "Plays FILE ('-' reads standard input) through the voice NAME on the output device\n"
    "until it ends, the time given with --seconds passes, or Ctrl-C.\n",
    {kVoice, kSet, kOutput, {"--seconds", "N", "stop after N seconds"}, quietOption()}, "", play});

}  // namespace
}  // namespace parlova::cli
