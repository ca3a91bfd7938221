#include "cloning/VoiceCloner.h"

#include "cloning/CloneSetup.h"
#include "cloning/Generation.h"
#include "devices/LegacyMigration.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace parlova {

VoiceCloner::VoiceCloner(Options options, QObject* parent)
    : QObject(parent),
      options_(std::move(options)),
      supportDirectory_(options_.supportDirectory.isEmpty() ? LegacyMigration::supportDirectory()
                                                            : options_.supportDirectory),
      labKey_(SetupPlan::forSupportDirectory(supportDirectory_, options_.environment).key) {
    state_ = isInstalled() ? State::ready : State::notInstalled;
    if (state_ == State::notInstalled && options_.interpreter.isEmpty() && !readyKey(labDirectory()).isEmpty())
        status_ = QStringLiteral("Parlova was updated. Set up voice cloning again to bring its speech runtime up to date.");
}

VoiceCloner::~VoiceCloner() {
    // The worker is killed with its channel; nobody is told any more.
    pending_.clear();
    workerReady_.clear();
}

QString VoiceCloner::labDirectory() const { return QDir(supportDirectory_).filePath("voice-lab"); }
QString VoiceCloner::outputDirectory() const { return QDir(supportDirectory_).filePath("Clones"); }

QString VoiceCloner::interpreter() const {
    return options_.interpreter.isEmpty() ? QDir(labDirectory()).filePath("worker/.venv/bin/python")
                                          : options_.interpreter;
}

QString VoiceCloner::workerScriptPath() const {
    if (!options_.workerScript.isEmpty()) return QFileInfo::exists(options_.workerScript) ? options_.workerScript : QString();
    // The lab's own copy matches the runtime it was set up with.
    const QString inLab = QDir(labDirectory()).filePath("worker/clone_worker.py");
    return QFileInfo::exists(inLab) ? inLab : QString();
}

bool VoiceCloner::isInstalled() const {
    const QFileInfo python(interpreter());
    if (!python.exists() || !python.isExecutable()) return false;
    // An interpreter given by the caller is taken as it is; the lab's counts
    // once a setup of these very files has finished in it.
    return !options_.interpreter.isEmpty() || readyKey(labDirectory()) == labKey_;
}

void VoiceCloner::setState(State state) {
    if (state_ == state) return;
    state_ = state;
    emit stateChanged();
}

void VoiceCloner::setStatus(const QString& status) {
    if (status_ == status) return;
    status_ = status;
    emit statusChanged();
}

void VoiceCloner::setErrorMessage(const QString& message) {
    if (errorMessage_ == message) return;
    errorMessage_ = message;
    emit errorMessageChanged();
}

QProcessEnvironment VoiceCloner::workerEnvironment() const {
    QProcessEnvironment environment = options_.environment;
    environment.insert("PYTHONUNBUFFERED", "1");
    environment.insert("PATH", childPath(options_.environment));
    return environment;
}

void VoiceCloner::startWorkerIfNeeded(Done done) {
    if (worker_ && workerIsReady_) {
        done({});
        return;
    }
    if (worker_) {  // started, not ready yet
        workerReady_.append(std::move(done));
        return;
    }
    const QString script = workerScriptPath();
    if (script.isEmpty()) {
        done(scriptMissing());
        return;
    }
    if (!isInstalled()) {
        done(notSetUpForStreaming());
        return;
    }
    setStatus("Starting the voice model…");
    QDir().mkpath(supportDirectory_);
    WorkerChannel::Launch launch;
    launch.program = interpreter();
    launch.arguments = {script};
    launch.workingDirectory = QFileInfo(labDirectory()).isDir() ? labDirectory() : QFileInfo(script).absolutePath();
    launch.environment = workerEnvironment();
    // The worker's own diagnostics, kept for a bug report; a support folder
    // that can't be written to doesn't stop the worker.
    if (QFileInfo(supportDirectory_).isWritable()) launch.errorLog = QDir(supportDirectory_).filePath("clone-worker.log");
    worker_ = std::make_unique<WorkerChannel>();
    workerIsReady_ = false;
    WorkerChannel* channel = worker_.get();
    connect(channel, &WorkerChannel::messageReceived, this, &VoiceCloner::handleMessage);
    connect(channel, &WorkerChannel::writeFailed, this, &VoiceCloner::writeFailed);
    connect(channel, &WorkerChannel::exited, this, [this, channel] { workerExited(channel); });
    channel->setStreamReceiver(streamReceiver_);
    channel->setStreamSource(streamSource_);
    workerReady_.append(std::move(done));
    channel->start(launch);
}

