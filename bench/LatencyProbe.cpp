// parlova_latency_probe: the delay live mode adds between the microphone and
// "Parlova Mic" with the Natural voice, measured through a real sound server,
// and the CPU live mode costs.
//
// It starts the project's private PulseAudio daemon (tests/fixtures/pulse-server.sh)
// unless one is given by the environment that script prints, installs the
// virtual mic, and runs the real VoiceEngine in call mode. Tone bursts are
// played into the fake microphone's feed sink while this process records both
// the fake microphone (what the engine hears) and "Parlova Mic" (what a call
// app hears). Every fragment read is stamped with its capture time from the
// stream's timing information, so both recordings share one clock; each burst
// is then located in both by envelope cross-correlation and by onset, and the
// difference is the added delay. A third recording of the feed sink's monitor
// checks the method itself (it should read close to 0 ms against the fake mic).
//
// Afterwards live mode runs on a steady sawtooth for the same time, with the
// Natural voice and with a starting voice, and the process CPU time over the
// wall time is reported as a share of one core.
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "devices/pulse/PulseLoop.h"
#include "media/AudioFile.h"
#include "engine/VoiceEngine.h"
#include "StallWatch.h"
#include "support/Dropouts.h"
#include "common/VoiceEngineError.h"
#include "voices/Voice.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <pulse/rtclock.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <numbers>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace parlova;

namespace {

constexpr int kRate = 48000;
constexpr double kBurstPeriod = 0.6;   // seconds between bursts: longer than any plausible delay
constexpr double kBurstLength = 0.04;  // seconds of tone
constexpr double kBurstRamp = 0.005;   // raised-cosine rise and fall
constexpr double kBurstHz = 1000;
constexpr float kBurstLevel = 0.5f;

// ---------------------------------------------------------------------------
// The private sound server.

std::string shellQuote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string commandOutput(const std::string& command, int* status = nullptr) {
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[1024];
        while (std::fgets(buffer, sizeof buffer, pipe)) output += buffer;
        const int st = pclose(pipe);
        if (status) *status = st;
    } else if (status) {
        *status = -1;
    }
    return output;
}

const std::string kServerScript = "sh " + shellQuote(PARLOVA_SOURCE_DIR "/tests/fixtures/pulse-server.sh");

class PrivateServer {
public:
    // Uses the server named by the environment when it is the project's own
    // fixture (never the user's desktop server); else starts one.
    bool start(std::string* error) {
        if (std::getenv("PULSE_SERVER") && std::getenv("PARLOVA_PULSE_DIR")) {
            std::printf("Using the private sound server from the environment (%s).\n", std::getenv("PULSE_SERVER"));
            return true;
        }
        int status = 0;
        std::istringstream lines(commandOutput(kServerScript + " start --owner " + std::to_string(getpid()), &status));
        if (status != 0) return *error = "the private sound server did not start", false;
        for (std::string line; std::getline(lines, line);) {  // export NAME='VALUE'
            const auto eq = line.find('=');
            if (line.rfind("export ", 0) != 0 || eq == std::string::npos || line.size() < eq + 3) continue;
            const std::string name = line.substr(7, eq - 7), value = line.substr(eq + 2, line.size() - eq - 3);
            setenv(name.c_str(), value.c_str(), 1);
            if (name == "PARLOVA_PULSE_DIR") dir_ = value;
        }
        if (dir_.empty()) return *error = "the server script gave no folder", false;
        std::printf("Started a private sound server in %s.\n", dir_.c_str());
        return true;
    }
    ~PrivateServer() { stop(); }
    void stop() {
        if (!dir_.empty() && std::system((kServerScript + " stop " + shellQuote(dir_)).c_str()) != 0)
            std::fprintf(stderr, "Stopping the private sound server failed.\n");
        dir_.clear();
    }

private:
    std::string dir_;
};

