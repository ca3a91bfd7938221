#include "engine/LiveOwner.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>

#include <mutex>
#include <unistd.h>

namespace parlova {

class LiveOwner::Claim {};

namespace {

struct ProcessState {
    std::mutex mutex;
    QString who;
    QString controlPath;
    std::unique_ptr<SessionLock> lock;
    QString purpose;
    std::weak_ptr<LiveOwner::Claim> claim;
    unsigned generation = 0;  // of the lock: a late release never drops a newer one
};

ProcessState& state() {
    static ProcessState* s = new ProcessState;  // never destroyed: claims may outlive statics
    return *s;
}

LockHolder ownRecord(const ProcessState& s, const QString& purpose) {
    LockHolder holder;
    holder.pid = getpid();
    holder.who = s.who.isEmpty() ? QStringLiteral("another Parlova program (process %1)").arg(getpid()) : s.who;
    holder.purpose = purpose;
    holder.controlPath = s.controlPath;
    return holder;
}

LiveOwner::ClaimPtr take(const QString& purpose, std::optional<LockHolder>* holder) {
    ProcessState& s = state();
    std::lock_guard guard(s.mutex);
    if (auto existing = s.claim.lock()) {
        // This process owns it already: live shares a live claim; nothing
        // else may take it meanwhile.
        if (purpose == QLatin1String(LiveOwner::kLivePurpose) && s.purpose == purpose) return existing;
        if (holder) *holder = ownRecord(s, s.purpose);
        return nullptr;
    }
    s.lock.reset();  // a claim that just expired, its release still on its way
    auto lock = std::make_unique<SessionLock>(LiveOwner::lockPath());
    if (!lock->tryAcquire(ownRecord(s, purpose))) {
        if (holder) *holder = SessionLock::holderOf(lock->path()).value_or(LockHolder{});
        return nullptr;
    }
    s.lock = std::move(lock);
    s.purpose = purpose;
    const unsigned generation = ++s.generation;
    LiveOwner::ClaimPtr claim(new LiveOwner::Claim, [generation](LiveOwner::Claim* c) {
        delete c;
        ProcessState& st = state();
        std::lock_guard g(st.mutex);
        if (st.generation == generation) st.lock.reset();
    });
    s.claim = claim;
    return claim;
}

}  // namespace

void LiveOwner::setIdentity(const QString& who) {
    std::lock_guard guard(state().mutex);
    state().who = who;
}

void LiveOwner::setControlPath(const QString& path) {
    std::lock_guard guard(state().mutex);
    state().controlPath = path;
}

QString LiveOwner::lockPath() {
    QString name = QStringLiteral("parlova-live");
    // Processes on different sound servers own different system microphones.
    const QByteArray server = qgetenv("PULSE_SERVER");
    if (!server.isEmpty())
        name += QLatin1Char('-') +
                QString::fromLatin1(QCryptographicHash::hash(server, QCryptographicHash::Sha1).toHex().left(12));
    return sessionRuntimePath(name + QStringLiteral(".lock"));
}

LiveOwner::ClaimPtr LiveOwner::claimLive(std::optional<LockHolder>* holder) { return take(kLivePurpose, holder); }

LiveOwner::ClaimPtr LiveOwner::claimForRepair() { return take(kRepairPurpose, nullptr); }

std::optional<LockHolder> LiveOwner::current() {
    {
        ProcessState& s = state();
        std::lock_guard guard(s.mutex);
        if (!s.claim.expired()) return ownRecord(s, s.purpose);
    }
    return SessionLock::holderOf(lockPath());
}

QString LiveOwner::refusal(const std::optional<LockHolder>& holder) {
    if (isPassing(holder))
        return QStringLiteral("Parlova is giving the real microphone back to the system. Try again in a moment.");
    const QString who = holder && !holder->who.isEmpty() ? holder->who : QStringLiteral("another Parlova program");
    return QStringLiteral("Parlova is already live in %1. Stop it there, or run \u201cparlova-cli control live stop\u201d, "
                          "then try again.")
        .arg(who);
}

}  // namespace parlova
