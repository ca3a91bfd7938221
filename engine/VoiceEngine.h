#pragma once
// The voice engine: the current voice, the clip (load, export, offline render),
// the modulator that drives every active chain, the level meter and the
// detected pitch. All published state lives on the main thread.
#include "engine/ActiveChains.h"
#include "engine/LevelMonitor.h"
#include "engine/Modulator.h"
#include "engine/OfflineRenderer.h"
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

public:
    static constexpr const char* kCouldNotOpenPrefix = "Couldn't open that audio file: ";
    static constexpr const char* kExportFailedPrefix = "Export failed: ";

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

signals:
    void bypassChanged();
    void clipChanged();
    void errorMessageChanged();
    void isExportingChanged();
    void exportProgressChanged();
    void detectedPitchChanged();
    void voiceChanged();
    void exportFinished(const QString& destination, bool succeeded);

private:
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
};

}  // namespace parlova