void VoiceCloner::handleMessage(const QJsonObject& message) {
    const QJsonObject* object = &message;
    if (object->value("ready") == QJsonValue(true)) {
        workerIsReady_ = true;
        const QList<Done> waiting = std::exchange(workerReady_, {});
        for (const auto& done : waiting) done({});
        return;
    }
    if (object->value("status").isString()) {
        setStatus(object->value("status").toString());
        return;
    }
    const QJsonValue id = object->value("id");
    if (!id.isDouble()) return;
    const auto entry = pending_.find(qint64(id.toDouble()));
    if (entry == pending_.end()) return;  // not a request of ours (any more)
    // Taken out of the map before it runs: a completion is resumed once.
    Completion done = std::move(entry->second);
    pending_.erase(entry);
    done(resultFromLine(*object));
}

void VoiceCloner::failPending(const QString& message) {
    auto waiting = std::exchange(pending_, {});
    const auto starting = std::exchange(workerReady_, {});
    for (auto& [id, done] : waiting) done(CloneResult::failure(message));
    for (const auto& done : starting) done(message);
}

void VoiceCloner::workerExited(WorkerChannel* channel) {
    if (worker_.get() != channel) return;  // an earlier worker's late exit
    // The channel is deleted after this signal has been delivered.
    worker_.release()->deleteLater();
    workerIsReady_ = false;
    QString message = kWorkerStoppedMessage;
    if (!status_.isEmpty()) message += " Last message: " + status_;
    failPending(message);
}

void VoiceCloner::writeFailed(qint64 id) {
    const auto entry = pending_.find(id);
    if (entry == pending_.end()) return;
    Completion done = std::move(entry->second);
    pending_.erase(entry);
    done(CloneResult::failure(kWorkerStoppedMessage));
}

void VoiceCloner::stopWorker() {
    if (worker_) worker_->kill();
}

void VoiceCloner::send(QJsonObject request, Completion done) {
    if (!worker_ || !workerIsReady_) {
        done(CloneResult::failure(kWorkerNotRunningMessage));
        return;
    }
    const qint64 id = nextRequestID_++;
    request.insert("id", id);
    pending_.emplace(id, std::move(done));
    worker_->write(QJsonDocument(request).toJson(QJsonDocument::Compact), id);
    emit requestSent(id);
}

QJsonArray VoiceCloner::references(const CloneTarget& voice) {
    QJsonArray list;
    for (const auto& sample : voice.samples)
        list.append(QJsonObject{{"path", sample.path}, {"transcript", sample.transcript}});
    return list;
}

void VoiceCloner::beginWork() {
    if (working_++ == 0) setState(State::working);
}

void VoiceCloner::endWork() {
    if (working_ > 0 && --working_ == 0 && state_ == State::working)
        setState(isInstalled() ? State::ready : State::notInstalled);
}

void VoiceCloner::generate(const QString& text, const CloneTarget& voice, CloneModel model, int seed,
                           std::function<void(const std::optional<Take>&, const QString&)> done) {
    beginWork();
    setErrorMessage({});
    auto finish = [this, done](const std::optional<Take>& take, const QString& error) {
        if (!error.isEmpty()) setErrorMessage(error);
        endWork();
        if (done) done(take, error);
    };
    startWorkerIfNeeded([=, this](const QString& error) {
        if (!error.isEmpty()) return finish(std::nullopt, error);
        QDir().mkpath(outputDirectory());
        const QString stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).replace(':', '-');
        const QString output = QDir(outputDirectory()).filePath("clone-" + stamp + ".wav");
        const QJsonObject request{{"model", workerName(model)}, {"references", references(voice)},
                                  {"max_seconds", listenSeconds(model)}, {"text", text},
                                  {"output", output}, {"seed", seed}};
        send(request, [=, this](const CloneResult& result) {
            if (!result.ok()) return finish(std::nullopt, result.error);
            const CloneReply& reply = *result.reply;
            Take take{QUuid::createUuid(), text, voice.name, model, reply.duration, reply.samplesUsed,
                      reply.verified, reply.output};
            takes_.prepend(take);
            emit takesChanged();
            setStatus(QString::asprintf("Done: %.1f s of speech in %.1f s.", reply.duration, reply.elapsed));
            finish(take, {});
        });
    });
}

