#include "control/ControlServer.h"

#include "engine/LiveOwner.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QPointer>

#include <algorithm>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace parlova {

namespace {

// The user id of the process at the other end, or -1 when unknown.
long peerUid(qintptr descriptor) {
    struct ucred credentials {};
    socklen_t length = sizeof credentials;
    if (getsockopt(static_cast<int>(descriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return -1;
    return static_cast<long>(credentials.uid);
}

const char* kNotRunning = "Parlova isn't listening for commands: start the app or \u201cparlova-cli live\u201d first.";

}  // namespace

QString controlSocketPath() { return sessionRuntimePath(QStringLiteral("parlova-control")); }

QString liveControlSocketPath() { return sessionRuntimePath(QStringLiteral("parlova-live-control")); }

ControlServer::ControlServer(ControlCommands& commands, QObject* parent) : QObject(parent), commands_(commands) {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server_, &QLocalServer::newConnection, this, &ControlServer::accept);
}

ControlServer::~ControlServer() { server_.close(); }

bool ControlServer::listen(QString* error, const QString& path) {
    // Someone answering there is another running Parlova; silence means a
    // leftover file. (Listening would replace the socket file either way.)
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(300)) {
        if (error) *error = QStringLiteral("Another Parlova is already listening for commands.");
        return false;
    }
    QLocalServer::removeServer(path);
    if (!server_.listen(path)) {
        if (error) *error = QStringLiteral("Couldn't listen for commands at %1 (%2).").arg(path, server_.errorString());
        return false;
    }
    // The owner alone may connect, whatever the umask gave the file.
    ::chmod(QFile::encodeName(server_.fullServerName()).constData(), S_IRUSR | S_IWUSR);
    return true;
}

void ControlServer::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        if (peerUid(socket->socketDescriptor()) != static_cast<long>(getuid())) {
            socket->abort();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            const auto refuseLong = [socket] {
                socket->write(ControlReply{false, QStringLiteral("That request is too long."), {}}.toLine());
                socket->disconnectFromServer();
            };
            while (socket->canReadLine()) {
                const QByteArray line = socket->readLine(kControlMaxLine + 1);
                if (!line.endsWith('\n')) return refuseLong();
                socket->write(commands_.runLine(QString::fromUtf8(line)).toLine());
                // Out now: a command may end this process ("live stop" in
                // "parlova-cli live") before the event loop writes again.
                socket->flush();
            }
            if (socket->bytesAvailable() > kControlMaxLine) refuseLong();
        });
    }
}

ControlReply sendControlRequest(const QString& line, int timeoutMs, const QString& path) {
    QStringList candidates{path};
    if (path.isEmpty()) {
        candidates.clear();
        // The process that owns live is the one whose call the keys drive.
        if (const auto owner = LiveOwner::current(); owner && !owner->controlPath.isEmpty())
            candidates << owner->controlPath;
        candidates << controlSocketPath() << liveControlSocketPath();
    }
    QLocalSocket socket;
    bool connected = false;
    for (const QString& candidate : candidates) {
        socket.connectToServer(candidate);
        // A listening socket accepts at once, even when its owner is busy.
        if ((connected = socket.waitForConnected(std::min(timeoutMs, 500)))) break;
        socket.abort();
    }
    if (!connected) return {false, QString::fromUtf8(kNotRunning), {}};
    socket.write(line.toUtf8() + '\n');
    socket.flush();
    QByteArray reply;
    while (!reply.endsWith('\n')) {
        if (!socket.waitForReadyRead(timeoutMs))
            return {false, QStringLiteral("Parlova did not answer the command in time."), {}};
        reply += socket.readAll();
    }
    return ControlReply::fromLine(reply);
}

}  // namespace parlova
