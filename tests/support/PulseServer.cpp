#include "support/PulseServer.h"

#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "devices/pulse/PulseControl.h"
#include "support/TestAudio.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

namespace parlova::testpulse {
namespace {

std::string g_reason;

using testaudio::haveTool;
using testaudio::runCapture;
using testaudio::shellQuote;

std::string trim(std::string s) {
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ' || s.back() == '\r')) s.pop_back();
    return s;
}

struct Stopper {
    std::string dir;
    ~Stopper() {
        if (!dir.empty())
            runCapture("sh " + shellQuote(std::string(PARLOVA_SOURCE_DIR) + "/tests/fixtures/pulse-server.sh") +
                           " stop " + shellQuote(dir) + " >/dev/null 2>&1",
                       nullptr);
    }
};

}  // namespace

bool PrivateServer::required() {
    const char* v = std::getenv("PARLOVA_REQUIRE_PULSE");
    return v && std::strcmp(v, "1") == 0;
}

const std::string& PrivateServer::unavailableReason() { return g_reason; }

PrivateServer* PrivateServer::get() {
    static PrivateServer* server = [] () -> PrivateServer* {
        if (!haveTool("pulseaudio") || !haveTool("pactl") || !haveTool("paplay") || !haveTool("parecord")) {
            g_reason = "The private sound server needs pulseaudio and pulseaudio-utils; they are not installed.";
            return nullptr;
        }
        const std::string script = std::string(PARLOVA_SOURCE_DIR) + "/tests/fixtures/pulse-server.sh";
        std::string out;
        const int status =
            runCapture("sh " + shellQuote(script) + " start --owner " + std::to_string(getpid()) + " 2>&1", &out);
        if (status != 0) {
            g_reason = "The private sound server did not start: " + out;
            return nullptr;
        }
        auto* s = new PrivateServer;
        std::istringstream lines(out);
        std::string line;
        while (std::getline(lines, line)) {
            // export NAME='value'
            if (line.rfind("export ", 0) != 0) continue;
            const auto eq = line.find('=');
            if (eq == std::string::npos) continue;
            const std::string name = line.substr(7, eq - 7);
            std::string value = line.substr(eq + 1);
            if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') value = value.substr(1, value.size() - 2);
            setenv(name.c_str(), value.c_str(), 1);
            if (name == "PARLOVA_PULSE_DIR") s->dir_ = value;
        }
        if (s->dir_.empty() || !std::getenv("PULSE_SERVER")) {
            g_reason = "The private sound server printed no environment: " + out;
            return nullptr;
        }
        static Stopper stopper;
        stopper.dir = s->dir_;
        // Anything connected before now (another server) is dropped.
        pulse::PulseControl::shared().disconnect();
        return s;
    }();
    return server;
}

std::string PrivateServer::pactl(const std::string& args, int* status) const {
    std::string out;
    const int st = runCapture("pactl " + args + " 2>&1", &out);
    if (status) *status = st;
    return trim(out);
}

int PrivateServer::loadModule(const std::string& module, const std::string& arguments) const {
    int status = 0;
    const std::string out = pactl("load-module " + module + " " + shellQuote(arguments), &status);
    if (status != 0) return -1;
    return std::atoi(out.c_str());
}

int PrivateServer::nullSink(const std::string& name, const std::string& description, int channels) const {
    return loadModule("module-null-sink", "sink_name=" + name + " rate=48000 channels=" + std::to_string(channels) +
                                              " sink_properties=\"device.description='" + description + "'\"");
}

int PrivateServer::remapSource(const std::string& sink, const std::string& name, const std::string& description) const {
    return loadModule("module-remap-source", "master=" + sink + ".monitor source_name=" + name +
                                                 " channels=1 channel_map=mono master_channel_map=mono"
                                                 " source_properties=\"device.description='" + description +
                                                 "' device.class=sound\"");
}

void PrivateServer::unloadModule(int index) const {
    if (index >= 0) pactl("unload-module " + std::to_string(index));
}

VirtualMicModules::VirtualMicModules(const PrivateServer& s)
    : server(s), sink(s.nullSink(VirtualMic::kSinkName, "Parlova Mic")),
      source(s.remapSource(VirtualMic::kSinkName, VirtualMic::kSourceName, "Parlova Mic")) {}

VirtualMicModules::~VirtualMicModules() {
    server.unloadModule(source);
    server.unloadModule(sink);
}

bool waitUntil(const std::function<bool()>& done, int ms) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > ms) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

void pump(int ms) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
}

uint32_t deviceId(const std::string& uid) {
    return AudioDeviceList::deviceID(QString::fromStdString(uid)).value_or(kNoDevice);
}

MicFeed::MicFeed(const std::string& file, bool loop) {
    const std::string play = "paplay -d mic_feed " + shellQuote(file);
    // A loop's shell hands a stop on to the paplay it waits for: otherwise that
    // child would play on into the next test until its file ends.
    const std::string looped = "trap 'kill $! 2>/dev/null; exit 0' TERM; while :; do " + play + " & wait $! || break; done";
    process_.start("sh", {"-c", QString::fromStdString(loop ? looped : "exec " + play)});
    process_.waitForStarted(3000);
}

MicFeed::~MicFeed() {
    process_.terminate();
    if (process_.waitForFinished(3000)) return;
    process_.kill();
    process_.waitForFinished(3000);
}

SourceRecorder::SourceRecorder(const std::string& source, const std::string& path) : path_(path) {
    process_.start("parecord", {"--latency-msec=20", "-d", QString::fromStdString(source), "--file-format=wav",
                                "--format=float32le", "--channels=1", "--rate=48000", QString::fromStdString(path)});
    process_.waitForStarted(3000);
    // parecord takes a moment to connect: wait until audio is arriving.
    waitUntil([&] { return QFileInfo(QString::fromStdString(path)).size() > 8192; }, 5000);
}

std::vector<float> SourceRecorder::stop() {
    if (process_.state() != QProcess::NotRunning) {
        process_.terminate();
        process_.waitForFinished(3000);
    }
    return testaudio::readWavFloats(path_);
}

}  // namespace parlova::testpulse
