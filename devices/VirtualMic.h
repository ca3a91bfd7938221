#pragma once
// The virtual microphone "Parlova Mic": a null sink that live mode plays the
// changed voice into, and a remap source of its monitor that call apps record
// from, both described "Parlova Mic" (the device list sees the pair as one
// loopback device). Install loads the pair into the running sound server now
// and persists it for the next login: a marked block in the user's PulseAudio
// startup script (~/.config/pulse/default.pa, which then includes the system
// one), or a drop-in file of pipewire-pulse on PipeWire desktops. Remove
// unloads it and takes the persistence out again. Both remove the device that
// the application installed under its former name, "Tovix Voice Changer Mic".
// No administrator rights are involved: everything is the user's own.
#include <QObject>
#include <QString>
#include <QTimer>

namespace parlova {

class AudioDeviceList;

class VirtualMic {
public:
    static constexpr const char* kSinkName = "parlova_mic_sink";
    static constexpr const char* kSourceName = "parlova_mic";
    static constexpr const char* kFormerSinkName = "tovix_voice_changer_mic_sink";
    static constexpr const char* kFormerSourceName = "tovix_voice_changer_mic";

    // Loads (or reloads) the device and persists it. Throws VoiceEngineError.
    static void install();
    // Unloads the current and the former device and removes their persistence.
    // Throws VoiceEngineError.
    static void uninstall();

    struct Status {
        bool serverReachable = false;
        bool pipewire = false;
        bool loaded = false;        // both modules of "Parlova Mic" are loaded now
        bool persisted = false;     // the configuration loads it at the next login
        bool formerPresent = false; // the former device is loaded or persisted
        QString configPath;         // where the persistence lives
    };
    static Status status();

    // The module arguments of the pair (as load-module takes them).
    static QString sinkArguments(const QString& sinkName, const QString& description);
    static QString sourceArguments(const QString& sinkName, const QString& sourceName, const QString& description);

    // Persistence, as pure text operations (exposed for tests).
    static QString pulseConfigPath();     // under the user's config folder
    static QString pipewireConfigPath();  // pipewire-pulse drop-in
    static QString formerPipewireConfigPath();
    static QString pulseBlock();
    // Adds (or replaces) the block; a new file gets the system include first.
    static QString withPulseBlock(const QString& existing, bool fileExists);
    // Removes the current and former blocks; empty when nothing of the user's
    // remains (the file can then be deleted).
    static QString withoutPulseBlocks(const QString& text);
    static QString pipewireDropIn();
};

// The install and remove flows of the calls panel and of "parlova-cli mic":
// install, then wait for the device list to show "Parlova Mic" (at most 20
// polls a second apart); remove, then refresh the list after 3 seconds.
class VirtualMicSetup : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool installing READ installing NOTIFY installingChanged)
public:
    explicit VirtualMicSetup(AudioDeviceList* devices, QObject* parent = nullptr);

    bool installing() const { return installing_; }
    void setPollInterval(int ms) { pollMs_ = ms; }     // 1000 by default
    void setRefreshDelay(int ms) { refreshMs_ = ms; }  // 3000 by default

    static constexpr int kMaxPolls = 20;

    void install();
    // The caller turns call mode off first, so the system microphone is given
    // back before the device disappears.
    void remove();

signals:
    void installingChanged();
    void errorMessage(const QString& message);  // a sentence for the user
    void finished();                              // the flow is over, with or without an error

private:
    void poll();
    void setInstalling(bool on);

    AudioDeviceList* devices_;
    QTimer timer_;
    int polls_ = 0;
    int pollMs_ = 1000;
    int refreshMs_ = 3000;
    bool installing_ = false;
};

}  // namespace parlova