void VoiceCloner::anotherTake(const Take& take, const CloneTarget& voice,
                              std::function<void(const std::optional<Take>&, const QString&)> done) {
    generate(take.text, voice, take.model, Generation::anotherTakeSeed(), std::move(done));
}

void VoiceCloner::transcribe(const QString& path,
                             std::function<void(const std::optional<QString>&, const QString&)> done) {
    startWorkerIfNeeded([=, this](const QString& error) {
        if (!error.isEmpty()) return done(std::nullopt, error);
        send(QJsonObject{{"op", "transcribe"}, {"source", QFileInfo(path).absoluteFilePath()}},
             [done](const CloneResult& result) {
                 if (!result.ok()) return done(std::nullopt, result.error);
                 const QString text = result.reply->text.value_or(QString()).trimmed();
                 done(text.isEmpty() ? std::nullopt : std::optional<QString>(text), {});
             });
    });
}

void VoiceCloner::prepare(const CloneTarget& voice, Done done) {
    startWorkerIfNeeded([=, this](const QString& error) {
        if (!error.isEmpty()) return done ? done(error) : void();
        send(QJsonObject{{"op", "prepare"}, {"references", references(voice)}}, [done](const CloneResult& result) {
            if (done) done(result.error);
        });
    });
}

void VoiceCloner::convert(const QString& source, const CloneTarget& voice, bool live,
                          std::function<void(const QString&, const QString&)> done) {
    if (!isInstalled()) return done({}, notSetUpForConversion());
    startWorkerIfNeeded([=, this](const QString& error) {
        if (!error.isEmpty()) return done({}, error);
        const QString output = QDir(QDir::tempPath())
                                   .filePath("Parlova-converted-" + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                             ".wav");
        const QJsonObject request{{"op", "convert"}, {"live", live}, {"references", references(voice)},
                                  {"source", QFileInfo(source).absoluteFilePath()}, {"output", output}};
        send(request, [done](const CloneResult& result) {
            if (!result.ok()) return done({}, result.error);
            done(result.reply->output, {});
        });
    });
}

void VoiceCloner::startStream(const CloneTarget& voice, CloneLatency profile, int sampleRate, Completion done) {
    if (!isInstalled()) return done(CloneResult::failure(notSetUpForStreaming()));
    startWorkerIfNeeded([=, this](const QString& error) {
        if (!error.isEmpty()) return done(CloneResult::failure(error));
        send(QJsonObject{{"op", "stream_start"}, {"references", references(voice)},
                         {"profile", rawValue(profile)}, {"sample_rate", sampleRate}},
             done);
    });
}

void VoiceCloner::stream(const float* samples, size_t count) {
    if (!worker_ || count == 0) return;
    worker_->write("{\"op\":\"stream\",\"pcm\":\"" + encodeSamples(samples, count) + "\"}");
}

void VoiceCloner::stopStream() {
    if (worker_) worker_->write(R"({"op":"stream_stop"})");
}

void VoiceCloner::setStreamSource(WorkerChannel::StreamSource source) {
    streamSource_ = std::move(source);
    if (worker_) worker_->setStreamSource(streamSource_);
}

void VoiceCloner::setStreamReceiver(WorkerChannel::StreamReceiver receiver) {
    streamReceiver_ = std::move(receiver);
    if (worker_) worker_->setStreamReceiver(streamReceiver_);
}

}  // namespace parlova
