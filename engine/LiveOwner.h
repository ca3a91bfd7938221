#pragma once
// One owner of live mode, and with it of the system microphone, per user
// session: whichever Parlova process talks live (the window or
// "parlova-cli live") holds a session lock that every other Parlova process
// can see and that ends with its holder, even on SIGKILL. Another process
// refuses to go live beside it, and repairs a system microphone left on the
// virtual mic only when no owner is alive.
//
// The session is the user's runtime folder and sound server: a process
// pointed at another server (PULSE_SERVER) is in another session.
//
// Thread-safe; claims may be dropped on any thread.
#include "engine/SessionLock.h"

#include <QString>

#include <memory>
#include <optional>

namespace parlova {

class LiveOwner {
public:
    class Claim;
    // Holding a claim keeps this process the owner; the last one dropped
    // releases the lock.
    using ClaimPtr = std::shared_ptr<Claim>;

    static constexpr const char* kLivePurpose = "live";
    static constexpr const char* kRepairPurpose = "repair";

    // How this process is named to the others, e.g. "the Parlova window".
    static void setIdentity(const QString& who);
    // Where this process listens for control commands (empty: nowhere).
    static void setControlPath(const QString& path);

    // Makes this process the live owner, or shares the claim it has. None
    // when another process owns live; `holder` then says who.
    static ClaimPtr claimLive(std::optional<LockHolder>* holder = nullptr);
    // For a repair of the system microphone: only when nobody owns live,
    // this process included. Holding it keeps others from going live.
    static ClaimPtr claimForRepair();
    // The process that owns live now (this one included), if any.
    static std::optional<LockHolder> current();
    static QString lockPath();

    // The sentence that refuses going live beside `holder`.
    static QString refusal(const std::optional<LockHolder>& holder);
    // Whether `holder` holds the lock only for a moment (a repair): worth a retry.
    static bool isPassing(const std::optional<LockHolder>& holder) {
        return holder && holder->purpose == QLatin1String(kRepairPurpose);
    }
};

}  // namespace parlova
