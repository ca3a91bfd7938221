#include "devices/PulseTestServer.h"

#include "devices/pulse/PulseControl.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace parlova::testpulse {
namespace {

std::string g_reason;

std::string trim(std::string s) {
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ' || s.back() == '\r')) s.pop_back();
    return s;
}

int runCapture(const std::string& command, std::string* out) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) text.append(buf, n);
    const int status = pclose(pipe);
    if (out) *out = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool haveTool(const char* tool) {
    return runCapture(std::string("command -v ") + tool + " >/dev/null 2>&1", nullptr) == 0;
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

int PrivateServer::run(const std::string& command, std::string* out) const { return runCapture(command, out); }

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

bool writeWavMono(const std::string& path, const std::vector<float>& samples, int rate) {
    std::ofstream f(path, std::ios::binary);
    if (!f) return false;
    auto u32 = [&](uint32_t v) { f.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](uint16_t v) { f.write(reinterpret_cast<const char*>(&v), 2); };
    const uint32_t bytes = static_cast<uint32_t>(samples.size() * 4);
    f.write("RIFF", 4);
    u32(36 + bytes);
    f.write("WAVEfmt ", 8);
    u32(16);
    u16(3);  // IEEE float
    u16(1);
    u32(static_cast<uint32_t>(rate));
    u32(static_cast<uint32_t>(rate) * 4);
    u16(4);
    u16(32);
    f.write("data", 4);
    u32(bytes);
    f.write(reinterpret_cast<const char*>(samples.data()), bytes);
    return static_cast<bool>(f);
}

std::vector<float> sine(double hz, double seconds, int rate, float amplitude) {
    std::vector<float> out(static_cast<size_t>(seconds * rate));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = amplitude * static_cast<float>(std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate));
    return out;
}

std::vector<float> readWavFloats(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0) return {};
    size_t at = 12;
    while (at + 8 <= bytes.size()) {
        uint32_t size = 0;
        std::memcpy(&size, bytes.data() + at + 4, 4);
        if (std::memcmp(bytes.data() + at, "data", 4) == 0) {
            const size_t begin = at + 8;
            const size_t end = (size == 0 || size == 0xffffffffu || begin + size > bytes.size()) ? bytes.size() : begin + size;
            std::vector<float> out((end - begin) / 4);
            std::memcpy(out.data(), bytes.data() + begin, out.size() * 4);
            return out;
        }
        at += 8 + size + (size & 1);
    }
    return {};
}

double rms(const std::vector<float>& s, size_t from, size_t count) {
    if (from >= s.size()) return 0.0;
    const size_t end = count == SIZE_MAX ? s.size() : std::min(s.size(), from + count);
    double sum = 0;
    for (size_t i = from; i < end; ++i) sum += double(s[i]) * s[i];
    return end > from ? std::sqrt(sum / double(end - from)) : 0.0;
}

double zeroCrossingHz(const std::vector<float>& s, int rate, size_t from, size_t count) {
    const size_t end = count == SIZE_MAX ? s.size() : std::min(s.size(), from + count);
    double first = -1, last = -1;
    int crossings = 0;
    for (size_t i = from + 1; i < end; ++i) {
        if (s[i - 1] < 0.0f && s[i] >= 0.0f) {
            const double t = double(i - 1) + double(-s[i - 1]) / double(s[i] - s[i - 1]);
            if (first < 0) first = t;
            else ++crossings;
            last = t;
        }
    }
    if (crossings < 2) return 0.0;
    return crossings * double(rate) / (last - first);
}

std::string shellQuote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'') q += "'\\''";
        else q += c;
    }
    return q + "'";
}

namespace {
struct TempDirs {
    std::vector<std::string> made;
    ~TempDirs() {
        std::error_code ignored;
        for (const auto& d : made) std::filesystem::remove_all(d, ignored);
    }
};
TempDirs g_tempDirs;
}  // namespace

std::string tempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "parlova-test.XXXXXX").string();
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const char* made = mkdtemp(buf.data());
    if (!made) return {};
    g_tempDirs.made.emplace_back(made);
    return made;
}

}  // namespace parlova::testpulse
