#include "engine/CleanMicSetting.h"

#include <algorithm>

namespace parlova {

void CleanMicSetting::attach(QSettings* settings) {
    settings_ = settings;
    if (!settings_) return;
    setEnabled(settings_->value(kEnabledKey, false).toBool(), false);
    setGateDb(settings_->value(kGateKey, CleanMicControl::kDefaultGateDb).toFloat(), false);
}

void CleanMicSetting::setEnabled(bool on, bool remember) {
    if (remember && settings_) settings_->setValue(kEnabledKey, on);
    if (enabled_ == on) return;
    enabled_ = on;
    emit enabledChanged();
}

void CleanMicSetting::setGateDb(float db, bool remember) {
    db = std::clamp(db, kMinGateDb, kMaxGateDb);
    if (remember && settings_) settings_->setValue(kGateKey, db);
    if (gateDb() == db) return;
    // Relaxed: a lone value, picked up by the next block.
    control_->gateDb.store(db, std::memory_order_relaxed);
    emit gateDbChanged();
}

VoiceStageFactory CleanMicSetting::wrap(VoiceStageFactory stage) const {
    if (!enabled_) return stage;
    return CleanMicStage::wrap(std::move(stage), control_);
}

}  // namespace parlova
