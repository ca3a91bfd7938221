#pragma once
// The clip: opening a file as the clip, exporting it through a voice (on a
// worker thread, with progress), recording a new one from the live input into
// a private folder, and playing it through a voice on an output device. All
// state is main-thread state; playback streams open and close on the
// backend's job thread.
#include "devices/AudioBackend.h"
#include "devices/BackendJobs.h"
#include "engine/LevelMonitor.h"
#include "engine/OfflineRenderer.h"
#include "engine/PlaybackGraph.h"
#include "engine/RecordingSink.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <thread>

namespace parlova {

class ActiveChains;

inline constexpr const char* kCouldNotOpenPrefix = "Couldn't open that audio file: ";
inline constexpr const char* kExportFailedPrefix = "Export failed: ";
inline constexpr const char* kNothingRecordedMessage =
    "Nothing was recorded: the microphone sent no sound before the recording stopped.";

// The user's private folder for recordings in progress (mode 0700, under the
// runtime folder, else the cache folder); made on first use.
QString recordingsFolder();

class ClipSession : public QObject {
    Q_OBJECT
public:
    using Meter = std::function<void(LevelMonitor::Level level)>;  // called on the main thread

    ClipSession(AudioBackend* backend, BackendJobs& jobs, ActiveChains& chains, Meter meter, QObject* parent = nullptr);
    ~ClipSession() override;

    QString clipURL() const { return clipURL_; }
    double clipDuration() const { return clipDuration_; }
    bool load(const QString& path);  // false: the sentence went to failed()

    bool isExporting() const { return isExporting_; }
    double exportProgress() const { return exportProgress_; }
    // `source` replaces the clip (a copy of it re-spoken in a cloned voice).
    bool exportClip(const QString& destination, const Voice& voice, const QString& source = {});
    bool exportClipAndWait(const QString& destination, const Voice& voice, const RenderProgress& progress);
    // Exports pass through the clean-mic stage while this is set.
    void setCleanMic(std::shared_ptr<const CleanMicControl> cleanMic) { cleanMic_ = std::move(cleanMic); }

    // Recording: begin() picks the file; the live route opens it once it runs.
    bool isRecording() const { return !recordingURL_.isEmpty(); }
    void beginRecording();
    void openRecordingFile(const AudioFormat& format);
    // Closes the file and makes it the clip; a recording that is not kept is deleted.
    void finishRecording();
    std::shared_ptr<RecordingSink> sink() const { return sink_; }

    bool isPlaying() const { return isPlaying_; }
    void play(const Voice& voice, const QString& outputUID, const QString& source = {});
    void stopPlayback();

signals:
    void clipChanged();
    void exportingChanged();
    void exportProgressChanged();
    void exportFinished(const QString& destination, bool succeeded);
    void playingChanged();
    void failed(const QString& message);

private:
    void setExporting(bool on);
    void setPlaying(bool on);
    void forgetOwnRecording();

    AudioBackend* backend_;
    BackendJobs& jobs_;
    ActiveChains& chains_;
    Meter meter_;
    QString clipURL_;
    double clipDuration_ = 0;
    QString ownRecording_;  // the clip is a recording of ours: deleted when replaced
    bool isExporting_ = false;
    double exportProgress_ = 0;
    std::thread exportThread_;
    std::shared_ptr<const CleanMicControl> cleanMic_;
    QString recordingURL_;
    std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();
    bool isPlaying_ = false;
    int playGeneration_ = 0;
    std::shared_ptr<PlaybackGraph> playback_;
    QTimer playbackPoll_;
};

}  // namespace parlova
