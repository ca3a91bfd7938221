#include "cloning/WorkerChannel.h"

#include <QProcess>

namespace parlova {

WorkerChannel::WorkerChannel(QObject* parent) : QObject(parent), context_(new QObject) {
    thread_.setObjectName("Parlova.cloneWorker");
    context_->moveToThread(&thread_);
    connect(&thread_, &QThread::finished, context_, &QObject::deleteLater);
    thread_.start();
}

WorkerChannel::~WorkerChannel() {
    QMetaObject::invokeMethod(
        context_,
        [this] {
            if (process_ && process_->state() != QProcess::NotRunning) {
                process_->disconnect();
                process_->kill();
                process_->waitForFinished(1000);
            }
        },
        Qt::BlockingQueuedConnection);
    thread_.quit();
    thread_.wait();
}

void WorkerChannel::start(const Launch& launch) {
    QMetaObject::invokeMethod(context_, [this, launch] {
        process_ = new QProcess(context_);
        process_->setProgram(launch.program);
        process_->setArguments(launch.arguments);
        process_->setWorkingDirectory(launch.workingDirectory);
        process_->setProcessEnvironment(launch.environment);
        if (launch.errorLog.isEmpty()) process_->setStandardErrorFile(QProcess::nullDevice());
        else process_->setStandardErrorFile(launch.errorLog, QIODevice::Truncate);
        connect(process_, &QProcess::readyReadStandardOutput, context_, [this] { readOutput(); });
        connect(process_, &QProcess::finished, context_, [this] {
            readOutput();
            emit exited();
        });
        connect(process_, &QProcess::errorOccurred, context_, [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart) emit exited();
        });
        process_->start();
    });
}

void WorkerChannel::readOutput() {
    for (const QByteArray& line : splitter_.append(process_->readAllStandardOutput())) {
        const auto object = parseLine(line);
        if (!object) continue;  // not JSON, or not an object: ignored
        // Live audio is the only message that skips the main thread.
        if (const QJsonValue audio = object->value("stream_out"); audio.isString()) {
            const std::vector<float> samples = decodeSamples(audio.toString().toLatin1());
            std::lock_guard guard(receiverLock_);
            if (receiver_) receiver_(samples.data(), samples.size());
            continue;
        }
        emit messageReceived(*object);
    }
}

void WorkerChannel::write(const QByteArray& line, qint64 id) {
    QMetaObject::invokeMethod(context_, [this, data = line + '\n', id] {
        if (!process_ || process_->state() == QProcess::NotRunning || process_->write(data) != data.size())
            emit writeFailed(id);
    });
}

void WorkerChannel::closeInput() {
    QMetaObject::invokeMethod(context_, [this] {
        if (process_) process_->closeWriteChannel();
    });
}

void WorkerChannel::kill() {
    QMetaObject::invokeMethod(context_, [this] {
        if (process_) process_->kill();
    });
}

void WorkerChannel::setStreamSource(StreamSource source) {
    QMetaObject::invokeMethod(context_, [this, source = std::move(source)] {
        source_ = source;
        if (!streamTimer_) {
            streamTimer_ = new QTimer(context_);
            streamTimer_->setInterval(kStreamPollMs);
            connect(streamTimer_, &QTimer::timeout, context_, [this] { sendStream(); });
        }
        if (source_) streamTimer_->start();
        else streamTimer_->stop();
    });
}

void WorkerChannel::sendStream() {
    if (!source_ || !process_ || process_->state() != QProcess::Running) return;
    const std::vector<float> samples = source_();
    if (samples.empty()) return;
    process_->write("{\"op\":\"stream\",\"pcm\":\"" + encodeSamples(samples.data(), samples.size()) + "\"}\n");
}

void WorkerChannel::setStreamReceiver(StreamReceiver receiver) {
    std::lock_guard guard(receiverLock_);
    receiver_ = std::move(receiver);
}

}  // namespace parlova
