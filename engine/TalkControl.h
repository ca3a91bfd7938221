#pragma once
// When the virtual mic carries the voice: always, only while the push-to-talk
// key is held, or always except while it is held (push to mute). The engine
// turns isTalking() into the output's volume, which ramps over a few
// milliseconds, so switching never clicks and the route stays up; the monitor
// hears what the call hears.
//
// Main thread only. The mode is kept in the settings; the key state is not.
#include <QObject>
#include <QSettings>
#include <QString>

#include <optional>

namespace parlova {

enum class TalkMode { always, pushToTalk, pushToMute };

// "always", "push-to-talk", "push-to-mute".
QString talkModeName(TalkMode mode);
std::optional<TalkMode> talkModeFromName(const QString& name);

class TalkControl : public QObject {
    Q_OBJECT
    Q_PROPERTY(int talkMode READ talkModeValue WRITE setTalkModeValue NOTIFY talkModeChanged)
    Q_PROPERTY(bool keyHeld READ keyHeld WRITE setKeyHeld NOTIFY talkingChanged)
    Q_PROPERTY(bool isTalking READ isTalking NOTIFY talkingChanged)
    Q_PROPERTY(QString keyLabel READ keyLabel WRITE setKeyLabel NOTIFY statusChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)

public:
    static constexpr const char* kSettingsKey = "talkMode";
    static constexpr const char* kDefaultKeyLabel = "your push-to-talk shortcut";

    explicit TalkControl(QObject* parent = nullptr) : QObject(parent) {}
    // Reads the stored mode; later changes are stored there when remembered.
    void attach(QSettings* settings);

    TalkMode mode() const { return mode_; }
    void setMode(TalkMode mode, bool remember = true);
    int talkModeValue() const { return static_cast<int>(mode_); }
    void setTalkModeValue(int mode) { setMode(static_cast<TalkMode>(mode)); }

    // The push-to-talk (or push-to-mute) key: held down or not.
    bool keyHeld() const { return keyHeld_; }
    void setKeyHeld(bool held);
    void toggleKey() { setKeyHeld(!keyHeld_); }

    // Whether the voice reaches the output now.
    bool isTalking() const;

    // How the key is named to the user (what the shortcut mechanism bound).
    QString keyLabel() const { return keyLabel_; }
    void setKeyLabel(const QString& label);

    // The status line: empty while always talking, else "Push to talk: hold
    // KEY" or "Talking" (push to mute: "Push to mute: hold KEY" or "Muted").
    QString status() const;

signals:
    void talkModeChanged();
    // isTalking() may have changed.
    void talkingChanged();
    void statusChanged();

private:
    void changed(bool talkingBefore);

    QSettings* settings_ = nullptr;
    TalkMode mode_ = TalkMode::always;
    bool keyHeld_ = false;
    QString keyLabel_ = QString::fromUtf8(kDefaultKeyLabel);
};

}  // namespace parlova
