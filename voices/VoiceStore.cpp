#include "voices/VoiceStore.h"

#include <algorithm>

namespace parlova {

VoiceStore::VoiceStore(QSettings* settings, QObject* parent) : QObject(parent), settings_(settings) {
    if (settings_ == nullptr) {
        ownedSettings_ = std::make_unique<QSettings>();
        settings_ = ownedSettings_.get();
    }
    load();
}

VoiceStore::~VoiceStore() = default;

void VoiceStore::load() {
    const QVariant stored = settings_->value(kSettingsKey);
    if (stored.isValid()) {
        auto decoded = decodeVoices(stored.toByteArray());
        if (decoded && !decoded->empty()) {
            voices_ = std::move(*decoded);
            return;
        }
    }
    // No entry, damaged data, a single bad voice, or an empty list: the
    // starting voices, without writing anything back until the first change.
    voices_ = Voice::builtIns();
}

void VoiceStore::save() {
    settings_->setValue(kSettingsKey, encodeVoices(voices_));
    settings_->sync();
}

void VoiceStore::setVoices(std::vector<Voice> voices) {
    voices_ = std::move(voices);
    save();
    emit voicesChanged();
}

Voice VoiceStore::duplicate(const Voice& voice) {
    Voice copy = voice;
    copy.id = QUuid::createUuid();
    copy.presetKey.reset();
    copy.name = voice.name + " Copy";
    copy.emoji = QString::fromUtf8("\U0001F399\uFE0F");
    auto source = std::find_if(voices_.begin(), voices_.end(), [&](const Voice& v) { return v.id == voice.id; });
    if (source != voices_.end())
        voices_.insert(source + 1, copy);
    else
        voices_.push_back(copy);
    save();
    emit voicesChanged();
    return copy;
}

void VoiceStore::reset(const Voice& voice) {
    if (!voice.presetKey) return;
    auto factory = Voice::factory(*voice.presetKey);
    if (!factory) return;
    auto target = std::find_if(voices_.begin(), voices_.end(), [&](const Voice& v) { return v.id == voice.id; });
    if (target == voices_.end()) return;
    *target = *factory;
    target->id = voice.id;
    save();
    emit voicesChanged();
}

void VoiceStore::remove(const Voice& voice) {
    if (voice.presetKey) return;
    std::erase_if(voices_, [&](const Voice& v) { return v.id == voice.id; });
    save();
    emit voicesChanged();
}

std::optional<Voice> VoiceStore::find(const QString& name) const {
    for (const auto& v : voices_)
        if (v.name.compare(name, Qt::CaseInsensitive) == 0) return v;
    return std::nullopt;
}

}  // namespace parlova
