#pragma once
// The user's "Clean up my mic" switch and its gate threshold. It belongs to
// the microphone, not to a voice: it applies whatever voice is selected, in
// live mode and to exports. Off by default; kept in the settings.
//
// Main thread only; running stages read the threshold through the shared
// control, so moving it needs no rebuild.
#include "engine/CleanMic.h"

#include <QObject>
#include <QSettings>

#include <memory>

namespace parlova {

class CleanMicSetting : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(float gateDb READ gateDb WRITE setGateDb NOTIFY gateDbChanged)

public:
    static constexpr const char* kEnabledKey = "cleanMic";
    static constexpr const char* kGateKey = "cleanMicGateDb";
    static constexpr float kMinGateDb = -80.0f;
    static constexpr float kMaxGateDb = -10.0f;

    explicit CleanMicSetting(QObject* parent = nullptr) : QObject(parent) {}
    void attach(QSettings* settings);

    bool enabled() const { return enabled_; }
    void setEnabled(bool on, bool remember = true);
    float gateDb() const { return control_->gateDb.load(std::memory_order_relaxed); }
    // Clamped to kMinGateDb..kMaxGateDb.
    void setGateDb(float db, bool remember = true);

    // The control for a stage to follow, or null while switched off.
    std::shared_ptr<const CleanMicControl> activeControl() const { return enabled_ ? control_ : nullptr; }
    // `stage` with the clean-mic stage in front while switched on.
    VoiceStageFactory wrap(VoiceStageFactory stage) const;

signals:
    void enabledChanged();
    void gateDbChanged();

private:
    QSettings* settings_ = nullptr;
    bool enabled_ = false;
    std::shared_ptr<CleanMicControl> control_ = std::make_shared<CleanMicControl>();
};

}  // namespace parlova
