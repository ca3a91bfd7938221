// Live mode: building, starting (with retries), watching and tearing down the
// live route from the microphone through the voice chain to the output.
#include "engine/GuardedAudio.h"
#include "engine/VoiceEngine.h"

#include "devices/pulse/StreamLoop.h"

#include <QPointer>

namespace parlova {

void VoiceEngine::setLive(bool on) {
    if (isLive_ == on) return;
    isLive_ = on;
    emit liveStateChanged();
}

void VoiceEngine::toggleLive() {
    // The sound server has no permission prompt: a refused microphone shows up
    // as a failed start with its own sentence.
    setLive(!isLive_);
    updateLiveEngine();
}

void VoiceEngine::updateLiveEngine() {
    if (!isLive_ && !isRecording_) {
        tearDownLive();
        return;
    }
    const bool wantCall = callMode_ && isLive_;
    if (live_ && liveIsCall_ != wantCall) tearDownLive();
    if (!live_ && !isStartingLive_) startLive(1);
    if (live_) live_->setAudible(isLive_);
}

void VoiceEngine::startLive(int attempt) {
    isStartingLive_ = true;
    const int generation = ++liveGeneration_;
    const Voice voice = effectiveVoice();
    QPointer<VoiceEngine> self(this);
    try {
        const LiveRoute route = liveRouting();
        auto graph = guardedAudio([&] {
            auto recordTap = [sink = sink_](const float* mono, int frames) { sink->write(&mono, frames); };
            auto meterTap = [self](const float* mono, int frames) {
                const float level = LevelMonitor::rms(mono, frames);
                QMetaObject::invokeMethod(self, [self, level] {
                    if (self) self->feedMeter(level);
                });
            };
            auto built = std::make_unique<LiveGraph>(route, voice, recordTap, meterTap);
            built->setAudible(isLive_);
            built->start();
            return built;
        });
        // Queued, since the handlers destroy the graph that emitted the signal;
        // a report that arrives after that graph is gone is stale.
        const LiveGraph* sender = graph.get();
        connect(graph.get(), &LiveGraph::deviceLost, this, [this, sender] {
            if (live_.get() == sender) liveDeviceLost();
        }, Qt::QueuedConnection);
        connect(graph.get(), &LiveGraph::failed, this, [this, sender](const QString& message) {
            if (live_.get() == sender) stopLiveWithError(message);  // the stream's own words
        }, Qt::QueuedConnection);
        live_ = std::move(graph);
        chains_.setLive(live_->chain());
        liveRecordingFormat_ = live_->recordingFormat();
        std::vector<uint32_t> inUse{route.mic, route.output};
        if (route.monitor) inUse.push_back(*route.monitor);
        deviceWatcher_.watch(inUse);
        liveIsCall_ = route.isCall;
        serverLost_ = false;
        if (route.isCall) useVirtualCableAsSystemMic();
        isStartingLive_ = false;
        openRecordingFileIfNeeded();
    } catch (const VoiceEngineError& error) {
        if (attempt < kLiveAttempts) {
            QTimer::singleShot(kRetryDelayMs, this, [this, attempt, generation] {
                // A newer start or a tear-down since then cancels this retry.
                if (generation != liveGeneration_ || !isStartingLive_) return;
                if (isLive_ || isRecording_) startLive(attempt + 1);
                else isStartingLive_ = false;
            });
            return;
        }
        setErrorMessage(QString::fromStdString(error.errorDescription()));
        setLive(false);
        isStartingLive_ = false;
        if (isRecording_)
            finishRecording();
        else
            updateLiveEngine();
    }
}

void VoiceEngine::tearDownLive() {
    ++liveGeneration_;  // cancels a pending retry
    isStartingLive_ = false;
    deviceWatcher_.unwatch();
    if (live_) {
        live_->stop();
        live_.reset();
    }
    chains_.setLive(nullptr);
    liveRecordingFormat_.reset();
    liveIsCall_ = false;
    restoreSystemMic();
    if (!isPlaying_) meter_.reset();
}

void VoiceEngine::liveDeviceLost() {
    // Every device vanishes at once when the sound server itself goes away.
    stopLiveWithError(serverLost_ ? QString::fromStdString(pulse::kNoServerMessage) : QString(kDisconnectedMessage));
}

void VoiceEngine::stopLiveWithError(const QString& message) {
    if (!live_) return;
    if (isRecording_) finishRecording();
    setLive(false);
    setErrorMessage(message);
    updateLiveEngine();
}

void VoiceEngine::restartForDeviceChange() {
    if (isPlaying_) stopPlayback();
    if (isRecording_) finishRecording();
    tearDownLive();
    updateLiveEngine();
}

void VoiceEngine::setInputUID(const QString& uid, bool remember) {
    if (inputUID_ == uid) return;
    inputUID_ = uid;
    if (remember && uid.isEmpty()) settings_->remove(kInputDeviceKey);
    else if (remember) settings_->setValue(kInputDeviceKey, uid);
    emit devicesChosen();
    restartForDeviceChange();
}

void VoiceEngine::setOutputUID(const QString& uid, bool remember) {
    if (outputUID_ == uid) return;
    outputUID_ = uid;
    if (remember && uid.isEmpty()) settings_->remove(kOutputDeviceKey);
    else if (remember) settings_->setValue(kOutputDeviceKey, uid);
    emit devicesChosen();
    restartForDeviceChange();
}

void VoiceEngine::feedMeter(float level) {
    if (live_ || isPlaying_) meter_.update(level);
}

}  // namespace parlova