// CPU seconds used by another process (the sound server), from /proc.
std::optional<double> processCpuSeconds(const char* pid) {
    if (!pid) return std::nullopt;
    std::ifstream stat(std::string("/proc/") + pid + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double utime = 0, stime = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14) utime = std::stod(field);
        if (i == 15) stime = std::stod(field);
    }
    return (utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double ownCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// The buffer and device latencies the server reports for the engine's
// capture and output streams (pactl), one line per stream.
std::string serverStreamLatencies() {
    std::string result;
    for (const std::string kind : {"source-outputs", "sink-inputs"}) {
        const bool output = kind == "sink-inputs";
        const std::string text = commandOutput("pactl list " + kind + " 2>/dev/null");
        const std::string header = output ? "Sink Input #" : "Source Output #";
        for (size_t at = text.find(header); at != std::string::npos;) {
            const size_t next = text.find(header, at + 1);
            const std::string b = text.substr(at, next - at);
            at = next;
            // Only the engine's streams: not this probe's, not the server's own remap streams.
            if (b.find("Latency probe") != std::string::npos || b.find("Parlova") == std::string::npos) continue;
            auto field = [&](const std::string& name) {
                const auto start = b.find(name);
                if (start == std::string::npos) return std::string("?");
                return b.substr(start + name.size(), b.find('\n', start) - start - name.size());
            };
            result += std::string("    ") + (output ? "output stream:  " : "capture stream: ") + "buffer" +
                      field("Buffer Latency:") + ", device" + field(output ? "Sink Latency:" : "Source Latency:") +
                      "  (" + field("media.name = ") + ")\n";
        }
    }
    return result;
}

// ---------------------------------------------------------------------------
// Qt event loop helpers.

void pump(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitUntil(const std::function<bool()>& done, int ms) {
    for (int waited = 0; waited < ms; waited += 20) {
        if (done()) return true;
        pump(20);
    }
    return done();
}

// ---------------------------------------------------------------------------
// This process's own streams on the server: the burst player and the recorders.

pa_sample_spec monoFloat() { return {PA_SAMPLE_FLOAT32LE, kRate, 1}; }

// One mono float stream of this process; disconnected before its owner goes.
class ProbeStream {
public:
    void disconnect() {
        if (!stream_) return;
        pulse::PulseLoop::Lock lock(loop_);
        pa_stream_set_write_callback(stream_, nullptr, nullptr);
        pa_stream_set_read_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }

protected:
    explicit ProbeStream(pulse::PulseLoop& loop) : loop_(loop) {}
    // Opens the stream with the loop locked; `attr` asks for about `usec` of buffering.
    bool open(const std::string& name, pa_buffer_attr* attr, uint32_t pa_buffer_attr::*field, pa_usec_t usec) {
        const pa_sample_spec format = monoFloat();
        stream_ = pa_stream_new(loop_.context(), name.c_str(), &format, nullptr);
        attr->maxlength = attr->tlength = attr->prebuf = attr->minreq = attr->fragsize = static_cast<uint32_t>(-1);
        attr->*field = static_cast<uint32_t>(pa_usec_to_bytes(usec, &format));
        return stream_ != nullptr;
    }
    pulse::PulseLoop& loop_;
    pa_stream* stream_ = nullptr;
};

class BurstPlayer : public ProbeStream {
public:
    enum class Mode { Bursts, Sawtooth, Tone, Silence };

    explicit BurstPlayer(pulse::PulseLoop& loop) : ProbeStream(loop) {}
    ~BurstPlayer() { disconnect(); }

    bool connect(const char* sink) {
        pulse::PulseLoop::Lock lock(loop_);
        pa_buffer_attr attr;
        // A generous buffer: the feed must never break up itself (the delay is
        // measured from the microphone, after this buffer).
        if (!open("Latency probe bursts", &attr, &pa_buffer_attr::tlength, 200000)) return false;
        pa_stream_set_write_callback(stream_, &BurstPlayer::onWrite, this);
        return pa_stream_connect_playback(stream_, sink, &attr, PA_STREAM_ADJUST_LATENCY, nullptr, nullptr) == 0;
    }
    void setMode(Mode mode) { mode_.store(mode); }
    // Bursts of a 150 Hz buzz (a voice's shape) instead of a 1 kHz tone: the
    // clean mic's denoiser takes a steady tone for noise.
    void setVoicedBursts(bool voiced) { voiced_ = voiced; }

private:
    static void onWrite(pa_stream* s, size_t nbytes, void* userdata) {
        auto* self = static_cast<BurstPlayer*>(userdata);
        void* data = nullptr;
        if (pa_stream_begin_write(s, &data, &nbytes) < 0 || !data) return;
        auto* out = static_cast<float*>(data);
        const size_t frames = nbytes / sizeof(float);
        for (size_t i = 0; i < frames; ++i) out[i] = self->next();
        pa_stream_write(s, data, frames * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
    }

    float next() {
        const int64_t n = frame_++;
        if (mode_.load(std::memory_order_relaxed) == Mode::Sawtooth)
            return static_cast<float>(0.3 * (2 * std::fmod(n * 150.0 / kRate, 1.0) - 1));
        if (mode_.load(std::memory_order_relaxed) == Mode::Tone)
            return static_cast<float>(0.3 * std::sin(2 * std::numbers::pi * 440.0 * n / kRate));
        if (mode_.load(std::memory_order_relaxed) == Mode::Silence) return 0;
        const auto length = static_cast<int64_t>(kBurstLength * kRate), ramp = static_cast<int64_t>(kBurstRamp * kRate);
        const int64_t k = n % static_cast<int64_t>(kBurstPeriod * kRate);
        if (k >= length) return 0;
        double gain = 1;
        if (k < ramp) gain = 0.5 - 0.5 * std::cos(std::numbers::pi * k / ramp);
        if (k >= length - ramp) gain = 0.5 - 0.5 * std::cos(std::numbers::pi * (length - k) / ramp);
        if (voiced_) return static_cast<float>(kBurstLevel * gain * (2 * std::fmod(n * 150.0 / kRate, 1.0) - 1));
        return static_cast<float>(kBurstLevel * gain * std::sin(2 * std::numbers::pi * kBurstHz * n / kRate));
    }

    bool voiced_ = false;
    int64_t frame_ = 0;
    std::atomic<Mode> mode_{Mode::Bursts};
};

// Records a source as mono float and notes, for each fragment, the capture
// time of its first frame: now minus the stream's record latency (the time
// between that frame's capture by the source and this read).
class StampedRecorder : public ProbeStream {
public:
    struct Stamp {
        int64_t frame;
        double time;  // seconds on the monotonic clock
    };

    StampedRecorder(pulse::PulseLoop& loop, std::string source, double seconds)
        : ProbeStream(loop), source_(std::move(source)) {
        samples_.reserve(static_cast<size_t>((seconds + 5) * kRate));
        stamps_.reserve(static_cast<size_t>((seconds + 5) * 200));
    }
    ~StampedRecorder() { disconnect(); }

    const std::string& source() const { return source_; }

    bool connect() {
        pulse::PulseLoop::Lock lock(loop_);
        pa_buffer_attr attr;
        if (!open("Latency probe: " + source_, &attr, &pa_buffer_attr::fragsize, 10000)) return false;
        pa_stream_set_read_callback(stream_, &StampedRecorder::onRead, this);
        const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_INTERPOLATE_TIMING |
                                                          PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_DONT_MOVE);
        return pa_stream_connect_record(stream_, source_.c_str(), &attr, flags) == 0;
    }
    // Copies of what was recorded so far (taken under the loop lock).
    void snapshot(std::vector<float>* samples, std::vector<Stamp>* stamps) {
        pulse::PulseLoop::Lock lock(loop_);
        *samples = samples_;
        *stamps = stamps_;
    }

private:
    static void onRead(pa_stream* s, size_t, void* userdata) {
        auto* self = static_cast<StampedRecorder*>(userdata);
        while (pa_stream_readable_size(s) > 0) {
            pa_usec_t latency = 0;
            int negative = 0;
            const bool timed = pa_stream_get_latency(s, &latency, &negative) == 0;
            const double now = static_cast<double>(pa_rtclock_now()) / 1e6, l = static_cast<double>(latency) / 1e6;
            const void* data = nullptr;
            size_t nbytes = 0;
            if (pa_stream_peek(s, &data, &nbytes) < 0 || nbytes == 0) return;
            const size_t frames = nbytes / sizeof(float);
            if (timed) self->stamps_.push_back({static_cast<int64_t>(self->samples_.size()), negative ? now + l : now - l});
            const auto* f = static_cast<const float*>(data);
            if (f) self->samples_.insert(self->samples_.end(), f, f + frames);
            else self->samples_.insert(self->samples_.end(), frames, 0.0f);  // a hole
            pa_stream_drop(s);
        }
    }

    std::string source_;
    std::vector<float> samples_;
    std::vector<Stamp> stamps_;
};

// ---------------------------------------------------------------------------
// Analysis.

double median(std::vector<double> v) {
    if (v.empty()) return NAN;
    std::sort(v.begin(), v.end());
    const size_t m = v.size() / 2;
    return v.size() % 2 ? v[m] : 0.5 * (v[m - 1] + v[m]);
}

// One recording on the shared clock: frame index <-> capture time, from the
// median of the fragments' stamps near the frame (robust to the jitter of a
// single read and to a gap after an overrun).
struct Timeline {
    std::vector<float> x;
    std::vector<StampedRecorder::Stamp> stamps;

    double offsetNear(double frame) const {
        std::vector<double> offsets;
        for (const auto& s : stamps)
            if (std::abs(static_cast<double>(s.frame) - frame) <= 0.5 * kRate)
                offsets.push_back(s.time - static_cast<double>(s.frame) / kRate);
        if (offsets.empty())
            for (const auto& s : stamps) offsets.push_back(s.time - static_cast<double>(s.frame) / kRate);
        return median(offsets);
    }
    double timeOf(double frame) const { return offsetNear(frame) + frame / kRate; }
    double frameOf(double time) const {
        double frame = (time - offsetNear(static_cast<double>(x.size()) / 2)) * kRate;
        return (time - offsetNear(frame)) * kRate;
    }
    // Spread of the single-fragment stamps around the fitted line (ms).
    double jitterMs() const {
        std::vector<double> d;
        for (const auto& s : stamps) {
            const double f = static_cast<double>(s.frame);
            d.push_back(std::abs(s.time - timeOf(f)) * 1000);
        }
        return median(d);
    }
};

// Burst starts: the first frame above a level after at least 0.2 s below it.
std::vector<int64_t> burstStarts(const std::vector<float>& x, float level) {
    std::vector<int64_t> starts;
    const auto quiet = static_cast<int64_t>(0.2 * kRate);
    int64_t lastLoud = -quiet - 1;
    for (int64_t i = 0; i < static_cast<int64_t>(x.size()); ++i) {
        if (std::abs(x[i]) < level) continue;
        if (i - lastLoud > quiet) starts.push_back(i);
        lastLoud = i;
    }
    return starts;
}

// The refined onset near a crude start: the first frame reaching a quarter of
// the burst's peak.
double onsetFrame(const std::vector<float>& x, int64_t start) {
    const auto end = std::min<int64_t>(static_cast<int64_t>(x.size()), start + static_cast<int64_t>(0.08 * kRate));
    float peak = 0;
    for (int64_t i = start; i < end; ++i) peak = std::max(peak, std::abs(x[i]));
    for (int64_t i = std::max<int64_t>(0, start - static_cast<int64_t>(0.01 * kRate)); i < end; ++i)
        if (std::abs(x[i]) >= 0.25f * peak) return static_cast<double>(i);
    return static_cast<double>(start);
}

// The amplitude envelope at kRate / kDecimate: mean absolute value per block.
constexpr int kDecimate = 8;
std::vector<float> envelope(const std::vector<float>& x) {
    std::vector<float> e(x.size() / kDecimate);
    for (size_t j = 0; j < e.size(); ++j) {
        float sum = 0;
        for (int k = 0; k < kDecimate; ++k) sum += std::abs(x[j * kDecimate + k]);
        e[j] = sum / kDecimate;
    }
    return e;
}

// The lag (seconds) at which the output's envelope best matches the
// reference's around one burst, by normalised cross-correlation with a
// parabolic peak; nullopt when the output has no matching burst.
std::optional<double> envelopeLag(const Timeline& ref, const std::vector<float>& refEnv, const Timeline& out,
                                  const std::vector<float>& outEnv, double refOnsetTime) {
    const double envRate = static_cast<double>(kRate) / kDecimate;
    const double before = 0.01, after = kBurstLength + 0.03;
    const auto refStart = static_cast<int64_t>(ref.frameOf(refOnsetTime - before) / kDecimate);
    const auto n = static_cast<int64_t>((before + after) * envRate);
    if (refStart < 0 || refStart + n > static_cast<int64_t>(refEnv.size())) return std::nullopt;
    const double outZero = out.frameOf(refOnsetTime - before) / kDecimate;  // output index at lag 0
    const auto minLag = static_cast<int64_t>(-0.02 * envRate), maxLag = static_cast<int64_t>(0.45 * envRate);
    std::vector<double> score;
    double refEnergy = 0;
    for (int64_t k = 0; k < n; ++k) refEnergy += double(refEnv[refStart + k]) * refEnv[refStart + k];
    for (int64_t lag = minLag; lag <= maxLag; ++lag) {
        const auto start = static_cast<int64_t>(std::lround(outZero)) + lag;
        if (start < 0 || start + n > static_cast<int64_t>(outEnv.size())) {
            score.push_back(0);
            continue;
        }
        double dot = 0, energy = 0;
        for (int64_t k = 0; k < n; ++k) {
            dot += double(refEnv[refStart + k]) * outEnv[start + k];
            energy += double(outEnv[start + k]) * outEnv[start + k];
        }
        score.push_back(energy > 0 && refEnergy > 0 ? dot / std::sqrt(energy * refEnergy) : 0);
    }
    const auto best = std::max_element(score.begin(), score.end()) - score.begin();
    if (score[best] < 0.7) return std::nullopt;
    double shift = 0;
    if (best > 0 && best + 1 < static_cast<long>(score.size())) {
        const double a = score[best - 1], b = score[best], c = score[best + 1];
        const double denom = a - 2 * b + c;
        if (denom != 0) shift = 0.5 * (a - c) / denom;
    }
    // Output time of the matched window minus the reference window's time.
    const double outFrame = (std::lround(outZero) + static_cast<double>(best + minLag) + shift) * kDecimate;
    return out.timeOf(outFrame) - ref.timeOf(static_cast<double>(refStart) * kDecimate);
}

struct Delays {
    std::vector<double> xcorrMs, onsetMs;
    int bursts = 0;
};

Delays measure(const Timeline& ref, const Timeline& out) {
    Delays d;
    const auto refEnv = envelope(ref.x), outEnv = envelope(out.x);
    const auto refStarts = burstStarts(ref.x, 0.05f);
    const auto outStarts = burstStarts(out.x, 0.02f);
    for (const int64_t start : refStarts) {
        // Skip bursts cut by the start or end of either recording.
        if (start < kRate / 10 || start + static_cast<int64_t>(0.6 * kRate) > static_cast<int64_t>(ref.x.size()))
            continue;
        ++d.bursts;
        const double refOnset = ref.timeOf(onsetFrame(ref.x, start));
        if (auto lag = envelopeLag(ref, refEnv, out, outEnv, refOnset)) d.xcorrMs.push_back(*lag * 1000);
        for (const int64_t o : outStarts) {
            const double t = out.timeOf(onsetFrame(out.x, o));
            if (t > refOnset - 0.02 && t < refOnset + 0.45) {
                d.onsetMs.push_back((t - refOnset) * 1000);
                break;
            }
        }
    }
    return d;
}

void report(const char* what, const std::vector<double>& ms, int bursts) {
    if (ms.empty()) {
        std::printf("  %-34s no burst matched (of %d)\n", what, bursts);
        return;
    }
    std::printf("  %-34s median %6.1f ms   min %6.1f   max %6.1f   (%zu of %d bursts)\n", what, median(ms),
                *std::min_element(ms.begin(), ms.end()), *std::max_element(ms.begin(), ms.end()), ms.size(), bursts);
}

// ---------------------------------------------------------------------------

struct Options {
    double seconds = 10;
    double dropoutSeconds = 0;  // only the dropout count, for this long
    double boardSeconds = 0;    // only the board's sounds, for this long
    bool stalls = false;        // the delay readout against the measured delay around stalls
    bool lowDelay = false;      // the engine's low-delay setting
    bool cleanMic = false;      // "Clean up my mic" on (voiced bursts)
};

// Wake-ups of the reference thread later than this count as the machine's own
// freezes; past the output the server holds for us, one is heard as a break.
constexpr double kMachineStallMs = 5;
constexpr double kOutputQueuedMs = 15;

// A steady tone into the microphone, "Parlova Mic" recorded by another client
// (this probe's own stream), and the breaks counted as a caller hears them.
// The microphone itself is recorded alongside: a break there is the feed's
// (this probe's player), not live mode's.
int measureDropouts(pulse::PulseLoop& loop, BurstPlayer& player, double seconds, int* micDropouts) {
    player.setMode(BurstPlayer::Mode::Tone);
    pump(500);
    StampedRecorder call(loop, VirtualMic::kSourceName, seconds);
    StampedRecorder mic(loop, "fake_mic", seconds);
    if (!call.connect() || !mic.connect()) return -1;
    bench::StallWatch watch(kMachineStallMs);
    pump(static_cast<int>(seconds * 1000));
    watch.stop();
    std::vector<float> heard, fed;
    std::vector<StampedRecorder::Stamp> stamps;
    call.snapshot(&heard, &stamps);
    mic.snapshot(&fed, &stamps);
    call.disconnect();
    mic.disconnect();
    *micDropouts = analysis::countDropouts(fed, kRate);
    // For a look at the breaks themselves: PARLOVA_PROBE_DUMP=path.wav keeps what the caller heard.
    if (const char* dump = std::getenv("PARLOVA_PROBE_DUMP")) {
        auto file = AudioFileWriter::create(dump, {double(kRate), 1}, AudioFileType::wav);
        const float* channels[] = {heard.data()};
        file->write(channels, static_cast<int>(heard.size()));
        file->finish();
    }
    const auto& stalls = watch.stallsMs();
    const auto longer = std::count_if(stalls.begin(), stalls.end(), [](double ms) { return ms > kOutputQueuedMs; });
    std::printf("The machine itself froze a reference thread (%s) %zu times by more than %.0f ms, %ld of them by"
                " more than the %.0f ms of output the server holds (longest %.0f ms).\n",
                describe(watch.grant()), stalls.size(), kMachineStallMs, static_cast<long>(longer), kOutputQueuedMs,
                watch.longestMs());
    return analysis::countDropouts(heard, kRate);
}

// A burst as a board sound: the probe's burst, made once.
std::shared_ptr<const SoundBuffer> burstSound(float level) {
    auto sound = std::make_shared<SoundBuffer>();
    const auto length = static_cast<int>(kBurstLength * kRate), ramp = static_cast<int>(kBurstRamp * kRate);
    for (int k = 0; k < length; ++k) {
        double gain = 1;
        if (k < ramp) gain = 0.5 - 0.5 * std::cos(std::numbers::pi * k / ramp);
        if (k >= length - ramp) gain = 0.5 - 0.5 * std::cos(std::numbers::pi * (length - k) / ramp);
        sound->left.push_back(static_cast<float>(level * gain * std::sin(2 * std::numbers::pi * kBurstHz * k / kRate)));
    }
    sound->right = sound->left;
    return sound;
}

// Board sounds in the call: the time from asking the engine to play a sound
// to its onset on "Parlova Mic" (on the recorder's capture clock), then the
// breaks in the live voice while quiet sounds play over it again and again.
int measureBoard(VoiceEngine& engine, pulse::PulseLoop& loop, BurstPlayer& player, double seconds) {
    player.setMode(BurstPlayer::Mode::Silence);
    StampedRecorder call(loop, VirtualMic::kSourceName, seconds + 2);
    if (!call.connect()) return 1;
    pump(2000);  // a fresh route's output settles on its buffer in its first second or so
    const auto burst = burstSound(kBurstLevel);
    std::vector<double> asked;
    for (double waited = 0; waited < seconds; waited += kBurstPeriod) {
        asked.push_back(static_cast<double>(pa_rtclock_now()) / 1e6);
        engine.playSound(burst, {});
        pump(static_cast<int>(kBurstPeriod * 1000));
    }
    Timeline heard;
    call.snapshot(&heard.x, &heard.stamps);
    call.disconnect();
    std::vector<double> ms;
    for (int64_t start : burstStarts(heard.x, 0.1f)) {
        const double at = heard.timeOf(onsetFrame(heard.x, start));
        const auto before = std::upper_bound(asked.begin(), asked.end(), at);
        if (before != asked.begin()) ms.push_back((at - *std::prev(before)) * 1000);
    }
    std::printf("\nBoard sound asked for -> heard on \"Parlova Mic\":\n");
    report("onset (25% of burst peak):", ms, static_cast<int>(asked.size()));

    const auto quiet = burstSound(0.03f);
    QTimer again;
    QObject::connect(&again, &QTimer::timeout, [&] { engine.playSound(quiet, {}); });
    again.start(100);
    int micDropouts = 0;
    const int dropouts = measureDropouts(loop, player, seconds, &micDropouts);
    again.stop();
    std::printf("Dropouts heard on \"Parlova Mic\" over %.0f s with a board sound every 0.1 s over the voice: %d"
                " (in the microphone itself: %d)\n",
                seconds, dropouts, micDropouts);
    return ms.empty() || dropouts != 0 ? 1 : 0;
}

double liveCpuPercent(VoiceEngine& engine, double seconds, const char* serverPid, double* serverPercent,
                      uint64_t* underruns) {
    const auto* graph = engine.liveGraph();
    const uint64_t underrunsBefore = graph ? graph->micBridge()->underruns() : 0;
    const double cpu0 = ownCpuSeconds();
    const auto server0 = processCpuSeconds(serverPid);
    const double wall0 = static_cast<double>(pa_rtclock_now()) / 1e6;
    pump(static_cast<int>(seconds * 1000));
    const double wall = static_cast<double>(pa_rtclock_now()) / 1e6 - wall0;
    const double cpu = ownCpuSeconds() - cpu0;
    const auto server1 = processCpuSeconds(serverPid);
    *serverPercent = server0 && server1 ? 100 * (*server1 - *server0) / wall : NAN;
    *underruns = (engine.liveGraph() ? engine.liveGraph()->micBridge()->underruns() : 0) - underrunsBefore;
    return 100 * cpu / wall;
}

// The measured delay of a window of `seconds`, beside what the engine showed
// meanwhile (its readout, sampled every 50 ms).
struct DelayWindow {
    double measuredMs = std::nan("");
    std::vector<double> readoutMs;
    int unknown = 0;  // samples where the engine showed no delay
};

DelayWindow delayWindow(VoiceEngine& engine, pulse::PulseLoop& loop, double seconds) {
    DelayWindow window;
    StampedRecorder reference(loop, "fake_mic", seconds);
    StampedRecorder virtualMic(loop, VirtualMic::kSourceName, seconds);
    if (!reference.connect() || !virtualMic.connect()) return window;
    for (int waited = 0; waited < seconds * 1000; waited += 50) {
        pump(50);
        if (const auto delay = engine.liveDelayEstimate()) window.readoutMs.push_back(*delay * 1000);
        else ++window.unknown;
    }
    Timeline ref, out;
    reference.snapshot(&ref.x, &ref.stamps);
    virtualMic.snapshot(&out.x, &out.stamps);
    if (!ref.stamps.empty() && !out.stamps.empty()) window.measuredMs = median(measure(ref, out).xcorrMs);
    return window;
}

void reportWindow(const char* when, const DelayWindow& w) {
    if (w.readoutMs.empty()) {
        std::printf("  %-28s measured %6.1f ms   readout: none shown (%d samples)\n", when, w.measuredMs, w.unknown);
        return;
    }
    const double shown = median(w.readoutMs);
    std::printf("  %-28s measured %6.1f ms   readout median %6.1f (min %6.1f, max %6.1f; none %d)   "
                "difference %+6.1f ms\n",
                when, w.measuredMs, shown, *std::min_element(w.readoutMs.begin(), w.readoutMs.end()),
                *std::max_element(w.readoutMs.begin(), w.readoutMs.end()), w.unknown, shown - w.measuredMs);
}

// Stops a process for a second from a helper shell in the background (so
// the process may be this one), and lets the event loop run meanwhile.
void stallProcess(long pid) {
    const std::string command = "(sleep 0.2; kill -STOP " + std::to_string(pid) + "; sleep 1; kill -CONT " +
                                std::to_string(pid) + ") >/dev/null 2>&1 &";
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "Could not stall process %ld.\n", pid);
    pump(1500);
}

// The delay the engine shows against the delay measured through "Parlova
// Mic", before and after a 1 s stall of the sound server and of this process.
void measureStalls(VoiceEngine& engine, pulse::PulseLoop& loop, double seconds) {
    std::printf("Delay readout against the measured delay (windows of %.0f s):\n", seconds);
    reportWindow("before any stall:", delayWindow(engine, loop, seconds));
    if (const char* serverPid = std::getenv("PARLOVA_PULSE_PID")) {
        stallProcess(std::atol(serverPid));
        reportWindow("right after a server stall:", delayWindow(engine, loop, seconds));
        reportWindow("later:", delayWindow(engine, loop, seconds));
    }
    stallProcess(getpid());  // every thread of this process, the audio thread included
    reportWindow("right after an app stall:", delayWindow(engine, loop, seconds));
    reportWindow("later:", delayWindow(engine, loop, seconds));
}

int runProbe(const Options& options) {
    auto loop = std::make_unique<pulse::PulseLoop>("Parlova latency probe");
    if (!loop->isReady()) {
        std::fprintf(stderr, "The probe could not connect to the sound server.\n");
        return 1;
    }

    const bool hadVirtualMic = VirtualMic::status().loaded;
    try {
        if (!hadVirtualMic) VirtualMic::install();
    } catch (const VoiceEngineError& e) {
        std::fprintf(stderr, "Installing the virtual mic failed: %s\n", e.what());
        return 1;
    }
    if (!waitUntil([] { return AudioDeviceList::virtualCableID().has_value(); }, 5000)) {
        std::fprintf(stderr, "The virtual mic did not appear.\n");
        return 1;
    }

    QTemporaryDir settingsDir;
    QSettings settings(settingsDir.filePath("settings.ini"), QSettings::IniFormat);
    int status = 0;
    {
        VoiceEngine engine(&settings, &AudioBackend::system(), BackendJobs::shared());
        engine.set(Voice::natural());
        engine.setCallMode(true);
        engine.setLowDelay(options.lowDelay);
        engine.cleanMic().setEnabled(options.cleanMic, false);
        std::printf("Delay setting: %s%s.\n", options.lowDelay ? "Low" : "Normal",
                    options.cleanMic ? ", with the clean mic" : "");

        BurstPlayer player(*loop);
        player.setVoicedBursts(options.cleanMic);
        if (!player.connect("mic_feed")) {
            std::fprintf(stderr, "Could not play into mic_feed (is this the project's private server?).\n");
            return 1;
        }
        engine.toggleLive();
        if (!waitUntil([&] { return engine.isLive() && engine.liveGraph(); }, 5000)) {
            std::fprintf(stderr, "Live mode did not start: %s\n", engine.errorMessage().toStdString().c_str());
            return 1;
        }
        std::printf("Audio thread: %s.\n", describe(engine.realtimeGrant()));
        if (options.boardSeconds > 0) {
            status = measureBoard(engine, *loop, player, options.boardSeconds);
            engine.toggleLive();
            pump(200);
            player.disconnect();
            return status;
        }
        if (options.dropoutSeconds > 0) {
            int micDropouts = 0;
            const auto bridge = engine.liveGraph()->micBridge();
            const uint64_t underruns = bridge->underruns(), trims = bridge->trims();
            const uint64_t underflows = engine.liveGraph()->outputUnderflows();
            const int dropouts = measureDropouts(*loop, player, options.dropoutSeconds, &micDropouts);
            std::printf("Dropouts heard on \"Parlova Mic\" over %.0f s (steady 440 Hz tone in): %d"
                        " (in the microphone itself: %d; bridge underruns %llu, trims %llu;"
                        " the server found the output empty %llu times)\n",
                        options.dropoutSeconds, dropouts, micDropouts,
                        static_cast<unsigned long long>(bridge->underruns() - underruns),
                        static_cast<unsigned long long>(bridge->trims() - trims),
                        static_cast<unsigned long long>(engine.liveGraph()->outputUnderflows() - underflows));
            engine.toggleLive();
            pump(200);
            player.disconnect();
            return dropouts == 0 ? 0 : 1;
        }
        std::printf("Live in call mode with the Natural voice; bursts every %.1f s for %.0f s.\n", kBurstPeriod,
                    options.seconds);
        if (options.stalls) {
            pump(500);
            measureStalls(engine, *loop, options.seconds);
            engine.toggleLive();
            pump(200);
            player.disconnect();
            return 0;
        }

        StampedRecorder reference(*loop, "fake_mic", options.seconds);
        StampedRecorder virtualMic(*loop, VirtualMic::kSourceName, options.seconds);
        StampedRecorder selfCheck(*loop, "mic_feed.monitor", options.seconds);
        for (auto* r : {&reference, &virtualMic, &selfCheck})
            if (!r->connect()) {
                std::fprintf(stderr, "Could not record %s.\n", r->source().c_str());
                return 1;
            }
        pump(500);  // let the bridge prime and the recorders settle
        // Meanwhile, how much the microphone bridge holds (part of the delay).
        std::vector<double> bridgeMs;
        for (int waited = 0; waited < options.seconds * 1000; waited += 50) {
            pump(50);
            if (const auto* graph = engine.liveGraph())
                bridgeMs.push_back(1000.0 * graph->micBridge()->count() / LiveGraph::kSampleRate);
        }
        const std::string streamLatencies = serverStreamLatencies();

        Timeline ref, out, check;
        reference.snapshot(&ref.x, &ref.stamps);
        virtualMic.snapshot(&out.x, &out.stamps);
        selfCheck.snapshot(&check.x, &check.stamps);
        for (auto* r : {&reference, &virtualMic, &selfCheck}) r->disconnect();
        if (ref.stamps.empty() || out.stamps.empty() || check.stamps.empty()) {
            std::fprintf(stderr, "The recordings carry no timing information.\n");
            return 1;
        }

        const Delays added = measure(ref, out);
        const Delays method = measure(ref, check);
        std::printf("\nDelay added between the microphone and \"Parlova Mic\" (Natural voice):\n");
        report("envelope cross-correlation:", added.xcorrMs, added.bursts);
        report("onset (25% of burst peak):", added.onsetMs, added.bursts);
        std::printf("Method check, fake mic vs. its own feed monitor (expect ~0):\n");
        report("envelope cross-correlation:", method.xcorrMs, method.bursts);
        if (!bridgeMs.empty())
            std::printf("Parts of it: the microphone bridge held %.1f ms on average (min %.1f, max %.1f);\n",
                        std::accumulate(bridgeMs.begin(), bridgeMs.end(), 0.0) / bridgeMs.size(),
                        *std::min_element(bridgeMs.begin(), bridgeMs.end()),
                        *std::max_element(bridgeMs.begin(), bridgeMs.end()));
        std::printf("the server's view of the engine's streams:\n%s", streamLatencies.c_str());
        if (const auto shown = engine.liveDelayEstimate())
            std::printf("The delay the engine shows (the window's \"Delay\"): %.0f ms\n", *shown * 1000.0);
        else
            std::printf("The engine shows no delay (it could not tell).\n");
        std::printf("Stamp jitter (median distance of a fragment's stamp from the fit): %.2f ms mic, %.2f ms "
                    "virtual mic\n",
                    ref.jitterMs(), out.jitterMs());
        const double target = options.lowDelay ? 55 : 100;
        const double m = median(added.xcorrMs);
        std::printf("Target <= %.0f ms: %s\n", target,
                    std::isnan(m) ? "NOT MEASURED" : (m <= target ? "met" : "MISSED"));
        if (std::isnan(m)) status = 1;

        // CPU of live mode on a steady voice-like signal.
        player.setMode(BurstPlayer::Mode::Sawtooth);
        pump(500);
        const char* serverPid = std::getenv("PARLOVA_PULSE_PID");
        std::printf("\nLive mode CPU over %.0f s (this process: engine, its streams and the probe's player):\n",
                    options.seconds);
        auto cpuFor = [&](const char* name) {
            double server = 0;
            uint64_t underruns = 0;
            const double own = liveCpuPercent(engine, options.seconds, serverPid, &server, &underruns);
            std::printf("  %-16s %5.2f %% of one core", name, own);
            if (!std::isnan(server)) std::printf("   (sound server %5.2f %%)", server);
            std::printf("   bridge underruns %llu\n", static_cast<unsigned long long>(underruns));
        };
        cpuFor("Natural:");
        const Voice& starting = Voice::builtIns().front();
        engine.set(starting);
        pump(300);
        cpuFor((starting.name.toStdString() + ":").c_str());

        int micDropouts = 0;
        const int dropouts = measureDropouts(*loop, player, options.seconds, &micDropouts);
        std::printf("\nDropouts heard on \"Parlova Mic\" over %.0f s (steady 440 Hz tone in, %s voice): %d"
                    " (in the microphone itself: %d)\n",
                    options.seconds, starting.name.toUtf8().constData(), dropouts, micDropouts);

        engine.toggleLive();
        pump(200);
        player.disconnect();
    }
    if (!hadVirtualMic) {
        try {
            VirtualMic::uninstall();
        } catch (const VoiceEngineError&) {
        }
    }
    loop.reset();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    for (; argc > 1; --argc, ++argv) {
        if (std::string(argv[1]) == "--low-delay") options.lowDelay = true;
        else if (std::string(argv[1]) == "--clean-mic") options.cleanMic = true;
        else break;
    }
    if (argc == 3 && std::string(argv[1]) == "--seconds") options.seconds = std::atof(argv[2]);
    else if (argc == 3 && std::string(argv[1]) == "--dropouts") options.dropoutSeconds = std::atof(argv[2]);
    else if (argc == 3 && std::string(argv[1]) == "--board") options.seconds = options.boardSeconds = std::atof(argv[2]);
    else if (argc == 3 && std::string(argv[1]) == "--stalls") options.seconds = std::atof(argv[2]), options.stalls = true;
    else if (argc != 1) options.seconds = 0;
    if (options.seconds < 2) {
        std::fprintf(stderr,
                     "Usage: parlova_latency_probe [--low-delay] [--clean-mic] [--seconds N | --dropouts N | --stalls N | --board N]\n"
                     "Measures the delay live mode adds between the microphone and \"Parlova Mic\" with the\n"
                     "Natural voice on a private sound server, then live mode's CPU and the dropouts a\n"
                     "caller hears, each for N seconds (default 10, at least 2). With --dropouts, only\n"
                     "the dropouts, for N seconds. With --stalls, the delay the engine shows against the\n"
                     "measured delay, in windows of N seconds before and after the sound server and the\n"
                     "probe itself stop for a second. With --board, the time from asking for a board sound\n"
                     "to hearing it, then the dropouts while board sounds play over the voice. --low-delay\n"
                     "runs everything with the low-delay setting, --clean-mic with \"Clean up my mic\" on\n"
                     "(the bursts are then a 150 Hz buzz).\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    PrivateServer server;
    std::string error;
    if (!server.start(&error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    int status = 0;
    {
        QCoreApplication app(argc, argv);
        QCoreApplication::setOrganizationName("Parlova");
        QCoreApplication::setApplicationName("Parlova latency probe");
        status = runProbe(options);
    }
    server.stop();
    return status;
}
