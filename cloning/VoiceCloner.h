#pragma once
// The voice cloner: owns the clone worker (a Python program started on first
// use and kept running) and every request to it, the one-step setup of its
// runtime, and the takes of generated speech.
//
// Main thread only; nothing here waits on the worker. Every request completes
// exactly once through its callback: with the worker's reply, or with a
// finished sentence when the worker answers with an error, exits or can't be
// written to.
//
// For the cloned-voice page:
//   state / status / takes / errorMessage (+ change signals), progressChanged
//   install()                           sets up the runtime (state installing -> ready)
//   generate(text, voice, model, seed)  a new Take at the top of takes(); anotherTake(take, voice)
//   transcribe(path), prepare(voice)    worker requests with a completion
//   convert(source, voice, live)        a clip re-spoken in the voice (engine)
//   startStream / stream / stopStream   live speech in the voice (engine)
//   stopWorker()                        ends a worker that hangs
#include "cloning/CloneLatency.h"
#include "cloning/CloneModel.h"
#include "cloning/ClonedVoice.h"
#include "cloning/WorkerChannel.h"

#include <QJsonObject>
#include <QObject>
#include <QProcessEnvironment>

#include <functional>
#include <map>
#include <memory>

class QProcess;

namespace parlova {

// One piece of generated speech; its audio is the WAV file at `file`.
struct Take {
    QUuid id;
    QString text;
    QString voiceName;
    CloneModel model = CloneModel::fast;
    double duration = 0;  // seconds of speech
    int samplesUsed = 1;
    // true: every word was heard in the take; false: words may be missing;
    // none: the worker didn't check.
    std::optional<bool> verified;
    QString file;
    bool operator==(const Take&) const = default;
};

struct VoiceClonerOptions {
    QString supportDirectory;  // empty: the user's support folder
    QString interpreter;       // empty: the lab's environment
    QString workerScript;      // empty: the lab's copy, else the source folder's
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

class VoiceCloner : public QObject {
    Q_OBJECT
public:
    enum class State { notInstalled, installing, ready, working };
    Q_ENUM(State)

    using Completion = std::function<void(const CloneResult&)>;
    using Done = std::function<void(const QString& error)>;  // empty error: it worked

    using Options = VoiceClonerOptions;

    explicit VoiceCloner(Options options = {}, QObject* parent = nullptr);
    ~VoiceCloner() override;

    State state() const { return state_; }
    QString status() const { return status_; }
    const QList<Take>& takes() const { return takes_; }
    QString errorMessage() const { return errorMessage_; }
    void setErrorMessage(const QString& message);

    // Folders: the support folder, its "voice-lab" (the runtime's checkout),
    // "Clones" (generated speech); the interpreter setup creates.
    QString supportDirectory() const { return supportDirectory_; }
    QString labDirectory() const;
    QString outputDirectory() const;
    QString interpreter() const;
    QString workerScriptPath() const;
    bool isInstalled() const;
    bool workerRunning() const { return worker_ != nullptr; }

    // Setup (see CloneSetup.h for the script). Progress in status.
    void install();

    // Starts the worker unless one runs; `done` once it is ready.
    void startWorkerIfNeeded(Done done);
    // Sends a request with a fresh id; `done` gets its reply or failure once.
    void send(QJsonObject request, Completion done);
    // Ends the worker; requests waiting fail with the exit sentence.
    void stopWorker();

    // Generation: a Take inserted first in takes(), status "Done: …".
    void generate(const QString& text, const CloneTarget& voice, CloneModel model, int seed,
                  std::function<void(const std::optional<Take>&, const QString& error)> done = {});
    // Another Take: the same text, voice and model with a fresh random seed.
    void anotherTake(const Take& take, const CloneTarget& voice,
                     std::function<void(const std::optional<Take>&, const QString& error)> done = {});
    void transcribe(const QString& path, std::function<void(const std::optional<QString>& text, const QString& error)> done);
    void prepare(const CloneTarget& voice, Done done = {});
    // Re-speaks a clip in the voice; `done` gets the converted WAV's path.
    void convert(const QString& source, const CloneTarget& voice, bool live,
                 std::function<void(const QString& output, const QString& error)> done);

    // Live streaming. Converted blocks reach the receiver on the worker's
    // reader thread; the reply gives "sample_rate" and "block_samples".
    void startStream(const CloneTarget& voice, CloneLatency profile, int sampleRate, Completion done);
    void stream(const float* samples, size_t count);
    void stopStream();
    void setStreamReceiver(WorkerChannel::StreamReceiver receiver);
    // The live input, polled on the worker's reader thread while set.
    void setStreamSource(WorkerChannel::StreamSource source);

    static QString notSetUpForStreaming() {
        return QStringLiteral("Voice cloning isn't set up yet. Open the cloned voice's page and press Set Up Voice Cloning.");
    }
    static QString notSetUpForConversion() {
        return QStringLiteral("Set up voice cloning on a cloned voice's page first.");
    }
    static QString scriptMissing() { return QStringLiteral("The clone worker script is missing from the app."); }

signals:
    void stateChanged();
    void statusChanged();
    void takesChanged();
    void errorMessageChanged();
    // A request was written: its id (for tracing and tests).
    void requestSent(qint64 id);

private:
    friend class CloneSetup;
    void setState(State state);
    void setStatus(const QString& status);
    void handleMessage(const QJsonObject& message);
    void workerExited(WorkerChannel* channel);
    void failPending(const QString& message);
    void writeFailed(qint64 id);
    void beginWork();
    void endWork();
    static QJsonArray references(const CloneTarget& voice);
    QProcessEnvironment workerEnvironment() const;

    Options options_;
    QString supportDirectory_;
    State state_ = State::notInstalled;
    QString status_;
    QList<Take> takes_;
    QString errorMessage_;
    int working_ = 0;

    std::unique_ptr<WorkerChannel> worker_;
    bool workerIsReady_ = false;
    qint64 nextRequestID_ = 1;
    std::map<qint64, Completion> pending_;
    QList<Done> workerReady_;
    WorkerChannel::StreamReceiver streamReceiver_;
    WorkerChannel::StreamSource streamSource_;

    QProcess* setup_ = nullptr;
    QString setupLastLine_;
    QString labKey_;  // what the lab's ready mark must say for it to be current
};

}  // namespace parlova
