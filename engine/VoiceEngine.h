#pragma once
// The voice engine: the one published object the views and the command line
// see. It owns the selected voice and the published flags, and delegates the
// work to parts with one job each: the clip (open, export, record, play), the
// live route (start with retries, device watching, tear-down) and call mode
// (the system microphone). The modulator drives every active chain.
//
// Main thread only. Nothing here waits on the sound server: requests run on
// the backend's job thread and complete through queued calls. An engine made
// without a backend (for offline rendering) never touches a sound server.
#include "devices/AudioBackend.h"
#include "devices/BackendJobs.h"
#include "engine/ActiveChains.h"
#include "engine/CallMode.h"
#include "engine/CleanMicSetting.h"
#include "engine/DelayReadout.h"
#include "engine/ClipSession.h"
#include "engine/LevelMonitor.h"
#include "engine/LiveOwner.h"
#include "engine/LiveSession.h"
#include "engine/Modulator.h"
#include "engine/SoundBuffer.h"
#include "cloning/CloneLatency.h"
#include "cloning/ClonedVoice.h"
#include "engine/TalkControl.h"
#include "voices/Voice.h"

#include <QObject>
#include <QSettings>
#include <QString>
#include <QTimer>

#include <chrono>
#include <memory>

namespace parlova {

class CloneRoute;
class SoundPreview;
class VoiceCloner;

class VoiceEngine : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool bypass READ bypass WRITE setBypass NOTIFY bypassChanged)
    Q_PROPERTY(QString clipURL READ clipURL NOTIFY clipChanged)
    Q_PROPERTY(double clipDuration READ clipDuration NOTIFY clipChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage WRITE setErrorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(bool isExporting READ isExporting NOTIFY isExportingChanged)
    Q_PROPERTY(double exportProgress READ exportProgress NOTIFY exportProgressChanged)
    Q_PROPERTY(float detectedPitch READ detectedPitch NOTIFY detectedPitchChanged)
    Q_PROPERTY(bool micDenied READ micDenied NOTIFY micDeniedChanged)
    Q_PROPERTY(bool isLive READ isLive NOTIFY liveStateChanged)
    Q_PROPERTY(bool isStartingLive READ isStartingLive NOTIFY isStartingLiveChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY recordingChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY playingChanged)
    Q_PROPERTY(bool callMode READ callMode WRITE setCallMode NOTIFY callModeChanged)
    Q_PROPERTY(bool hearMyself READ hearMyself WRITE setHearMyself NOTIFY hearMyselfChanged)
    Q_PROPERTY(bool lowDelay READ lowDelay WRITE setLowDelay NOTIFY lowDelayChanged)
    Q_PROPERTY(QString inputUID READ inputUID WRITE setInputUID NOTIFY devicesChosen)
    Q_PROPERTY(QString outputUID READ outputUID WRITE setOutputUID NOTIFY devicesChosen)
    Q_PROPERTY(bool isConverting READ isConverting NOTIFY isConvertingChanged)
    Q_PROPERTY(bool isStreamStarting READ isStreamStarting NOTIFY isStreamStartingChanged)
    Q_PROPERTY(parlova::TalkControl* talk READ talkControl CONSTANT)
    Q_PROPERTY(parlova::CleanMicSetting* cleanMic READ cleanMicSetting CONSTANT)

public:
    static constexpr const char* kInputDeviceKey = "inputDeviceUID";
    static constexpr const char* kOutputDeviceKey = "outputDeviceUID";
    static constexpr const char* kLowDelayKey = "lowDelay";
    static constexpr const char* kMicBeforeCallModeKey = CallMode::kMicBeforeCallModeKey;
    // How long destruction waits for the server to take the real microphone back.
    static constexpr std::chrono::milliseconds kShutdownWait{2000};

    // Uses the given settings (the application's standard settings when null),
    // sound server (none: live, recording and playback are unavailable) and
    // job thread for the requests that wait on it; both outlive the engine.
    VoiceEngine(QSettings* settings, AudioBackend* backend, BackendJobs& jobs, QObject* parent = nullptr);
    ~VoiceEngine() override;

    // The selected voice, applied to every running chain at once.
    const Voice& voice() const { return voice_; }
    void set(const Voice& voice);

    bool bypass() const { return bypass_; }
    void setBypass(bool on);
    // The voice the chains carry: natural with bypass, else the selected one.
    Voice effectiveVoice() const;

    QString clipURL() const { return clip_.clipURL(); }
    double clipDuration() const { return clip_.clipDuration(); }
    // Opens a file as the clip. On failure the message is published and the
    // previous clip stays; returns whether it worked.
    bool loadClip(const QString& path) { return clip_.load(path); }

    QString errorMessage() const { return errorMessage_; }
    void setErrorMessage(const QString& message);

    bool isExporting() const { return clip_.isExporting(); }
    double exportProgress() const { return clip_.exportProgress(); }
    // Renders the clip through the effective voice into `destination` on a
    // background thread; emits exportFinished. Ignored without a clip or while
    // an export runs.
    // With a cloned voice the clip is first re-spoken by the cloner.
    bool exportClip(const QString& destination) {
        return clone_.isEmpty() || bypass_ ? clip_.exportClip(destination, effectiveVoice())
                                           : exportClipInClone(destination);
    }
    // The same render on the calling thread, for headless use (effect voices only).
    bool exportClipAndWait(const QString& destination, const RenderProgress& progress = {}) {
        return clip_.exportClipAndWait(destination, effectiveVoice(), progress);
    }

    float detectedPitch() const { return detectedPitch_; }
    LevelMonitor& meter() { return meter_; }
    ActiveChains& activeChains() { return chains_; }

    // The sound server refused the microphone at the last start.
    bool micDenied() const { return micDenied_; }

    // Live mode.
    bool isLive() const { return isLive_; }
    bool isStartingLive() const { return live_.isStarting(); }
    void toggleLive();
    // How long a live start waits for a sound server that does not answer
    // before it gives up with a sentence (10 s unless set).
    void setLiveStartBound(std::chrono::milliseconds bound) { live_.setStartBound(static_cast<int>(bound.count())); }
    // Reconciles the running route with the published flags.
    void updateLiveEngine();
    // Stops playback and recording, tears live down and starts it again as wanted.
    void restartForDeviceChange();
    bool liveIsCall() const { return live_.graph() && live_.graph()->route().isCall; }
    const LiveGraph* liveGraph() const { return live_.graph(); }
    // The delay to show: none while live is down or the engine cannot know it
    // (the first second, and a second after a stall). liveDelayKnownChanged()
    // tells when that changes.
    std::optional<double> liveDelayEstimate() const { return delay_.seconds(); }
    // The scheduling the audio thread got.
    RealtimeGrant realtimeGrant() const { return backend_ ? backend_->realtimeGrant() : RealtimeGrant::unknown; }

    // Device choices (empty = the system default), kept in the settings.
    QString inputUID() const { return inputUID_; }
    QString outputUID() const { return outputUID_; }
    // `remember` keeps the choice in the settings for the next run.
    void setInputUID(const QString& uid, bool remember = true);
    void setOutputUID(const QString& uid, bool remember = true);

    // Call mode.
    bool callMode() const { return callMode_; }
    void setCallMode(bool on);
    bool hearMyself() const { return hearMyself_; }
    void setHearMyself(bool on);

    // Low delay for effect voices: a shorter shifter block and smaller
    // buffers along the live route. Off by default; kept in the settings. A
    // running effect route is rebuilt.
    bool lowDelay() const { return lowDelay_; }
    void setLowDelay(bool on, bool remember = true);
    CallMode& callModePart() { return call_; }
    // While call mode holds the system microphone and something else moved
    // it: the input call apps hear instead (display name); empty otherwise.
    QString systemMicElsewhere() const { return call_.systemMicElsewhere(); }
    // Makes "Parlova Mic" the system microphone again after that.
    void takeBackSystemMic() { call_.takeBackSystemMic(); }
    // The process that owns live when it is not this engine's (none: nobody,
    // or this engine).
    std::optional<LockHolder> liveOwnerElsewhere() const;

    // Talk modes (push to talk or mute) and the clean-mic input stage.
    TalkControl& talk() { return talk_; }
    TalkControl* talkControl() { return &talk_; }
    CleanMicSetting& cleanMic() { return cleanMic_; }
    CleanMicSetting* cleanMicSetting() { return &cleanMic_; }

    // Recording and playback of the clip.
    bool isRecording() const { return isRecording_; }
    void toggleRecording();
    // Seconds of audio in the recording so far (0 before the microphone's first sound).
    double recordedSeconds() const;
    // Ends the recording in progress once it holds `seconds` of audio. The
    // audio is counted, not the time since asking: a microphone can take a
    // moment to deliver its first sound.
    void stopRecordingAfter(double seconds);
    bool isPlaying() const { return clip_.isPlaying(); }
    void startPlayback() { clone_.isEmpty() || bypass_ ? clip_.play(effectiveVoice(), outputUID_) : playClipInClone(); }
    void stopPlayback() { clip_.stopPlayback(); }

    // Cloned voices (the cloner is the shell's; none: cloning isn't available).
    static constexpr const char* kCloneLatencyKey = "cloneLatency";
    static QString cloningUnavailable() { return QStringLiteral("Voice cloning isn't available."); }
    void setCloner(VoiceCloner* cloner);
    VoiceCloner* cloner() const { return cloner_; }
    // The cloned voice live mode, playback and export speak in; empty: the
    // selected effect voice. A running live route is rebuilt.
    const CloneTarget& clone() const { return clone_; }
    void setClone(const CloneTarget& target);
    CloneLatency cloneLatency() const { return cloneLatency_; }
    void setCloneLatency(CloneLatency latency);
    bool isConverting() const { return isConverting_; }
    bool isStreamStarting() const;
    const CloneRoute* cloneRoute() const { return cloneRoute_.get(); }

    // Board sounds. While live runs they are mixed into the live output after
    // the voice stage (and into the monitor while "Hear myself" is on), the
    // live voice lowered by `duckDb` while any plays; otherwise they play on
    // the output device. Sounds play side by side; each stops at its end.
    // A preview always plays on the output device, never into the call.
    struct SoundLevels {
        double levelDb = 0;
        double duckDb = 0;  // 0: the live voice keeps its level
    };
    void playSound(std::shared_ptr<const SoundBuffer> sound, SoundLevels levels, bool preview = false);
    void stopSounds();
    bool soundsPlaying() const { return soundsPlaying_; }

signals:
    void cloneChanged();
    void cloneLatencyChanged();
    void isConvertingChanged();
    void isStreamStartingChanged();
    void bypassChanged();
    void clipChanged();
    void errorMessageChanged();
    void isExportingChanged();
    void exportProgressChanged();
    void detectedPitchChanged();
    void voiceChanged();
    void exportFinished(const QString& destination, bool succeeded);
    void liveStateChanged();
    void micDeniedChanged();
    void isStartingLiveChanged();
    void recordingChanged();
    void playingChanged();
    void callModeChanged();
    void hearMyselfChanged();
    void lowDelayChanged();
    void devicesChosen();
    // The live route runs (after a start, or a rebuild).
    void liveStarted();
    void systemMicElsewhereChanged();
    void liveDelayKnownChanged();
    // Live in a cloned voice: the first converted speech reaches the output.
    void cloneSpeechFlowing();
    // A board sound started, or the last one ended or was stopped.
    void soundsPlayingChanged();
    // A sound couldn't be played: the sentence says why.
    void soundFailed(const QString& message);

private:
    void startLive();
    void tearDownLive();
    // Makes this process the session's live owner; on refusal says who owns
    // it and turns live off. False while not (yet) the owner.
    bool claimLive();
    void releaseLiveClaim();
    void setLive(bool on);
    void setMicDenied(bool denied);
    void liveStopped(ErrorCode code, const QString& message);
    void liveStartFailed(ErrorCode code, const QString& message);
    void liveRouteStarted();
    void setRecording(bool on);
    void finishRecording();
    void chooseDevice(QString& chosen, const char* key, const QString& uid, bool remember);
    void feedMeter(LevelMonitor::Level level);
    void applyVoiceToChains();
    void publishDetectedPitch();
    void ensureModulator();
    LiveSession::Request liveRequest();
    void playClipInClone();
    bool exportClipInClone(const QString& destination);
    void convertClip(std::function<void(const QString& converted)> then, const QString& failurePrefix);
    void setConverting(bool on);
    void loadCloneSettings();
    VoiceStageFactory cloneStageFactory();
    void startCloneStream();
    void stopCloneStream();
    void cloneBypassChanged();
    // Live output on: live mode is on and the talk mode lets the voice through.
    bool liveAudible() const { return isLive_ && talk_.isTalking(); }
    void openSoundPreview();
    void closeSoundPreview();
    void watchSounds();

    QSettings* settings_;
    std::unique_ptr<QSettings> ownedSettings_;
    AudioBackend* backend_;
    BackendJobs& jobs_;
    Voice voice_;
    bool bypass_ = false;
    QString errorMessage_;
    float detectedPitch_ = 0;
    LevelMonitor meter_;
    DelayReadout delay_;
    ActiveChains chains_;
    std::chrono::steady_clock::time_point clockStart_;
    std::unique_ptr<Modulator> modulator_;
    QTimer pitchTimer_;

    bool isLive_ = false;
    LiveOwner::ClaimPtr liveClaim_;
    static constexpr int kClaimRetries = 20;
    static constexpr int kClaimRetryMs = 100;
    int claimRetries_ = 0;
    bool micDenied_ = false;
    bool callMode_ = false;
    bool hearMyself_ = false;
    bool lowDelay_ = false;
    bool isRecording_ = false;
    QString inputUID_, outputUID_;

    CallMode call_;
    LiveSession live_;
    ClipSession clip_;

    VoiceCloner* cloner_ = nullptr;
    CloneTarget clone_;
    CloneLatency cloneLatency_ = CloneLatency::balanced;
    bool isConverting_ = false;
    QString convertedTemp_;  // a clip re-spoken in the cloned voice; deleted when playback stops
    std::unique_ptr<CloneRoute> cloneRoute_;
    TalkControl talk_;
    CleanMicSetting cleanMic_;

    struct PendingSound {
        std::shared_ptr<const SoundBuffer> sound;
        float gain, duckGain;
    };
    std::shared_ptr<SoundPreview> preview_;
    bool previewOpening_ = false;
    std::vector<PendingSound> previewQueue_;  // played once the preview's stream runs
    int previewIdleTicks_ = 0;
    static constexpr int kSoundWatchMs = 100;
    static constexpr int kPreviewIdleTicks = 30;  // the preview's stream closes after 3 s of silence
    bool soundsPlaying_ = false;
    QTimer soundWatch_;
};

}  // namespace parlova
