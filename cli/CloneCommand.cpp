// parlova-cli clone ...: cloned voices from the command line, through the same
// library and cloner the window uses. Progress goes to stderr; failures print
// the program's own sentence and exit non-zero.
#include "cli/Command.h"
#include "cli/SignalWatch.h"
#include "cloning/CloneLibrary.h"
#include "cloning/Generation.h"
#include "cloning/ReadingScripts.h"
#include "cloning/SampleRecording.h"
#include "cloning/Transcriber.h"
#include "cloning/VoiceCloner.h"
#include "media/AudioFile.h"
#include "engine/VoiceEngine.h"

#include <QEventLoop>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>
#include <map>

namespace parlova::cli {
namespace {

// The option values of one action, as its functions below read them.
struct Args {
    std::vector<std::string> words;  // the action's name, then its operands
    std::map<std::string, std::string> options;
};

QString q(const std::string& s) { return QString::fromStdString(s); }
void say(const QString& line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }
int fail(const QString& sentence) {
    say(sentence);
    return 1;
}

std::optional<double> number(const Args& a, const char* option, double fallback) {
    const auto it = a.options.find(option);
    if (it == a.options.end()) return fallback;
    char* end = nullptr;
    const double value = std::strtod(it->second.c_str(), &end);
    if (*end != '\0' || !(value > 0)) {
        std::fprintf(stderr, "%s needs a positive number.\n", option);
        return std::nullopt;
    }
    return value;
}

std::optional<ClonedVoice> voiceNamed(const CloneLibrary& library, const std::string& name) {
    auto voice = library.find(q(name));
    if (!voice) say("There is no cloned voice called \"" + q(name) + "\". See \"parlova-cli clone list\".");
    return voice;
}

// Runs the event loop until `start` calls the completion it is given.
template <typename Start>
void waitFor(Start start) {
    QEventLoop loop;
    bool finished = false;
    start([&] {
        finished = true;
        loop.quit();
    });
    if (!finished) loop.exec();
}

// Status lines of the cloner as they change.
void showProgress(VoiceCloner& cloner) {
    QObject::connect(&cloner, &VoiceCloner::statusChanged, [&cloner] { say(cloner.status()); });
}

// Copies a WAV the worker wrote to `destination`, in the format its extension names.
bool saveAudio(const QString& wav, const QString& destination) {
    try {
        if (destination.endsWith(".wav", Qt::CaseInsensitive)) {
            QFile::remove(destination);
            if (!QFile::copy(wav, destination)) throw VoiceEngineError("Couldn't write " + destination.toStdString() + ".");
            return true;
        }
        auto in = AudioFileReader::open(wav.toStdString());
        auto out = AudioFileWriter::create(destination.toStdString(), in->format());
        std::vector<const float*> channels;
        for (int c = 0; c < in->format().channels; ++c) channels.push_back(in->channelData(c));
        out->write(channels.data(), int(in->frameLength()));
        out->finish();
        return true;
    } catch (const VoiceEngineError& error) {
        say(QString::fromStdString(error.errorDescription()));
        return false;
    }
}

// Adds the file as a sample. Without a transcript given, the words are
// recognised on this machine (snapped to `script` when it was read from one).
int addSample(CloneLibrary& library, const ClonedVoice& voice, const QString& file, const Args& a,
              const QStringList& script = {}) {
    QString transcript = a.options.count("--transcript") ? q(a.options.at("--transcript")) : QString();
    try {
        const VoiceSample sample = library.addSample(voice.id, file, transcript);
        say(QString::asprintf("Added a sample of %.1f s.", sample.duration));
        if (SampleRecording::isShort(sample.duration)) say(SampleRecording::shortSampleMark());
        if (!transcript.isEmpty()) return 0;
        VoiceCloner cloner;
        const Transcriber transcriber(&cloner);
        if (!transcriber.isAvailable()) {
            say("No transcript yet: install pocketsphinx-en-us or set up voice cloning to have samples transcribed, or give --transcript.");
            return 0;
        }
        say("Transcribing\xE2\x80\xA6");
        std::optional<QString> heard;
        waitFor([&](auto done) {
            transcriber.transcribe(library.samplePath(voice.id, sample), script, [&, done](const auto& text) {
                heard = text;
                done();
            });
        });
        if (!heard) {
            say("No words could be made out; the sample was kept without a transcript.");
            return 0;
        }
        library.setTranscript(*heard, sample.id, voice.id);
        say("Transcript: " + *heard);
        return 0;
    } catch (const VoiceEngineError& error) {
        return fail(SampleRecording::addFailed(QString::fromStdString(error.errorDescription())));
    }
}

int list(CloneLibrary& library) {
    VoiceCloner cloner;
    for (const auto& v : library.voices()) {
        std::printf("%s%s\t%s\n", library.selectedID() == v.id ? "* " : "  ", v.name.toUtf8().constData(),
                    Generation::voiceSummary(v, Generation::model(QSettings())).toUtf8().constData());
    }
    std::printf("Voice cloning is %s.\n", cloner.isInstalled() ? "set up" : "not set up (parlova-cli clone setup)");
    return 0;
}

int samples(const ClonedVoice& voice) {
    const QSet<QUuid> fast = usedSamples(CloneModel::fast, voice), best = usedSamples(CloneModel::best, voice);
    for (const auto& s : voice.samples) {
        std::printf("%5.1f s  %s%s  %s\n", s.duration, fast.contains(s.id) ? "fast " : "     ",
                    best.contains(s.id) ? "best" : "    ", s.transcript.isEmpty() ? "(no transcript)" : s.transcript.toUtf8().constData());
        if (SampleRecording::isShort(s.duration)) std::printf("         %s\n", SampleRecording::shortSampleMark().toUtf8().constData());
    }
    if (voice.samples.isEmpty()) std::printf("No samples yet.\n");
    return 0;
}

int setup() {
    VoiceCloner cloner;
    showProgress(cloner);
    cloner.install();
    if (cloner.state() != VoiceCloner::State::installing) return 1;  // the status said why
    waitFor([&](auto done) {
        QObject::connect(&cloner, &VoiceCloner::stateChanged, [&cloner, done] {
            if (cloner.state() != VoiceCloner::State::installing) done();
        });
    });
    return cloner.state() == VoiceCloner::State::ready ? 0 : 1;
}

int sayText(CloneLibrary& library, const ClonedVoice& voice, const Args& a) {
    CloneModel model = Generation::model(QSettings());
    if (a.options.count("--model")) {
        const auto chosen = cloneModelFromRaw(q(a.options.at("--model")));
        if (!chosen) return fail("--model is fast or best.");
        model = *chosen;
    }
    const auto seed = number(a, "--seed", Generation::kGenerateSeed);
    if (!seed) return 2;
    const QString text = q(a.words.size() > 2 ? a.words[2] : "");
    if (const QString blocker = Generation::blocker(model, voice, a.options.count("--permission") > 0, text);
        !blocker.isEmpty())
        return fail(blocker);
    if (!isDownloaded(model)) say("The voice model downloads the first time it speaks; this takes a while.");
    VoiceCloner cloner;
    showProgress(cloner);
    std::optional<Take> take;
    QString error;
    waitFor([&](auto done) {
        cloner.generate(text, library.target(voice.id), model, int(*seed),
                        [&, done](const std::optional<Take>& t, const QString& e) {
                            take = t;
                            error = e;
                            done();
                        });
    });
    if (!take) return fail(error);
    if (take->verified == false) say(Generation::mayBeCutOff());
    const QString out = a.options.count("--out") ? q(a.options.at("--out")) : take->file;
    if (out != take->file && !saveAudio(take->file, out)) return 1;
    std::printf("%s\n", out.toUtf8().constData());
    return 0;
}

int convert(CloneLibrary& library, const ClonedVoice& voice, const QString& in, const QString& out) {
    VoiceCloner cloner;
    showProgress(cloner);
    QString converted, error;
    waitFor([&](auto done) {
        cloner.convert(in, library.target(voice.id), false, [&, done](const QString& o, const QString& e) {
            converted = o;
            error = e;
            done();
        });
    });
    if (!error.isEmpty()) return fail("Couldn't convert the clip to " + voice.name + "'s voice: " + error);
    const bool saved = saveAudio(converted, out);
    QFile::remove(converted);
    return saved ? 0 : 1;
}

int transcribe(const QString& file) {
    VoiceCloner cloner;
    std::optional<QString> text;
    QString error;
    waitFor([&](auto done) {
        cloner.transcribe(file, [&, done](const std::optional<QString>& t, const QString& e) {
            text = t;
            error = e;
            done();
        });
    });
    if (!error.isEmpty()) return fail(error);
    if (!text) return fail("No words could be made out in " + QFileInfo(file).fileName() + ".");
    std::printf("%s\n", text->toUtf8().constData());
    return 0;
}

int recordSample(CloneLibrary& library, const ClonedVoice& voice, const Args& a) {
    const auto seconds = number(a, "--seconds", 15);
    const auto count = number(a, "--count", SampleRecording::kScriptSentences);
    if (!seconds || !count) return 2;
    const QStringList script = ReadingScripts::nextSentences(voice, int(*count));
    say("Read this aloud in your normal voice. Each script uses sentences this voice hasn't read yet:\n\n  " +
        script.join(' ') + "\n");
    say(SampleRecording::hint());
    VoiceEngine engine(nullptr, &AudioBackend::system(), BackendJobs::shared());
    QObject::connect(&engine, &VoiceEngine::errorMessageChanged, [&engine] { say(engine.errorMessage()); });
    quitOnSignals(&engine);
    const double limit = std::min(*seconds, SampleRecording::kAutoStopSeconds);
    QObject::connect(&engine, &VoiceEngine::liveStarted,
                     [&] { say(QString::asprintf("Recording for %.0f s\xE2\x80\xA6", limit)); });
    QObject::connect(&engine, &VoiceEngine::recordingChanged, [&] {
        if (!engine.isRecording()) QCoreApplication::quit();
    });
    engine.toggleRecording();
    if (!engine.isRecording()) return 1;
    engine.stopRecordingAfter(limit);
    QCoreApplication::exec();
    if (engine.isRecording()) engine.toggleRecording();
    if (engine.clipURL().isEmpty()) return 1;
    if (const auto rejected = SampleRecording::rejection(engine.clipDuration())) return fail(*rejected);
    return addSample(library, voice, engine.clipURL(), a, script);
}

// "clone live NAME" is "live --clone NAME": the same command, options and exit codes.
int live(const ClonedVoice& voice, const Args& a) {
    std::vector<std::string> words{"--clone", voice.name.toStdString()};
    for (const char* option : {"--latency", "--seconds"})
        if (a.options.count(option)) words.insert(words.end(), {option, a.options.at(option)});
    if (a.options.count("--call")) words.push_back("--call");
    const Command* command = findCommand("live");
    return command->run(parseArguments(*command, words));
}

int run(const std::string& sub, const Arguments& parsed, const std::vector<std::string>& optionNames) {
    Args a;
    a.words.push_back(sub);
    a.words.insert(a.words.end(), parsed.operands().begin(), parsed.operands().end());
    for (const std::string& name : optionNames)
        if (parsed.has(name)) a.options[name] = parsed.value(name, "1");
    if (sub == "setup") return setup();
    if (sub == "transcribe") return transcribe(q(a.words[1]));

    CloneLibrary library;
    if (!library.keptAsidePath().isEmpty())
        say("The cloned voices couldn't be read; the file was kept as " + library.keptAsidePath() + ".");
    if (sub == "list") return list(library);
    if (sub == "create") {
        if (library.find(q(a.words[1]))) return fail("There is already a cloned voice called \"" + q(a.words[1]) + "\".");
        library.createVoice(q(a.words[1]));
        return library.saveError().isEmpty() ? 0 : fail(library.saveError());
    }
    const auto voice = voiceNamed(library, a.words[1]);
    if (!voice) return 1;
    int code = 1;
    if (sub == "rename") code = (library.rename(voice->id, q(a.words[2])), 0);
    else if (sub == "delete") code = (library.deleteVoice(voice->id), 0);
    else if (sub == "samples") code = samples(*voice);
    else if (sub == "script") {
        const auto count = number(a, "--count", SampleRecording::kScriptSentences);
        if (!count) return 2;
        std::printf("%s\n", ReadingScripts::next(*voice, int(*count)).toUtf8().constData());
        code = 0;
    } else if (sub == "add-sample") code = addSample(library, *voice, q(a.words[2]), a);
    else if (sub == "record-sample") code = recordSample(library, *voice, a);
    else if (sub == "say") code = sayText(library, *voice, a);
    else if (sub == "convert") code = convert(library, *voice, q(a.words[2]), q(a.words[3]));
    else if (sub == "live") code = live(*voice, a);
    if (code == 0 && !library.saveError().isEmpty()) return fail(library.saveError());
    return code;
}

// One registration per action; the function reads the options it declares.
CommandRegistration action(const std::string& sub, const std::string& summary, std::vector<std::string> operands,
                           const std::string& description, std::vector<Option> options) {
    std::vector<std::string> names;
    for (const Option& option : options) names.push_back(option.name);
    return CommandRegistration({"clone " + sub, summary, std::move(operands), description, std::move(options), "",
                                [sub, names](const Arguments& args) { return run(sub, args, names); }});
}

int needsAction(const Arguments&) {
    throw UsageError("Name an action: list, create, rename, delete, add-sample, samples, script, record-sample, "
                     "setup, say, convert, transcribe or live.");
}

const Option kSeconds{"--seconds", "N", "Stop after N seconds"};
const Option kCount{"--count", "N", "Sentences in the script (3 by default)"};
const Option kTranscript{"--transcript", "TEXT", "The words spoken in the sample (else it is transcribed)"};

CommandRegistration cloneCommand(
    {"clone", "Cloned voices: samples, setup, speech and live", {},
     "Cloned voices: samples of a real speaker (yours, or one who gave permission),\n"
     "spoken back by a local speech model. Nothing leaves this machine.\n",
     {}, "", needsAction});
CommandRegistration listAction = action("list", "List the cloned voices", {}, "Lists the cloned voices and their samples.\n", {});
CommandRegistration createAction = action("create", "Make a new cloned voice without samples", {"NAME"},
                                          "Makes a new cloned voice without samples.\n", {});
CommandRegistration renameAction = action("rename", "Rename a cloned voice", {"NAME", "NEW"}, "Renames a cloned voice.\n", {});
CommandRegistration deleteAction = action("delete", "Delete a cloned voice and its samples", {"NAME"},
                                          "Deletes a cloned voice and its samples.\n", {});
CommandRegistration addSampleAction = action("add-sample", "Copy an audio file in as a sample", {"NAME", "FILE"},
                                             "Copies an audio file into the voice as a sample.\n", {kTranscript});
CommandRegistration samplesAction = action("samples", "List a voice's samples, first first", {"NAME"},
                                           "Lists a voice's samples in the order the models hear them.\n", {});
CommandRegistration scriptAction = action("script", "Sentences to read for the next sample", {"NAME"},
                                          "Prints sentences this voice hasn't read yet, to read for the next sample.\n",
                                          {kCount});
CommandRegistration recordAction = action(
    "record-sample", "Record yourself reading a script and add it", {"NAME"},
    "Shows a script, records you reading it (N s, at most 25; 15 by default) and adds\nit as a sample.\n",
    {kSeconds, kCount, kTranscript});
CommandRegistration setupAction = action("setup", "Set up voice cloning on this machine (once)", {},
                                         "Sets up the local speech runtime voice cloning needs (once).\n", {});
CommandRegistration sayAction = action(
    "say", "Speak text in a cloned voice", {"NAME", "TEXT"},
    "Speaks TEXT in the voice. --permission confirms it is your own voice or you have\nthe speaker's permission "
    "to clone it.\n",
    {{"--permission", "", "Confirm you may clone this voice"},
     {"--model", "fast|best", "The speech model (as chosen last time by default)"},
     {"--seed", "N", "Another number gives another delivery (42 by default)"},
     {"--out", "FILE", "Where to write the take (else the Clones folder)"}});
CommandRegistration convertAction = action("convert", "Re-speak a clip in a cloned voice", {"NAME", "IN", "OUT"},
                                           "Re-speaks the clip IN in the voice and writes OUT.\n", {});
CommandRegistration transcribeAction = action("transcribe", "Print the words spoken in a file", {"FILE"},
                                              "Prints the words spoken in FILE.\n", {});
CommandRegistration liveAction = action(
    "live", "Talk live in a cloned voice (the same as 'live --clone NAME')", {"NAME"},
    "Talks live in the cloned voice until Ctrl-C: 'parlova-cli live --clone NAME', which also\n"
    "takes the devices, push to talk and --json.\n",
    {{"--latency", "fastest|balanced|clearest", "How far behind you the voice runs"},
     {"--call", "", "Call apps hear the voice through \"Parlova Mic\""},
     kSeconds});

}  // namespace
}  // namespace parlova::cli
