#pragma once
// Other clients of the private sound server, as a user's other apps would be:
// a player feeding the fake microphone and a recorder listening to a source.
#include "devices/PulseTestServer.h"

#include <QFileInfo>
#include <QProcess>

#include <csignal>
#include <string>
#include <vector>

namespace parlova::testpulse {

// Plays a file once into the fake microphone ("mic_feed"), in real time.
class MicFeed {
public:
    explicit MicFeed(const std::string& file) {
        process_.start("paplay", {"-d", "mic_feed", QString::fromStdString(file)});
        process_.waitForStarted(3000);
    }
    ~MicFeed() {
        process_.kill();
        process_.waitForFinished(3000);
    }

private:
    QProcess process_;
};

// Records a source as mono 32-bit float at 48 kHz.
class SourceRecorder {
public:
    SourceRecorder(const std::string& source, const std::string& path) : path_(path) {
        process_.start("parecord", {"--latency-msec=20", "-d", QString::fromStdString(source), "--file-format=wav",
                                    "--format=float32le", "--channels=1", "--rate=48000",
                                    QString::fromStdString(path)});
        process_.waitForStarted(3000);
        // parecord takes a moment to connect: wait until audio is arriving.
        waitUntil([&] { return QFileInfo(QString::fromStdString(path)).size() > 8192; }, 5000);
    }
    ~SourceRecorder() { stop(); }
    std::vector<float> stop() {
        if (process_.state() != QProcess::NotRunning) {
            process_.terminate();
            process_.waitForFinished(3000);
        }
        return readWavFloats(path_);
    }

private:
    QProcess process_;
    std::string path_;
};

}  // namespace parlova::testpulse
