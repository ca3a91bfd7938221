#include "engine/CallMode.h"

#include "devices/AudioDeviceList.h"
#include "engine/LiveRouting.h"

namespace parlova {

CallMode::CallMode(QSettings& settings, AudioBackend* backend, BackendJobs& jobs, QObject* parent)
    : QObject(parent), settings_(settings), backend_(backend), jobs_(jobs) {}

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
                      emit systemMicChanged();
                  });
}

void CallMode::restoreSystemMic() {
    const bool hasSaved = settings_.contains(kMicBeforeCallModeKey);
    const bool switched = switched_ || switchPending_;
    if (!backend_ || (!switched && !hasSaved)) return;
    const QString saved = savedMic();
    AudioBackend* backend = backend_;
    enum Outcome { nothingToDo, restored, noServer };
    jobs_.request(
        this,
        [backend, saved, hasSaved, switched] {
            const auto table = backend->snapshot();
            if (!table) return noServer;
            const auto cable = deviceRules::virtualCableID(*table);
            const bool cableIsSystemMic = hasSaved && cable && table->defaultInput == cable;
            if (!switched && !cableIsSystemMic) return nothingToDo;
            if (auto mic = micToRestore(*table, saved)) backend->setDefaultInput(*table->find(*mic));
            return restored;  // a failed switch back is not reported
        },
        [this](Outcome outcome) {
            if (outcome == noServer) return;  // kept for the next chance
            switched_ = false;
            if (outcome == restored) {
                settings_.remove(kMicBeforeCallModeKey);
                settings_.sync();
                emit systemMicChanged();
            }
        });
}

}  // namespace parlova
