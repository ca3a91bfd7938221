#pragma once
// A lock that one process of the user's session holds on a file in the
// runtime folder, with a short record of who holds it. The kernel drops the
// lock with the last descriptor of its holder, so a crashed or killed holder
// never leaves it behind, and any process of the user can see whether the
// holder is alive without taking the lock.
//
// The locks are open-file-description locks: two SessionLock objects conflict
// even inside one process. Safe to use from any one thread at a time.
#include <QString>

#include <optional>

namespace parlova {

// A file in the user's private runtime folder ($XDG_RUNTIME_DIR, else a
// per-user folder in the temporary folder).
QString sessionRuntimePath(const QString& name);

// What a holder writes into its lock file for the others to read.
struct LockHolder {
    qint64 pid = 0;
    QString who;          // "the Parlova window", "\u201cparlova-cli live\u201d (process 123)"
    QString purpose;      // what it holds the lock for, e.g. "live" or "repair"
    QString controlPath;  // where it listens for control commands, empty when it does not

    QByteArray toJson() const;
    static LockHolder fromJson(const QByteArray& json);
};

class SessionLock {
public:
    explicit SessionLock(QString path) : path_(std::move(path)) {}
    ~SessionLock() { release(); }
    SessionLock(const SessionLock&) = delete;
    SessionLock& operator=(const SessionLock&) = delete;

    // Takes the lock without waiting and writes `holder` into the file; false
    // when another holder has it.
    bool tryAcquire(const LockHolder& holder);
    void release();
    bool isHeld() const { return fd_ >= 0; }
    const QString& path() const { return path_; }

    // The record of whoever holds the lock at `path` now; none when nobody
    // does. An unreadable record of a live holder reads as an empty one.
    static std::optional<LockHolder> holderOf(const QString& path);

private:
    QString path_;
    int fd_ = -1;
};

}  // namespace parlova
