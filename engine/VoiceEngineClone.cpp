// The voice engine with a cloned voice: live mode runs the clone route instead
// of the effect chain, and playback and export first have the clip re-spoken
// by the cloner, then play or render that copy with the natural voice (the
// cloned speech is not altered further).
#include "engine/CloneRoute.h"
#include "cloning/VoiceCloner.h"
#include "engine/VoiceEngine.h"

#include <QFile>
#include <QPointer>

namespace parlova {

void VoiceEngine::loadCloneSettings() {
    cloneLatency_ = cloneLatencyFromRaw(settings_->value(kCloneLatencyKey).toString()).value_or(CloneLatency::balanced);
    connect(&clip_, &ClipSession::playingChanged, this, [this] {
        if (clip_.isPlaying() || convertedTemp_.isEmpty()) return;
        QFile::remove(convertedTemp_);
        convertedTemp_.clear();
    });
    // A route already running for a recording streams only while live is on.
    connect(this, &VoiceEngine::liveStateChanged, this, [this] {
        if (!cloneRoute_ || !live_.isRunning()) return;
        if (!isLive_) cloneRoute_->stop();
        else if (!cloneRoute_->isStreaming() && !cloneRoute_->isStreamStarting()) startCloneStream();
    });
}

void VoiceEngine::setCloner(VoiceCloner* cloner) {
    if (cloner_ == cloner) return;
    tearDownLive();
    cloner_ = cloner;
    cloneRoute_ = std::make_unique<CloneRoute>(cloner);
    connect(cloneRoute_.get(), &CloneRoute::isStreamStartingChanged, this, &VoiceEngine::isStreamStartingChanged);
    connect(cloneRoute_.get(), &CloneRoute::speechFlowing, this, &VoiceEngine::cloneSpeechFlowing);
    connect(cloneRoute_.get(), &CloneRoute::failed, this, [this](const QString& message) {
        setErrorMessage(message);
        setLive(false);
        updateLiveEngine();
    });
    updateLiveEngine();
}

bool VoiceEngine::isStreamStarting() const { return cloneRoute_ && cloneRoute_->isStreamStarting(); }

void VoiceEngine::setClone(const CloneTarget& target) {
    if (clone_ == target) return;
    clone_ = target;
    emit cloneChanged();
    // The worker reads the samples now, so the first conversion or stream
    // starts sooner; a failure here shows up again when the voice is used.
    if (cloner_ && cloner_->isInstalled() && !target.samples.isEmpty()) cloner_->prepare(target);
    // The route carries one kind of stage: build it again for the new voice.
    if (live_.isRunning() || live_.isStarting()) {
        tearDownLive();
        updateLiveEngine();
    }
}

void VoiceEngine::setCloneLatency(CloneLatency latency) {
    if (cloneLatency_ == latency) return;
    cloneLatency_ = latency;
    settings_->setValue(kCloneLatencyKey, rawValue(latency));
    emit cloneLatencyChanged();
    if (!clone_.isEmpty() && (live_.isRunning() || live_.isStarting())) {
        tearDownLive();
        updateLiveEngine();
    }
}

VoiceStageFactory VoiceEngine::cloneStageFactory() {
    if (!cloneRoute_) {
        // No cloner: the stage plays silence and the start says why.
        cloneRoute_ = std::make_unique<CloneRoute>(nullptr);
    }
    cloneRoute_->setBypass(bypass_);
    return cloneRoute_->stageFactory(LiveGraph::kSampleRate);
}

void VoiceEngine::startCloneStream() {
    if (clone_.isEmpty() || !cloneRoute_) return;
    if (!cloner_) {
        setErrorMessage(cloningUnavailable());
        return;
    }
    // A route that only records needs no stream.
    if (isLive_) cloneRoute_->start(clone_, cloneLatency_);
}

void VoiceEngine::stopCloneStream() {
    if (cloneRoute_) cloneRoute_->stop();
}

void VoiceEngine::cloneBypassChanged() {
    if (cloneRoute_) cloneRoute_->setBypass(bypass_);
}

void VoiceEngine::setConverting(bool on) {
    if (isConverting_ == on) return;
    isConverting_ = on;
    emit isConvertingChanged();
}

void VoiceEngine::convertClip(std::function<void(const QString&)> then, const QString& failurePrefix) {
    const CloneTarget target = clone_;
    if (!cloner_) {
        setErrorMessage(failurePrefix + cloningUnavailable());
        return;
    }
    setConverting(true);
    QPointer<VoiceEngine> self(this);
    cloner_->convert(clipURL(), target, false, [self, target, then, failurePrefix](const QString& output, const QString& error) {
        if (!self) {
            if (!output.isEmpty()) QFile::remove(output);
            return;
        }
        self->setConverting(false);
        if (!error.isEmpty()) {
            self->setErrorMessage(failurePrefix + error);
            return;
        }
        // The selection or bypass changed meanwhile: this copy is not wanted.
        if (self->clone_ != target || self->bypass_) {
            QFile::remove(output);
            return;
        }
        then(output);
    });
}

void VoiceEngine::playClipInClone() {
    if (clipURL().isEmpty() || isConverting_ || clip_.isPlaying()) return;
    convertClip(
        [this](const QString& converted) {
            convertedTemp_ = converted;
            clip_.play(Voice::natural(), outputUID_, converted);
        },
        "Couldn't convert the clip to " + clone_.name + "'s voice: ");
}

bool VoiceEngine::exportClipInClone(const QString& destination) {
    if (clipURL().isEmpty() || isConverting_ || clip_.isExporting()) return false;
    convertClip(
        [this, destination](const QString& converted) {
            if (!clip_.exportClip(destination, Voice::natural(), converted)) {
                QFile::remove(converted);
                return;
            }
            auto connection = std::make_shared<QMetaObject::Connection>();
            *connection = connect(&clip_, &ClipSession::exportFinished, this, [converted, connection] {
                QFile::remove(converted);
                QObject::disconnect(*connection);
            });
        },
        kExportFailedPrefix);
    return true;
}

}  // namespace parlova
