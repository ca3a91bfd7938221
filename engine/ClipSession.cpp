#include "engine/ClipSession.h"

#include "common/VoiceEngineError.h"
#include "engine/ActiveChains.h"
#include "media/AudioFile.h"
#include "engine/LevelMonitor.h"
#include "engine/LiveRouting.h"
#include "devices/AudioDeviceList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QStandardPaths>
#include <QUuid>

#include <sys/stat.h>

namespace parlova {

QString recordingsFolder() {
    // The runtime folder is the user's own and lives in memory; without one,
    // the user's cache folder.
    QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (base.isEmpty() || !QFileInfo(base).isDir())
        base = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    const QString folder = QDir(base).filePath(QStringLiteral("parlova-recordings"));
    QDir().mkpath(folder);
    // Only the user may read what the microphone heard.
    ::chmod(QFile::encodeName(folder).constData(), 0700);
    return folder;
}

ClipSession::ClipSession(AudioBackend* backend, BackendJobs& jobs, ActiveChains& chains, Meter meter, QObject* parent)
    : QObject(parent), backend_(backend), jobs_(jobs), chains_(chains), meter_(std::move(meter)) {
    playbackPoll_.setInterval(50);
    connect(&playbackPoll_, &QTimer::timeout, this, [this] {
        if (playback_ && playback_->finished()) stopPlayback();
    });
}

ClipSession::~ClipSession() {
    stopPlayback();
    if (exportThread_.joinable()) exportThread_.join();
    if (auto file = sink_->takeFile()) {
        try {
            file->finish();
        } catch (const VoiceEngineError&) {
        }
    }
    if (!recordingURL_.isEmpty()) QFile::remove(recordingURL_);
    forgetOwnRecording();
}

void ClipSession::forgetOwnRecording() {
    if (!ownRecording_.isEmpty()) QFile::remove(ownRecording_);
    ownRecording_.clear();
}

bool ClipSession::load(const QString& path) {
    try {
        auto reader = AudioFileReader::open(path.toStdString());
        clipDuration_ = static_cast<double>(reader->frameLength()) / reader->format().sampleRate;
        if (path != ownRecording_) forgetOwnRecording();
        clipURL_ = path;
        emit clipChanged();
        return true;
    } catch (const VoiceEngineError& error) {
        emit failed(QString(kCouldNotOpenPrefix) + QString::fromStdString(error.errorDescription()));
        return false;
    }
}

void ClipSession::setExporting(bool on) {
    if (isExporting_ == on) return;
    isExporting_ = on;
    emit exportingChanged();
}

bool ClipSession::exportClipAndWait(const QString& destination, const Voice& voice, const RenderProgress& progress) {
    if (clipURL_.isEmpty() || isExporting_) return false;
    setExporting(true);
    bool ok = true;
    try {
        renderOffline(clipURL_.toStdString(), destination.toStdString(), voice, progress, cleanMic_);
    } catch (const VoiceEngineError& error) {
        emit failed(QString(kExportFailedPrefix) + QString::fromStdString(error.errorDescription()));
        ok = false;
    }
    setExporting(false);
    emit exportFinished(destination, ok);
    return ok;
}

bool ClipSession::exportClip(const QString& destination, const Voice& voice, const QString& sourcePath) {
    if (clipURL_.isEmpty() || isExporting_) return false;
    if (exportThread_.joinable()) exportThread_.join();
    setExporting(true);
    exportProgress_ = 0;
    emit exportProgressChanged();
    const std::string source = (sourcePath.isEmpty() ? clipURL_ : sourcePath).toStdString();
    QPointer<ClipSession> self(this);
    exportThread_ = std::thread([self, source, destination, voice, cleanMic = cleanMic_] {
        QString failure;
        try {
            renderOffline(source, destination.toStdString(), voice, [self](double fraction) {
                QMetaObject::invokeMethod(self, [self, fraction] {
                    if (!self) return;
                    self->exportProgress_ = fraction;
                    emit self->exportProgressChanged();
                });
                return true;
            }, cleanMic);
        } catch (const VoiceEngineError& error) {
            failure = QString(kExportFailedPrefix) + QString::fromStdString(error.errorDescription());
        }
        QMetaObject::invokeMethod(self, [self, failure, destination] {
            if (!self) return;
            if (!failure.isEmpty()) emit self->failed(failure);
            self->setExporting(false);
            emit self->exportFinished(destination, failure.isEmpty());
        });
    });
    return true;
}

void ClipSession::beginRecording() {
    stopPlayback();
    sink_->setFile(nullptr);  // no file yet, and the last recording's count goes
    recordingURL_ = QDir(recordingsFolder()).filePath(QStringLiteral("recording-") +
                                                      QUuid::createUuid().toString(QUuid::WithoutBraces) + ".wav");
}

void ClipSession::openRecordingFile(const AudioFormat& format) {
    if (recordingURL_.isEmpty() || sink_->hasFile()) return;
    try {
        sink_->setFile(AudioFileWriter::create(recordingURL_.toStdString(), format, AudioFileType::wav));
    } catch (const VoiceEngineError& error) {
        recordingURL_.clear();
        emit failed("Couldn't start recording: " + QString::fromStdString(error.errorDescription()));
    }
}

void ClipSession::finishRecording() {
    const QString path = recordingURL_;
    recordingURL_.clear();
    auto file = sink_->takeFile();
    if (!file || path.isEmpty()) return;
    try {
        file->finish();
        file.reset();
        if (sink_->framesWritten() == 0) {
            QFile::remove(path);
            emit failed(kNothingRecordedMessage);
            return;
        }
        const QString previous = ownRecording_;
        ownRecording_ = path;
        if (load(path)) {
            if (!previous.isEmpty() && previous != path) QFile::remove(previous);
        } else {
            ownRecording_ = previous;
            QFile::remove(path);
        }
    } catch (const VoiceEngineError& error) {
        QFile::remove(path);
        emit failed("Couldn't start recording: " + QString::fromStdString(error.errorDescription()));
    }
}

void ClipSession::setPlaying(bool on) {
    if (isPlaying_ == on) return;
    isPlaying_ = on;
    emit playingChanged();
}

void ClipSession::play(const Voice& voice, const QString& outputUID, const QString& source) {
    if (clipURL_.isEmpty() || isPlaying_) return;
    if (!backend_) {
        emit failed("Couldn't start playback: " + QString::fromUtf8(kNoServerMessage));
        return;
    }
    setPlaying(true);
    const int generation = ++playGeneration_;
    QPointer<ClipSession> self(this);
    auto meterTap = [self](const float* mono, int frames) {
        const LevelMonitor::Level level = LevelMonitor::measure(mono, frames);
        QMetaObject::invokeMethod(self, [self, level] {
            if (self && self->meter_) self->meter_(level);
        });
    };
    // A device change or a broken stream simply stops playback.
    StreamFaults faults;
    auto stop = [self, generation] {
        QMetaObject::invokeMethod(self, [self, generation] {
            if (self && self->playGeneration_ == generation) self->stopPlayback();
        }, Qt::QueuedConnection);
    };
    faults.deviceLost = stop;
    faults.failed = [stop](ErrorCode, const std::string&) { stop(); };
    struct Outcome {
        std::shared_ptr<PlaybackGraph> graph;
        QString error;
    };
    AudioBackend* backend = backend_;
    const std::string path = (source.isEmpty() ? clipURL_ : source).toStdString();
    jobs_.request(
        this,
        [backend, path, voice, outputUID, meterTap, faults] {
            auto outcome = std::make_shared<Outcome>();
            try {
                auto file = AudioFileReader::open(path);
                const auto table = backend->snapshot();
                if (!table) throw VoiceEngineError(ErrorCode::serverUnreachable);
                const DeviceEntry& entry = playbackOutput(*table, outputUID);
                outcome->graph = std::make_shared<PlaybackGraph>(*backend, std::move(file), entry, voice, meterTap, faults);
                outcome->graph->start();
            } catch (const VoiceEngineError& error) {
                outcome->error = "Couldn't start playback: " + QString::fromStdString(error.errorDescription());
            }
            return outcome;
        },
        [this, generation](std::shared_ptr<Outcome> outcome) {
            if (generation != playGeneration_) {
                if (outcome->graph) jobs_.post([graph = std::move(outcome->graph)]() mutable { graph.reset(); });
                return;
            }
            if (!outcome->graph) {
                setPlaying(false);
                emit failed(outcome->error);
                return;
            }
            playback_ = std::move(outcome->graph);
            chains_.setPlay(playback_->chain());
            playbackPoll_.start();
        });
}

void ClipSession::stopPlayback() {
    ++playGeneration_;
    playbackPoll_.stop();
    if (playback_) {
        jobs_.post([graph = std::move(playback_)]() mutable {
            graph->stop();
            graph.reset();
        });
    }
    playback_.reset();
    chains_.setPlay(nullptr);
    setPlaying(false);
}

}  // namespace parlova
