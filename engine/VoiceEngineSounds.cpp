// Board sounds: into the live route's output while live runs, else through a
// preview stream on the output device that closes once it has been silent a
// while. A timer releases what the audio threads are done with and tells the
// views when the last sound ends.
#include "engine/VoiceEngine.h"

#include "common/ErrorSentences.h"
#include "common/VoiceEngineError.h"
#include "engine/LiveRouting.h"
#include "engine/LiveGraph.h"
#include "engine/SoundPreview.h"

#include <QPointer>

#include <cmath>

namespace parlova {

namespace {

float gainForDecibels(double decibels) { return static_cast<float>(std::pow(10.0, decibels / 20.0)); }

}  // namespace

void VoiceEngine::playSound(std::shared_ptr<const SoundBuffer> sound, SoundLevels levels, bool preview) {
    if (!sound) return;
    const float gain = gainForDecibels(levels.levelDb);
    const float duckGain = gainForDecibels(std::min(0.0, levels.duckDb));
    LiveGraph* graph = live_.graph();
    if (!preview && isLive_ && graph) {
        if (!graph->sounds().play(std::move(sound), gain, duckGain)) {
            emit soundFailed(QStringLiteral("The sound couldn't be played: the live output isn't running."));
            return;
        }
    } else if (preview_) {
        preview_->sounds().play(std::move(sound), gain, duckGain);
        previewIdleTicks_ = 0;
    } else {
        if (!backend_) {
            emit soundFailed("Couldn't play the sound: " + QString::fromUtf8(kNoServerMessage));
            return;
        }
        previewQueue_.push_back({std::move(sound), gain, duckGain});
        openSoundPreview();
    }
    if (!soundWatch_.isActive()) soundWatch_.start();
    if (!soundsPlaying_) {
        soundsPlaying_ = true;
        emit soundsPlayingChanged();
    }
}

void VoiceEngine::stopSounds() {
    previewQueue_.clear();
    if (LiveGraph* graph = live_.graph()) graph->sounds().stopAll();
    if (preview_) preview_->sounds().stopAll();
}

void VoiceEngine::openSoundPreview() {
    if (previewOpening_) return;
    previewOpening_ = true;
    struct Outcome {
        std::shared_ptr<SoundPreview> preview;
        QString error;
    };
    // A lost device or a broken stream closes the preview; the next sound opens a new one.
    QPointer<VoiceEngine> self(this);
    StreamFaults faults;
    auto lost = [self] {
        QMetaObject::invokeMethod(self, [self] { if (self) self->closeSoundPreview(); }, Qt::QueuedConnection);
    };
    faults.deviceLost = lost;
    faults.failed = [lost](ErrorCode, const std::string&) { lost(); };
    AudioBackend* backend = backend_;
    const QString outputUID = outputUID_;
    jobs_.request(
        this,
        [backend, outputUID, faults] {
            Outcome outcome;
            try {
                const auto table = backend->snapshot();
                if (!table) throw VoiceEngineError(ErrorCode::serverUnreachable);
                const DeviceEntry& entry = playbackOutput(*table, outputUID);
                outcome.preview = std::make_shared<SoundPreview>(*backend, entry, faults);
                outcome.preview->start();
            } catch (const VoiceEngineError& error) {
                outcome.error = "Couldn't play the sound: " + QString::fromStdString(error.errorDescription());
            }
            return outcome;
        },
        [this](Outcome outcome) {
            previewOpening_ = false;
            if (!outcome.preview) {
                previewQueue_.clear();
                emit soundFailed(outcome.error);
                watchSounds();
                return;
            }
            preview_ = std::move(outcome.preview);
            previewIdleTicks_ = 0;
            for (auto& pending : previewQueue_) preview_->sounds().play(std::move(pending.sound), pending.gain, pending.duckGain);
            previewQueue_.clear();
        });
}

void VoiceEngine::closeSoundPreview() {
    if (!preview_) return;
    // Streams close on the job thread; the sounds the mixer holds go with it there.
    jobs_.post([preview = std::move(preview_)]() mutable { preview.reset(); });
}

void VoiceEngine::watchSounds() {
    bool playing = previewOpening_ || !previewQueue_.empty();
    if (LiveGraph* graph = live_.graph()) playing = graph->sounds().collect() || playing;
    if (preview_) {
        const bool previewPlaying = preview_->sounds().collect();
        playing = playing || previewPlaying;
        if (previewPlaying) previewIdleTicks_ = 0;
        else if (++previewIdleTicks_ >= kPreviewIdleTicks) closeSoundPreview();
    }
    if (!preview_ && !playing) soundWatch_.stop();
    if (playing != soundsPlaying_) {
        soundsPlaying_ = playing;
        emit soundsPlayingChanged();
    }
}

}  // namespace parlova
