// Call mode: routing live output into the virtual mic, making it the system
// microphone while live runs, and always giving the real microphone back.
#include "engine/VoiceEngine.h"

#include "devices/pulse/StreamLoop.h"

#include <algorithm>

namespace parlova {

namespace {
bool contains(const std::vector<uint32_t>& ids, uint32_t id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }
std::optional<QString> optionalUid(const QString& uid) {
    return uid.isEmpty() ? std::nullopt : std::optional<QString>(uid);
}
}  // namespace

std::optional<uint32_t> VoiceEngine::realSystemMic() const {
    const auto physical = AudioDeviceList::physicalInputIDs();
    if (auto current = AudioDeviceList::defaultInputID(); current && contains(physical, *current)) return current;
    const QString saved = settings_->value(kMicBeforeCallModeKey).toString();
    if (auto id = AudioDeviceList::deviceID(optionalUid(saved)); id && contains(physical, *id)) return id;
    if (!physical.empty()) return physical.front();
    return std::nullopt;
}

std::optional<uint32_t> VoiceEngine::physicalMic() const {
    if (auto chosen = AudioDeviceList::deviceID(optionalUid(inputUID_));
        chosen && contains(AudioDeviceList::physicalInputIDs(), *chosen))
        return chosen;
    return realSystemMic();
}

LiveRoute VoiceEngine::liveRouting() const {
    if (!AudioDeviceList::isServerReachable()) throw VoiceEngineError(pulse::kNoServerMessage);
    LiveRoute route;
    std::optional<uint32_t> mic, output;
    route.isCall = callMode_ && isLive_;
    if (route.isCall) {
        const auto cable = AudioDeviceList::virtualCableID();
        if (!cable) throw VoiceEngineError(kCallNeedsVirtualMicMessage);
        mic = physicalMic();
        output = cable;
        if (hearMyself_) {
            auto monitor = AudioDeviceList::deviceID(optionalUid(outputUID_));
            if (!monitor) monitor = AudioDeviceList::defaultOutputID();
            // Never on the cable itself, and never on speakers: they would echo into the call.
            if (monitor && *monitor != *cable && !AudioDeviceList::isSpeaker(*monitor)) route.monitor = monitor;
        }
    } else {
        mic = physicalMic();
        output = AudioDeviceList::deviceID(optionalUid(outputUID_));
        if (!output) output = AudioDeviceList::defaultOutputID();
    }
    if (!mic || !output) throw VoiceEngineError(kNoDevicesMessage);
    route.mic = *mic;
    route.output = *output;
    return route;
}

bool VoiceEngine::isCableSystemMic() const {
    if (!settings_->contains(kMicBeforeCallModeKey)) return false;
    const auto cable = AudioDeviceList::virtualCableID();
    return cable && AudioDeviceList::defaultInputID() == cable;
}

void VoiceEngine::useVirtualCableAsSystemMic() {
    const auto cable = AudioDeviceList::virtualCableID();
    if (!cable) return;
    // A cable already in place is never saved as the "real" microphone.
    if (auto current = AudioDeviceList::defaultInputID(); current && *current != *cable) {
        if (auto uid = AudioDeviceList::uid(*current)) {
            settings_->setValue(kMicBeforeCallModeKey, *uid);
            settings_->sync();
        }
    }
    switchedDefaultInput_ = AudioDeviceList::setDefaultInput(*cable);
}

void VoiceEngine::restoreSystemMic() {
    if (!switchedDefaultInput_ && !isCableSystemMic()) return;
    const QString saved = settings_->value(kMicBeforeCallModeKey).toString();
    auto mic = AudioDeviceList::deviceID(optionalUid(saved));
    if (!mic) {
        const auto physical = AudioDeviceList::physicalInputIDs();
        if (!physical.empty()) mic = physical.front();
    }
    if (mic) AudioDeviceList::setDefaultInput(*mic);  // a failed restore is not reported
    settings_->remove(kMicBeforeCallModeKey);
    settings_->sync();
    switchedDefaultInput_ = false;
}

void VoiceEngine::setCallMode(bool on) {
    if (callMode_ == on) return;
    callMode_ = on;
    emit callModeChanged();
    updateLiveEngine();
}

void VoiceEngine::setHearMyself(bool on) {
    if (hearMyself_ == on) return;
    hearMyself_ = on;
    emit hearMyselfChanged();
    // The monitor is part of the route: rebuild a running call route.
    if (live_ && liveIsCall_) {
        tearDownLive();
        updateLiveEngine();
    }
}

}  // namespace parlova
