#include "engine/VoiceEngine.h"

#include "devices/pulse/PulseEvents.h"
#include "engine/AudioFile.h"

#include <QMetaObject>
#include <QPointer>

namespace parlova {

VoiceEngine::VoiceEngine(QSettings* settings, QObject* parent)
    : QObject(parent), settings_(settings), voice_(Voice::builtIns().front()), meter_(this) {
    if (settings_ == nullptr) {
        ownedSettings_ = std::make_unique<QSettings>();
        settings_ = ownedSettings_.get();
    }
    clockStart_ = std::chrono::steady_clock::now();
    modulator_ = std::make_unique<Modulator>(clockStart_, [this](double t) { chains_.modulate(t); });
    inputUID_ = settings_->value(kInputDeviceKey).toString();
    outputUID_ = settings_->value(kOutputDeviceKey).toString();
    // Queued, so that a lost server is known before the watcher's reports are handled.
    connect(&deviceWatcher_, &DeviceWatcher::deviceLost, this, [this](uint32_t) { liveDeviceLost(); },
            Qt::QueuedConnection);
    connect(&pulse::PulseEvents::instance(), &pulse::PulseEvents::serverLost, this, [this] { serverLost_ = true; });
    connect(&pulse::PulseEvents::instance(), &pulse::PulseEvents::serverBack, this, [this] { serverLost_ = false; });
    playbackPoll_.setInterval(50);
    connect(&playbackPoll_, &QTimer::timeout, this, &VoiceEngine::pollPlayback);
    // An earlier run may have left the virtual mic as the system microphone.
    restoreSystemMic();
    pitchTimer_.setInterval(250);
    connect(&pitchTimer_, &QTimer::timeout, this, &VoiceEngine::publishDetectedPitch);
    pitchTimer_.start();
}

VoiceEngine::~VoiceEngine() {
    stopPlayback();
    if (isRecording_) finishRecording();
    tearDownLive();  // also gives the real microphone back
    if (exportThread_.joinable()) exportThread_.join();
    modulator_.reset();
}

void VoiceEngine::set(const Voice& voice) {
    voice_ = voice;
    emit voiceChanged();
    applyVoiceToChains();
}

void VoiceEngine::setBypass(bool on) {
    if (bypass_ == on) return;
    bypass_ = on;
    emit bypassChanged();
    applyVoiceToChains();
}

Voice VoiceEngine::effectiveVoice() const { return bypass_ ? Voice::natural() : voice_; }

void VoiceEngine::applyVoiceToChains() {
    const Voice target = effectiveVoice();
    if (auto live = chains_.live()) live->apply(target);
    if (auto play = chains_.play()) play->apply(target);
}

void VoiceEngine::setErrorMessage(const QString& message) {
    if (errorMessage_ == message) return;
    errorMessage_ = message;
    emit errorMessageChanged();
}

bool VoiceEngine::loadClip(const QString& path) {
    try {
        auto reader = AudioFileReader::open(path.toStdString());
        clipDuration_ = static_cast<double>(reader->frameLength()) / reader->format().sampleRate;
        clipURL_ = path;
        emit clipChanged();
        return true;
    } catch (const VoiceEngineError& error) {
        setErrorMessage(QString(kCouldNotOpenPrefix) + QString::fromStdString(error.errorDescription()));
        return false;
    }
}

void VoiceEngine::setExporting(bool on) {
    if (isExporting_ == on) return;
    isExporting_ = on;
    emit isExportingChanged();
}

bool VoiceEngine::exportClipAndWait(const QString& destination, const RenderProgress& progress) {
    if (clipURL_.isEmpty() || isExporting_) return false;
    setExporting(true);
    bool ok = true;
    try {
        renderOffline(clipURL_.toStdString(), destination.toStdString(), effectiveVoice(), progress);
    } catch (const VoiceEngineError& error) {
        setErrorMessage(QString(kExportFailedPrefix) + QString::fromStdString(error.errorDescription()));
        ok = false;
    }
    setExporting(false);
    emit exportFinished(destination, ok);
    return ok;
}

bool VoiceEngine::exportClip(const QString& destination) {
    if (clipURL_.isEmpty() || isExporting_) return false;
    if (exportThread_.joinable()) exportThread_.join();
    setExporting(true);
    exportProgress_ = 0;
    emit exportProgressChanged();
    const std::string source = clipURL_.toStdString();
    const Voice voice = effectiveVoice();
    QPointer<VoiceEngine> self(this);
    exportThread_ = std::thread([self, source, destination, voice] {
        QString failure;
        try {
            renderOffline(source, destination.toStdString(), voice, [self](double fraction) {
                QMetaObject::invokeMethod(self, [self, fraction] {
                    if (!self) return;
                    self->exportProgress_ = fraction;
                    emit self->exportProgressChanged();
                });
                return true;
            });
        } catch (const VoiceEngineError& error) {
            failure = QString(kExportFailedPrefix) + QString::fromStdString(error.errorDescription());
        }
        QMetaObject::invokeMethod(self, [self, failure, destination] {
            if (!self) return;
            if (!failure.isEmpty()) self->setErrorMessage(failure);
            self->setExporting(false);
            emit self->exportFinished(destination, failure.isEmpty());
        });
    });
    return true;
}

void VoiceEngine::publishDetectedPitch() {
    float detected = 0;
    if (auto live = chains_.live())
        detected = live->shifter().detectedHz.load(std::memory_order_relaxed);
    else if (auto play = chains_.play())
        detected = play->shifter().detectedHz.load(std::memory_order_relaxed);
    if (shouldPublishPitch(detectedPitch_, detected)) {
        detectedPitch_ = detected;
        emit detectedPitchChanged();
    }
}

}  // namespace parlova
