#pragma once
// The local control channel: a per-user socket in the runtime folder that the
// app (or "parlova-cli live") listens on, so any desktop can bind keys to
// "parlova-cli control ...". Only the same user gets in: the socket file is
// mode 0600 in the user's private runtime folder, and a peer whose user id
// differs is dropped on connect.
//
// Main thread. Each connection sends request lines and gets one reply line
// per request; an overlong line is refused and the connection closed.
#include "control/ControlCommands.h"

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace parlova {

inline constexpr int kControlMaxLine = 4096;

// Where the desktop app listens: $XDG_RUNTIME_DIR/parlova-control (else a
// private folder in the temporary folder).
QString controlSocketPath();
// Where "parlova-cli live" listens, beside the app.
QString liveControlSocketPath();

class ControlServer : public QObject {
    Q_OBJECT
public:
    explicit ControlServer(ControlCommands& commands, QObject* parent = nullptr);
    ~ControlServer() override;

    // Starts listening at `path` (default controlSocketPath()). A socket left
    // by a process that is gone is replaced; one that still answers is not.
    // On failure `error` holds a sentence.
    bool listen(QString* error, const QString& path = controlSocketPath());
    QString path() const { return server_.fullServerName(); }

private:
    void accept();

    ControlCommands& commands_;
    QLocalServer server_;
};

// Sends one request line to the listening Parlova and waits (up to
// `timeoutMs`) for its reply. Blocking: for the command line only. Without a
// path it goes to the process that owns live, else to the app, else to a
// "parlova-cli live" still starting.
ControlReply sendControlRequest(const QString& line, int timeoutMs = 3000, const QString& path = {});

}  // namespace parlova
