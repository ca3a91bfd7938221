#include "engine/VoiceEngine.h"
#include "engine/CloneRoute.h"

#include "common/VoiceEngineError.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>

namespace parlova {

namespace {
// How often a recording with a length checks how much it holds.
constexpr int kRecordingCheckMs = 10;
}  // namespace

VoiceEngine::VoiceEngine(QSettings* settings, AudioBackend* backend, BackendJobs& jobs, QObject* parent)
    : QObject(parent), settings_(settings), backend_(backend), jobs_(jobs),
      voice_(Voice::builtIns().front()), meter_(this),
      call_(settings ? *settings : *(ownedSettings_ = std::make_unique<QSettings>()), backend, jobs_, this),
      live_(backend, jobs_, this),
      clip_(backend, jobs_, chains_, [this](LevelMonitor::Level level) { feedMeter(level); }, this) {
    if (settings_ == nullptr) settings_ = ownedSettings_.get();
    clockStart_ = std::chrono::steady_clock::now();
    inputUID_ = settings_->value(kInputDeviceKey).toString();
    outputUID_ = settings_->value(kOutputDeviceKey).toString();
    lowDelay_ = settings_->value(kLowDelayKey, false).toBool();
    loadCloneSettings();
    talk_.attach(settings_);
    cleanMic_.attach(settings_);
    clip_.setCleanMic(cleanMic_.activeControl());
    chains_.setChanged([this] {
        if (modulator_) modulator_->poke();
    });
    connect(&talk_, &TalkControl::talkingChanged, this, [this] { live_.setAudible(liveAudible()); });
    connect(&cleanMic_, &CleanMicSetting::enabledChanged, this, [this] {
        clip_.setCleanMic(cleanMic_.activeControl());
        // The stage is part of the route: rebuild a running one (a recording
        // in progress keeps its route; the change applies at the next start).
        if (live_.isRunning() && !isRecording_) {
            tearDownLive();
            updateLiveEngine();
        }
    });

    connect(&live_, &LiveSession::started, this, &VoiceEngine::liveRouteStarted);
    connect(&live_, &LiveSession::startFailed, this, &VoiceEngine::liveStartFailed);
    connect(&live_, &LiveSession::stopped, this, &VoiceEngine::liveStopped);
    connect(&live_, &LiveSession::startingChanged, this, &VoiceEngine::isStartingLiveChanged);
    connect(&clip_, &ClipSession::clipChanged, this, &VoiceEngine::clipChanged);
    connect(&clip_, &ClipSession::exportingChanged, this, &VoiceEngine::isExportingChanged);
    connect(&clip_, &ClipSession::exportProgressChanged, this, &VoiceEngine::exportProgressChanged);
    connect(&clip_, &ClipSession::exportFinished, this, &VoiceEngine::exportFinished);
    connect(&clip_, &ClipSession::failed, this, &VoiceEngine::setErrorMessage);
    connect(&clip_, &ClipSession::playingChanged, this, [this] {
        ensureModulator();
        if (!clip_.isPlaying() && !live_.isRunning()) meter_.reset();
        emit playingChanged();
    });

    // Chains run in real time only with a sound server; an engine for offline
    // rendering (no backend) starts the modulator only if a chain ever plays.
    if (backend_) ensureModulator();
    // An earlier run may have left the virtual mic as the system microphone
    // (repaired only when no Parlova process owns live).
    call_.repairSystemMic();
    connect(&call_, &CallMode::systemMicElsewhereChanged, this, &VoiceEngine::systemMicElsewhereChanged);
    connect(&delay_, &DelayReadout::knownChanged, this, &VoiceEngine::liveDelayKnownChanged);
    pitchTimer_.setInterval(250);
    connect(&pitchTimer_, &QTimer::timeout, this, &VoiceEngine::publishDetectedPitch);
    pitchTimer_.start();
    soundWatch_.setInterval(kSoundWatchMs);
    connect(&soundWatch_, &QTimer::timeout, this, &VoiceEngine::watchSounds);
}

VoiceEngine::~VoiceEngine() {
    clip_.stopPlayback();
    if (isRecording_) clip_.finishRecording();
    tearDownLive();  // also gives the real microphone back
    releaseLiveClaim();
    closeSoundPreview();
    // Let the server take the microphone back (bounded: it may not answer),
    // then apply what it answered.
    if (backend_ && jobs_.waitIdle(kShutdownWait)) QCoreApplication::sendPostedEvents(&call_, QEvent::MetaCall);
    modulator_.reset();
}

void VoiceEngine::ensureModulator() {
    // The modulator thread is only needed once a chain runs in real time.
    if (!modulator_) modulator_ = std::make_unique<Modulator>(clockStart_, [this](double t) { return chains_.modulate(t); });
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
    cloneBypassChanged();
}

Voice VoiceEngine::effectiveVoice() const { return bypass_ ? Voice::natural() : voice_; }

void VoiceEngine::applyVoiceToChains() {
    const Voice target = effectiveVoice();
    if (auto live = chains_.live()) live->apply(target);
    if (auto play = chains_.play()) play->apply(target);
    if (modulator_) modulator_->poke();  // a voice with vibrato or tremolo needs the fast ticks again
}

void VoiceEngine::setErrorMessage(const QString& message) {
    if (errorMessage_ == message) return;
    errorMessage_ = message;
    emit errorMessageChanged();
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

void VoiceEngine::feedMeter(LevelMonitor::Level level) {
    if (live_.isRunning() || clip_.isPlaying()) meter_.update(level);
}

// Live mode.

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
    if (isLive_ && !claimLive()) return;
    if (!isLive_ && !isRecording_) {
        tearDownLive();
        releaseLiveClaim();
        return;
    }
    const bool wantCall = callMode_ && isLive_;
    if (live_.isRunning() && live_.graph()->route().isCall != wantCall) tearDownLive();
    if (!isLive_) releaseLiveClaim();
    if (!live_.isRunning() && !live_.isStarting()) startLive();
    live_.setAudible(liveAudible());
}

bool VoiceEngine::claimLive() {
    if (liveClaim_) return true;
    std::optional<LockHolder> holder;
    liveClaim_ = LiveOwner::claimLive(&holder);
    if (liveClaim_) {
        claimRetries_ = 0;
        return true;
    }
    // A repair of the system microphone holds the claim for a moment only.
    if (LiveOwner::isPassing(holder) && ++claimRetries_ <= kClaimRetries) {
        QTimer::singleShot(kClaimRetryMs, this, [this] {
            if (isLive_) updateLiveEngine();
        });
        return false;
    }
    claimRetries_ = 0;
    setErrorMessage(LiveOwner::refusal(holder));
    setLive(false);
    if (isRecording_) updateLiveEngine();
    return false;
}

void VoiceEngine::releaseLiveClaim() {
    if (!liveClaim_) return;
    // Held until the real microphone is back: the restore runs on the job
    // thread, and the claim is dropped there right after it.
    jobs_.post([claim = std::move(liveClaim_)]() mutable { claim.reset(); });
    liveClaim_.reset();
}

std::optional<LockHolder> VoiceEngine::liveOwnerElsewhere() const {
    if (liveClaim_) return std::nullopt;
    return LiveOwner::current();
}

LiveSession::Request VoiceEngine::liveRequest() {
    LiveSession::Request request;
    request.route.isCall = callMode_ && isLive_;
    request.route.hearMyself = hearMyself_;
    request.route.inputUID = inputUID_;
    request.route.outputUID = outputUID_;
    request.route.savedMicUID = call_.savedMic();
    // Clean mic gates behind the effect chain, inside the shifter's delay; a
    // cloned voice's stream is far longer, so it takes the microphone as it is.
    const bool effect = clone_.isEmpty();
    request.stage = effect ? cleanMic_.wrap(EffectVoiceStage::factory(
                                 effectiveVoice(), lowDelay_ ? ShifterTiming::low() : ShifterTiming::normal()))
                           : cloneStageFactory();
    request.buffering = effect && lowDelay_ ? RouteBuffering::low() : RouteBuffering::normal();
    request.recordTap = [sink = clip_.sink()](const float* mono, int frames) { sink->write(&mono, frames); };
    QPointer<VoiceEngine> self(this);
    request.meterTap = [self](const float* mono, int frames) {
        const LevelMonitor::Level level = LevelMonitor::measure(mono, frames);
        QMetaObject::invokeMethod(self, [self, level] {
            if (self) self->feedMeter(level);
        });
    };
    request.audible = liveAudible();
    return request;
}

void VoiceEngine::startLive() {
    live_.start([this] { return liveRequest(); });
}

void VoiceEngine::liveRouteStarted() {
    setMicDenied(false);
    LiveGraph* graph = live_.graph();
    if (graph->route().isCall != (callMode_ && isLive_)) {
        // Call mode changed while the route was starting: build it again.
        tearDownLive();
        updateLiveEngine();
        return;
    }
    ensureModulator();
    delay_.follow(graph);
    chains_.setLive(graph->chain());
    applyVoiceToChains();  // edits made while the route was starting
    graph->setAudible(liveAudible());
    if (graph->route().isCall) call_.useVirtualCableAsSystemMic(live_.startTable());
    if (isRecording_) clip_.openRecordingFile(graph->recordingFormat());
    startCloneStream();
    emit liveStarted();
}

void VoiceEngine::setMicDenied(bool denied) {
    if (micDenied_ == denied) return;
    micDenied_ = denied;
    emit micDeniedChanged();
}

void VoiceEngine::liveStartFailed(ErrorCode code, const QString& message) {
    const bool denied = code == ErrorCode::microphoneRefused;
    setMicDenied(denied);
    if (!denied) setErrorMessage(message);
    setLive(false);
    if (isRecording_)
        finishRecording();
    else
        updateLiveEngine();
}

void VoiceEngine::liveStopped(ErrorCode, const QString& message) {
    delay_.follow(nullptr);
    chains_.setLive(nullptr);
    if (isRecording_) finishRecording();
    setLive(false);
    setErrorMessage(message);
    updateLiveEngine();
}

void VoiceEngine::tearDownLive() {
    const bool wasUp = live_.isRunning() || live_.isStarting();
    delay_.follow(nullptr);
    live_.tearDown();
    stopCloneStream();
    chains_.setLive(nullptr);
    if (wasUp || call_.switchedDefaultInput()) call_.restoreSystemMic();
    if (!clip_.isPlaying()) meter_.reset();
}

void VoiceEngine::restartForDeviceChange() {
    if (clip_.isPlaying()) clip_.stopPlayback();
    if (isRecording_) finishRecording();
    tearDownLive();
    updateLiveEngine();
}

void VoiceEngine::chooseDevice(QString& chosen, const char* key, const QString& uid, bool remember) {
    if (chosen == uid) return;
    chosen = uid;
    if (remember && uid.isEmpty()) settings_->remove(key);
    else if (remember) settings_->setValue(key, uid);
    emit devicesChosen();
    restartForDeviceChange();
}

void VoiceEngine::setInputUID(const QString& uid, bool remember) { chooseDevice(inputUID_, kInputDeviceKey, uid, remember); }

void VoiceEngine::setOutputUID(const QString& uid, bool remember) {
    chooseDevice(outputUID_, kOutputDeviceKey, uid, remember);
}

void VoiceEngine::setCallMode(bool on) {
    if (callMode_ == on) return;
    callMode_ = on;
    emit callModeChanged();
    updateLiveEngine();
}

void VoiceEngine::setHearMyself(bool on) {
    if (hearMyself_ == on) return;
    hearMyself_ = on;
    emit hearMyselfChanged();
    // The monitor is part of the route: rebuild a running call route.
    if (live_.isRunning() && live_.graph()->route().isCall) {
        tearDownLive();
        updateLiveEngine();
    }
}

void VoiceEngine::setLowDelay(bool on, bool remember) {
    if (remember) settings_->setValue(kLowDelayKey, on);
    if (lowDelay_ == on) return;
    lowDelay_ = on;
    emit lowDelayChanged();
    // The shifter's block and the buffers are fixed when the route is built.
    if (live_.isRunning() && clone_.isEmpty()) {
        tearDownLive();
        updateLiveEngine();
    }
}

// Recording.

void VoiceEngine::setRecording(bool on) {
    if (isRecording_ == on) return;
    isRecording_ = on;
    emit recordingChanged();
}

void VoiceEngine::toggleRecording() {
    if (isRecording_) {
        finishRecording();
        return;
    }
    clip_.beginRecording();
    setRecording(true);
    updateLiveEngine();  // the live input runs (muted) even when live mode is off
    if (live_.isRunning()) clip_.openRecordingFile(live_.graph()->recordingFormat());
}

double VoiceEngine::recordedSeconds() const {
    return static_cast<double>(clip_.sink()->framesWritten()) / LiveGraph::kSampleRate;
}

void VoiceEngine::stopRecordingAfter(double seconds) {
    auto* check = new QTimer(this);
    check->setInterval(kRecordingCheckMs);
    connect(check, &QTimer::timeout, this, [this, check, seconds] {
        if (isRecording_ && recordedSeconds() < seconds) return;
        check->deleteLater();
        if (isRecording_) finishRecording();
    });
    check->start();
}

void VoiceEngine::finishRecording() {
    setRecording(false);
    clip_.finishRecording();
    updateLiveEngine();
}

}  // namespace parlova
