#include "engine/CallMode.h"

#include "devices/AudioDeviceList.h"
#include "engine/LiveOwner.h"
#include "engine/LiveRouting.h"

namespace parlova {

namespace {

QString displayName(const DeviceEntry& entry) {
    return QString::fromStdString(entry.name.value_or(entry.uid.value_or("an unnamed microphone")));
}

}  // namespace

QString systemMicElsewhereSentence(const QString& deviceName) {
    return QStringLiteral("Call apps now hear \u201c%1\u201d, not Parlova Mic.").arg(deviceName);
}

CallMode::CallMode(QSettings& settings, AudioBackend* backend, BackendJobs& jobs, QObject* parent)
    : QObject(parent), settings_(settings), backend_(backend), jobs_(jobs) {
    if (backend_) connect(&backend_->events(), &BackendEvents::defaultsChanged, this, &CallMode::checkDefaultInput);
}

void CallMode::useVirtualCableAsSystemMic(const DeviceTable& table) {
    const auto cable = deviceRules::virtualCableID(table);
    if (!cable || !backend_) return;
    // A cable already in place is never saved as the "real" microphone.
    if (auto current = table.defaultInput; current && *current != *cable) {
        if (const DeviceEntry* entry = table.find(*current); entry && entry->uid) {
            settings_.setValue(kMicBeforeCallModeKey, QString::fromStdString(*entry->uid));
            settings_.sync();
        }
    }
    switchPending_ = true;
    AudioBackend* backend = backend_;
    const DeviceEntry entry = *table.find(*cable);
    jobs_.request(this, [backend, entry] { return backend->setDefaultInput(entry); },
                  [this](bool switched) {
                      switchPending_ = false;
                      switched_ = switched;
                      setElsewhere({});
                      emit systemMicChanged();
                      // Something may have moved it while the switch was on its way.
                      if (switched) checkDefaultInput();
                  });
}

void CallMode::takeBackSystemMic() {
    if (!backend_ || !switched_) return;
    AudioBackend* backend = backend_;
    jobs_.request(this, [backend] { return backend->snapshot(); },
                  [this](std::optional<DeviceTable> table) {
                      if (table && switched_) useVirtualCableAsSystemMic(*table);
                  });
}

void CallMode::restoreSystemMic() {
    const bool switched = switched_ || switchPending_;
    setElsewhere({});
    if (!switched) return;
    putBack(true);
}

void CallMode::repairSystemMic() {
    if (switched_ || switchPending_ || !settings_.contains(kMicBeforeCallModeKey)) return;
    putBack(false);
}

void CallMode::putBack(bool ownCall) {
    if (!backend_) return;
    const QString saved = savedMic();
    AudioBackend* backend = backend_;
    // The saved microphone is forgotten on the job thread, while the claim
    // is held, so that a call another process starts right after cannot
    // lose the microphone it saved.
    const QString settingsFile = settings_.fileName();
    const QSettings::Format format = settings_.format();
    enum Outcome { done, restored, ownerAlive, noServer };
    jobs_.request(
        this,
        [backend, saved, ownCall, settingsFile, format] {
            // A repair must not undo a call another process is running: it
            // runs only while nobody owns live, and keeps anyone from going
            // live until it is done. (The caller's own call holds its claim
            // until this job has run.)
            LiveOwner::ClaimPtr repair;
            if (!ownCall && !(repair = LiveOwner::claimForRepair())) return ownerAlive;
            const auto table = backend->snapshot();
            if (!table) return noServer;
            Outcome outcome = done;
            // Only a cable that still is the system microphone is replaced:
            // a microphone the user chose meanwhile stays.
            const auto cable = deviceRules::virtualCableID(*table);
            if (cable && table->defaultInput == cable) {
                if (auto mic = micToRestore(*table, saved)) backend->setDefaultInput(*table->find(*mic));
                outcome = restored;  // a failed switch back is not reported
            }
            QSettings settings(settingsFile, format);
            settings.remove(kMicBeforeCallModeKey);
            settings.sync();
            return outcome;
        },
        [this, ownCall](Outcome outcome) {
            if (outcome == noServer || outcome == ownerAlive) return;  // kept for the next chance
            if (ownCall) switched_ = false;
            settings_.sync();
            if (outcome == restored) emit systemMicChanged();
        });
}

void CallMode::checkDefaultInput() {
    if (!backend_ || !switched_ || checkPending_) return;
    checkPending_ = true;
    AudioBackend* backend = backend_;
    jobs_.request(this, [backend] { return backend->snapshot(); },
                  [this](std::optional<DeviceTable> table) {
                      checkPending_ = false;
                      if (!table || !switched_ || switchPending_) return;
                      const auto cable = deviceRules::virtualCableID(*table);
                      const DeviceEntry* current = table->defaultInput ? table->find(*table->defaultInput) : nullptr;
                      if (!cable || !current || current->id == *cable)
                          setElsewhere({});
                      else
                          setElsewhere(displayName(*current));
                  });
}

void CallMode::setElsewhere(const QString& name) {
    if (elsewhere_ == name) return;
    elsewhere_ = name;
    emit systemMicElsewhereChanged();
}

}  // namespace parlova
