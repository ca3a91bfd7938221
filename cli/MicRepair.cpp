#include "cli/MicRepair.h"

#include "cli/Command.h"
#include "engine/LiveOwner.h"
#include "devices/AudioBackend.h"
#include "devices/AudioDeviceList.h"
#include "devices/BackendJobs.h"
#include "engine/CallMode.h"
#include "engine/LiveRouting.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSettings>

#include <cstdio>

namespace parlova::cli {
namespace {

constexpr std::chrono::milliseconds kServerWait{5000};

QString defaultInputName(const DeviceTable& table) {
    const DeviceEntry* entry = table.defaultInput ? table.find(*table.defaultInput) : nullptr;
    if (!entry) return {};
    return QString::fromStdString(entry->name.value_or(entry->uid.value_or("an unnamed microphone")));
}

}  // namespace

MicRepairOutcome repairSavedSystemMic() {
    MicRepairOutcome outcome;
    QSettings settings;
    if (!settings.contains(CallMode::kMicBeforeCallModeKey)) return outcome;
    outcome.neededServer = true;
    // The engine's own repair, run to completion: the headless command may wait.
    BackendJobs& jobs = BackendJobs::shared();
    CallMode callMode(settings, &AudioBackend::system(), jobs);
    QObject::connect(&callMode, &CallMode::systemMicChanged, [&] { outcome.restored = true; });
    callMode.repairSystemMic();
    jobs.waitIdle(kServerWait);
    QCoreApplication::sendPostedEvents(&callMode, QEvent::MetaCall);
    if (const auto table = AudioBackend::system().snapshot()) {
        outcome.serverReached = true;
        outcome.microphone = defaultInputName(*table);
    }
    return outcome;
}

void repairSystemMicOnStart(bool quiet) {
    const MicRepairOutcome outcome = repairSavedSystemMic();
    if (quiet) return;
    if (const auto sentence = describe(outcome)) std::fprintf(stderr, "%s\n", sentence->toUtf8().constData());
}

void refuseBesideLive(const std::optional<LockHolder>& owner) {
    if (!owner) return;
    const QString who = owner->who.isEmpty() ? QStringLiteral("another Parlova program") : owner->who;
    throw Failure(QString("Parlova is live in %1, which owns the system microphone now. Stop it first "
                          "(\u201cparlova-cli control live stop\u201d), then try again.")
                      .arg(who)
                      .toStdString());
}

MicRepairOutcome restoreSystemMic() {
    refuseBesideLive(LiveOwner::current());
    MicRepairOutcome outcome = repairSavedSystemMic();
    outcome.neededServer = true;
    // Nobody may go live while the microphone is put back by hand.
    const auto claim = LiveOwner::claimForRepair();
    if (!claim) refuseBesideLive(LiveOwner::current().value_or(LockHolder{}));
    AudioBackend& backend = AudioBackend::system();
    auto table = backend.snapshot();
    if (!table) return outcome;
    outcome.serverReached = true;
    const auto cable = deviceRules::virtualCableID(*table);
    if (cable && table->defaultInput == cable) {
        if (const auto mic = micToRestore(*table, {}); mic && backend.setDefaultInput(*table->find(*mic))) {
            outcome.restored = true;
            table = backend.snapshot();
        }
    }
    if (table) outcome.microphone = defaultInputName(*table);
    return outcome;
}

std::optional<QString> describe(const MicRepairOutcome& outcome) {
    if (outcome.restored)
        return QString("The system microphone was left on \"Parlova Mic\" by an earlier call; it is \"%1\" again.")
            .arg(outcome.microphone);
    return std::nullopt;
}

}  // namespace parlova::cli
