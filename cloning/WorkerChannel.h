#pragma once
// The running clone worker: a child process whose standard output is read on
// a thread of its own. Protocol messages reach the main thread as signals; live
// audio ("stream_out") goes straight to the stream receiver on the reader
// thread, so a busy window never delays it. Nothing here blocks the main
// thread: start, writes and stops are handed to the reader thread, which
// also sends the live input, so neither direction of a stream waits on the window.
#include "cloning/WorkerProtocol.h"

#include <QObject>
#include <QProcessEnvironment>
#include <QThread>
#include <QTimer>

#include <functional>
#include <mutex>

class QProcess;

namespace parlova {

class WorkerChannel : public QObject {
    Q_OBJECT
public:
    struct Launch {
        QString program;
        QStringList arguments;
        QString workingDirectory;
        QProcessEnvironment environment;
        QString errorLog;  // the worker's standard error goes here (empty: discarded)
    };
    // Called on the reader thread with each decoded block of live audio.
    using StreamReceiver = std::function<void(const float* samples, size_t count)>;
    // Polled on the reader thread every kStreamPollMs while set: the live
    // input gathered since the last call, as samples for a "stream" line
    // (none: nothing to send).
    using StreamSource = std::function<std::vector<float>()>;
    static constexpr int kStreamPollMs = 10;

    explicit WorkerChannel(QObject* parent = nullptr);
    // Kills a worker still running.
    ~WorkerChannel() override;

    void start(const Launch& launch);
    // Writes one line (a newline is added). `id` names the request whose
    // failure writeFailed reports (0 for lines without one).
    void write(const QByteArray& line, qint64 id = 0);
    // Closes the worker's input: it answers what it has and exits.
    void closeInput();
    void kill();
    void setStreamReceiver(StreamReceiver receiver);
    void setStreamSource(StreamSource source);

signals:
    // A protocol message other than live audio.
    void messageReceived(const QJsonObject& message);
    void writeFailed(qint64 id);
    // The process ended, or never started.
    void exited();

private:
    void readOutput();  // reader thread
    void sendStream();  // reader thread

    QThread thread_;
    QObject* context_;     // lives on the reader thread
    QProcess* process_ = nullptr;  // reader thread only
    LineSplitter splitter_;        // reader thread only
    std::mutex receiverLock_;      // reader thread against setStreamReceiver; never an audio thread
    StreamReceiver receiver_;
    StreamSource source_;          // reader thread only
    QTimer* streamTimer_ = nullptr;  // reader thread only
};

}  // namespace parlova
