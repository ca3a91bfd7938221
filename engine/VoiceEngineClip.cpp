// Recording a clip through the live input, and playing the clip through a voice.
#include "engine/GuardedAudio.h"
#include "engine/VoiceEngine.h"

#include <QDir>
#include <QPointer>
#include <QUuid>

namespace parlova {

void VoiceEngine::setRecording(bool on) {
    if (isRecording_ == on) return;
    isRecording_ = on;
    emit recordingChanged();
}

void VoiceEngine::toggleRecording() {
    if (isRecording_)
        finishRecording();
    else
        beginRecording();
}

void VoiceEngine::beginRecording() {
    stopPlayback();
    recordingURL_ = QDir::temp().filePath("Parlova-" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".wav");
    setRecording(true);
    updateLiveEngine();  // the live input runs (muted) even when live mode is off
    openRecordingFileIfNeeded();
}

void VoiceEngine::openRecordingFileIfNeeded() {
    if (!isRecording_ || !liveRecordingFormat_ || recordingURL_.isEmpty() || sink_->hasFile()) return;
    try {
        sink_->setFile(AudioFileWriter::create(recordingURL_.toStdString(), *liveRecordingFormat_, AudioFileType::wav));
    } catch (const VoiceEngineError& error) {
        setErrorMessage("Couldn't start recording: " + QString::fromStdString(error.errorDescription()));
        setRecording(false);
        updateLiveEngine();
    }
}

void VoiceEngine::finishRecording() {
    auto file = sink_->takeFile();
    setRecording(false);
    updateLiveEngine();
    if (file && !recordingURL_.isEmpty()) {
        try {
            file->finish();
            loadClip(recordingURL_);
        } catch (const VoiceEngineError& error) {
            setErrorMessage("Couldn't start recording: " + QString::fromStdString(error.errorDescription()));
        }
    }
    recordingURL_.clear();
}

void VoiceEngine::startPlayback() {
    if (clipURL_.isEmpty() || isPlaying_) return;
    play(clipURL_, effectiveVoice());
}

void VoiceEngine::play(const QString& path, const Voice& voice) {
    QPointer<VoiceEngine> self(this);
    try {
        auto file = AudioFileReader::open(path.toStdString());
        auto output = AudioDeviceList::deviceID(outputUID_.isEmpty() ? std::nullopt : std::optional(outputUID_));
        if (!output) output = AudioDeviceList::defaultOutputID();
        if (!output) throw VoiceEngineError(kNoDevicesMessage);
        auto graph = guardedAudio([&] {
            auto meterTap = [self](const float* mono, int frames) {
                const float level = LevelMonitor::rms(mono, frames);
                QMetaObject::invokeMethod(self, [self, level] {
                    if (self) self->feedMeter(level);
                });
            };
            auto built = std::make_unique<PlaybackGraph>(std::move(file), *output, voice, meterTap);
            built->start();
            return built;
        });
        // A device change invalidates the graph: playback simply stops (queued,
        // so the graph is not destroyed inside its own signal).
        connect(graph.get(), &PlaybackGraph::deviceLost, this, &VoiceEngine::stopPlayback, Qt::QueuedConnection);
        connect(graph.get(), &PlaybackGraph::failed, this, &VoiceEngine::stopPlayback, Qt::QueuedConnection);
        playback_ = std::move(graph);
        chains_.setPlay(playback_->chain());
        isPlaying_ = true;
        emit playingChanged();
        playbackPoll_.start();
    } catch (const VoiceEngineError& error) {
        setErrorMessage("Couldn't start playback: " + QString::fromStdString(error.errorDescription()));
    }
}

void VoiceEngine::pollPlayback() {
    if (playback_ && playback_->finished()) stopPlayback();
}

void VoiceEngine::stopPlayback() {
    playbackPoll_.stop();
    if (playback_) {
        playback_->stop();
        playback_.reset();
    }
    chains_.setPlay(nullptr);
    if (isPlaying_) {
        isPlaying_ = false;
        emit playingChanged();
    }
    if (!live_) meter_.reset();
}

}  // namespace parlova
