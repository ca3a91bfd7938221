#include "engine/TalkControl.h"

namespace parlova {

QString talkModeName(TalkMode mode) {
    switch (mode) {
    case TalkMode::pushToTalk: return QStringLiteral("push-to-talk");
    case TalkMode::pushToMute: return QStringLiteral("push-to-mute");
    case TalkMode::always: break;
    }
    return QStringLiteral("always");
}

std::optional<TalkMode> talkModeFromName(const QString& name) {
    for (TalkMode mode : {TalkMode::always, TalkMode::pushToTalk, TalkMode::pushToMute})
        if (name.compare(talkModeName(mode), Qt::CaseInsensitive) == 0) return mode;
    return std::nullopt;
}

void TalkControl::attach(QSettings* settings) {
    settings_ = settings;
    if (!settings_) return;
    if (auto stored = talkModeFromName(settings_->value(kSettingsKey).toString())) setMode(*stored, false);
}

bool TalkControl::isTalking() const {
    switch (mode_) {
    case TalkMode::pushToTalk: return keyHeld_;
    case TalkMode::pushToMute: return !keyHeld_;
    case TalkMode::always: break;
    }
    return true;
}

void TalkControl::changed(bool talkingBefore) {
    if (isTalking() != talkingBefore) emit talkingChanged();
    emit statusChanged();
}

void TalkControl::setMode(TalkMode mode, bool remember) {
    if (mode != TalkMode::always && mode != TalkMode::pushToTalk && mode != TalkMode::pushToMute) return;
    if (remember && settings_) {
        if (mode == TalkMode::always)
            settings_->remove(kSettingsKey);
        else
            settings_->setValue(kSettingsKey, talkModeName(mode));
    }
    if (mode_ == mode) return;
    const bool before = isTalking();
    mode_ = mode;
    emit talkModeChanged();
    changed(before);
}

void TalkControl::setKeyHeld(bool held) {
    if (keyHeld_ == held) return;
    const bool before = isTalking();
    keyHeld_ = held;
    changed(before);
}

void TalkControl::setKeyLabel(const QString& label) {
    const QString wanted = label.isEmpty() ? QString::fromUtf8(kDefaultKeyLabel) : label;
    if (keyLabel_ == wanted) return;
    keyLabel_ = wanted;
    emit statusChanged();
}

QString TalkControl::status() const {
    switch (mode_) {
    case TalkMode::pushToTalk:
        return keyHeld_ ? QStringLiteral("Talking") : QStringLiteral("Push to talk: hold %1").arg(keyLabel_);
    case TalkMode::pushToMute:
        return keyHeld_ ? QStringLiteral("Muted") : QStringLiteral("Push to mute: hold %1").arg(keyLabel_);
    case TalkMode::always: break;
    }
    return {};
}

}  // namespace parlova
