#pragma once
// The voice engine: the current voice, the clip (load, export, offline render),
// the modulator that drives every active chain, the level meter and the
// detected pitch. All published state lives on the main thread.
#include "devices/AudioDeviceList.h"
#include "engine/ActiveChains.h"
#include "engine/RecordingSink.h"
#include "engine/LevelMonitor.h"
#include "engine/Modulator.h"
#include "engine/LiveGraph.h"
#include "engine/OfflineRenderer.h"
#include "engine/PlaybackGraph.h"
#include "voices/Voice.h"

#include <QObject>
#include <QSettings>
#include <QString>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace parlova {

class VoiceEngine : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool bypass READ bypass WRITE setBypass NOTIFY bypassChanged)
    Q_PROPERTY(QString clipURL READ clipURL NOTIFY clipChanged)
    Q_PROPERTY(double clipDuration READ clipDuration NOTIFY clipChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage WRITE setErrorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(bool isExporting READ isExporting NOTIFY isExportingChanged)
    Q_PROPERTY(double exportProgress READ exportProgress NOTIFY exportProgressChanged)
    Q_PROPERTY(float detectedPitch READ detectedPitch NOTIFY detectedPitchChanged)
    Q_PROPERTY(bool isLive READ isLive NOTIFY liveStateChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY recordingChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY playingChanged)
    Q_PROPERTY(bool callMode READ callMode WRITE setCallMode NOTIFY callModeChanged)
    Q_PROPERTY(bool hearMyself READ hearMyself WRITE setHearMyself NOTIFY hearMyselfChanged)
    Q_PROPERTY(QString inputUID READ inputUID WRITE setInputUID NOTIFY devicesChosen)
    Q_PROPERTY(QString outputUID READ outputUID WRITE setOutputUID NOTIFY devicesChosen)

public:
    static constexpr const char* kCouldNotOpenPrefix = "Couldn't open that audio file: ";
    static constexpr const char* kExportFailedPrefix = "Export failed: ";
    static constexpr const char* kDisconnectedMessage =
        "An audio device in use was disconnected (for example, headphones unplugged), so Live was stopped. "
        "Press Talk Live to continue.";
    static constexpr const char* kNoDevicesMessage = "No microphone or output device is available.";
    static constexpr const char* kCallNeedsVirtualMicMessage =
        "Call mode needs the virtual mic. Press Install Virtual Mic in the Calls section, then try again.";
    static constexpr const char* kInputDeviceKey = "inputDeviceUID";
    static constexpr const char* kOutputDeviceKey = "outputDeviceUID";
    static constexpr const char* kMicBeforeCallModeKey = "micBeforeCallMode";
    static constexpr int kLiveAttempts = 3;
    static constexpr int kRetryDelayMs = 400;

    // Uses the given settings, or the application's standard settings when null.
    explicit VoiceEngine(QSettings* settings = nullptr, QObject* parent = nullptr);
    ~VoiceEngine() override;

    // The selected voice, applied to every running chain at once.
    const Voice& voice() const { return voice_; }
    void set(const Voice& voice);

    bool bypass() const { return bypass_; }
    void setBypass(bool on);

    QString clipURL() const { return clipURL_; }
    double clipDuration() const { return clipDuration_; }
    // Opens a file as the clip. On failure the message is published and the
    // previous clip stays; returns whether it worked.
    bool loadClip(const QString& path);

    QString errorMessage() const { return errorMessage_; }
    void setErrorMessage(const QString& message);

    bool isExporting() const { return isExporting_; }
    double exportProgress() const { return exportProgress_; }
    // Renders the clip through the selected voice (natural with bypass) into
    // `destination` on a background thread; emits exportFinished. Ignored
    // without a clip or while an export runs.
    bool exportClip(const QString& destination);
    // The same render on the calling thread, for headless use. Returns whether
    // it worked; a failure is published as errorMessage.
    bool exportClipAndWait(const QString& destination, const RenderProgress& progress = {});

    float detectedPitch() const { return detectedPitch_; }
    LevelMonitor& meter() { return meter_; }
    ActiveChains& activeChains() { return chains_; }

    // The voice the chains carry: natural with bypass, else the selected one.
    Voice effectiveVoice() const;

    // Live mode.
    bool isLive() const { return isLive_; }
    bool isStartingLive() const { return isStartingLive_; }
    void toggleLive();
    // Reconciles the running route with the published flags.
    void updateLiveEngine();
    // Stops playback and recording, tears live down and starts it again as wanted.
    void restartForDeviceChange();
    bool liveIsCall() const { return liveIsCall_; }
    const LiveGraph* liveGraph() const { return live_.get(); }

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
    // The microphone live mode captures: the chosen physical input, else the real system mic.
    std::optional<uint32_t> physicalMic() const;
    // The system default input when it is a real microphone, else the saved one, else the first.
    std::optional<uint32_t> realSystemMic() const;
    bool isCableSystemMic() const;
    void useVirtualCableAsSystemMic();
    // Puts the real microphone back as the system default when this run (or an
    // earlier one) left the virtual mic there.
    void restoreSystemMic();
    // The devices of a live start; throws VoiceEngineError with the user's sentence.
    LiveRoute liveRouting() const;

    // Recording and playback of the clip.
    bool isRecording() const { return isRecording_; }
    void toggleRecording();
    bool isPlaying() const { return isPlaying_; }
    void startPlayback();
    void stopPlayback();

signals:
    void bypassChanged();
    void clipChanged();
    void errorMessageChanged();
    void isExportingChanged();
    void exportProgressChanged();
    void detectedPitchChanged();
    void voiceChanged();
    void exportFinished(const QString& destination, bool succeeded);
    void liveStateChanged();
    void recordingChanged();
    void playingChanged();
    void callModeChanged();
    void hearMyselfChanged();
    void devicesChosen();

private:
    void startLive(int attempt);
    void tearDownLive();
    void setLive(bool on);
    void liveDeviceLost();
    void stopLiveWithError(const QString& message);
    void setRecording(bool on);
    void beginRecording();
    void openRecordingFileIfNeeded();
    void finishRecording();
    void play(const QString& path, const Voice& voice);
    void pollPlayback();
    void feedMeter(float level);
    void applyVoiceToChains();
    void publishDetectedPitch();
    void setExporting(bool on);

    QSettings* settings_;
    std::unique_ptr<QSettings> ownedSettings_;
    Voice voice_;
    bool bypass_ = false;
    QString clipURL_;
    double clipDuration_ = 0;
    QString errorMessage_;
    bool isExporting_ = false;
    double exportProgress_ = 0;
    float detectedPitch_ = 0;
    LevelMonitor meter_;
    ActiveChains chains_;
    std::chrono::steady_clock::time_point clockStart_;
    std::unique_ptr<Modulator> modulator_;
    QTimer pitchTimer_;
    std::thread exportThread_;

    bool isLive_ = false;
    bool isStartingLive_ = false;
    bool liveIsCall_ = false;
    bool switchedDefaultInput_ = false;
    bool callMode_ = false;
    bool hearMyself_ = false;
    QString inputUID_, outputUID_;
    std::unique_ptr<LiveGraph> live_;
    DeviceWatcher deviceWatcher_;
    std::optional<AudioFormat> liveRecordingFormat_;
    int liveGeneration_ = 0;  // invalidates retries scheduled for an earlier start
    bool serverLost_ = false;  // the sound server went away (every device with it)

    bool isRecording_ = false;
    QString recordingURL_;
    std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();

    bool isPlaying_ = false;
    std::unique_ptr<PlaybackGraph> playback_;
    QTimer playbackPoll_;
};

}  // namespace parlova
