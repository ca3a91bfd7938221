#include "support/TestAudio.h"

#include "media/AudioFile.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>

namespace fs = std::filesystem;

namespace parlova::testaudio {

namespace {

constexpr double kPi = std::numbers::pi;

void fft(std::vector<std::complex<double>>& a, bool inverse) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const double angle = 2 * kPi / static_cast<double>(len) * (inverse ? 1 : -1);
        const std::complex<double> step(std::cos(angle), std::sin(angle));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w(1);
            for (size_t k = 0; k < len / 2; ++k, w *= step) {
                const auto u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
        }
    }
    if (inverse)
        for (auto& x : a) x /= static_cast<double>(n);
}

// Two-pole resonator applied in place.
void resonate(std::vector<double>& x, double hz, double bandwidth, double rate) {
    const double r = std::exp(-kPi * bandwidth / rate);
    const double a1 = 2 * r * std::cos(2 * kPi * hz / rate), a2 = -r * r;
    double y1 = 0, y2 = 0;
    for (double& s : x) {
        const double y = (1 - r) * s + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        s = y;
    }
}

// Cepstrally smoothed log-magnitude envelope (dB) at `bins` log-spaced points
// from loHz to hiHz, averaged over frames of [from, from + count).
std::vector<double> envelope(const std::vector<float>& s, double rate, size_t from, size_t count, double loHz,
                             double hiHz, int bins) {
    constexpr size_t n = 4096;
    std::vector<double> logSpectrum(n / 2 + 1, 0.0);
    int frames = 0;
    for (size_t start = from; start + n <= std::min(s.size(), from + count); start += n / 2, ++frames) {
        std::vector<std::complex<double>> a(n);
        for (size_t i = 0; i < n; ++i)
            a[i] = s[start + i] * (0.5 - 0.5 * std::cos(2 * kPi * static_cast<double>(i) / n));
        fft(a, false);
        for (size_t k = 0; k <= n / 2; ++k) logSpectrum[k] += std::log(std::abs(a[k]) + 1e-9);
    }
    for (auto& v : logSpectrum) v /= std::max(frames, 1);
    // Cepstral smoothing: keep the low quefrencies (the envelope), drop the harmonics.
    std::vector<std::complex<double>> c(n);
    for (size_t k = 0; k < n; ++k) c[k] = logSpectrum[k <= n / 2 ? k : n - k];
    fft(c, true);
    const size_t lifter = static_cast<size_t>(rate / 400.0);  // well below a 100 Hz period
    for (size_t q = lifter; q < n - lifter; ++q) c[q] = 0;
    fft(c, false);
    std::vector<double> out(static_cast<size_t>(bins));
    for (int b = 0; b < bins; ++b) {
        const double hz = loHz * std::pow(hiHz / loHz, static_cast<double>(b) / (bins - 1));
        const double pos = hz / rate * n;
        const size_t k = static_cast<size_t>(pos);
        const double frac = pos - static_cast<double>(k);
        out[static_cast<size_t>(b)] = 20 / std::log(10.0) * ((1 - frac) * c[k].real() + frac * c[k + 1].real());
    }
    return out;
}

}  // namespace

std::vector<const float*> Audio::pointers() const {
    std::vector<const float*> p;
    for (const auto& c : channels) p.push_back(c.data());
    return p;
}

std::vector<float> tone(double hz, double sampleRate, size_t frames, float amplitude, Wave wave) {
    std::vector<double> x(frames, 0.0);
    const int harmonics = wave == Wave::sine ? 1 : static_cast<int>(0.45 * sampleRate / hz);
    for (int k = 1; k <= harmonics; ++k) {
        const double w = 2 * kPi * hz * k / sampleRate;
        for (size_t i = 0; i < frames; ++i) x[i] += std::sin(w * static_cast<double>(i)) / k;
    }
    if (wave == Wave::vowel)
        for (auto [f, bw] : {std::pair{600.0, 90.0}, {1400.0, 120.0}, {2600.0, 160.0}}) resonate(x, f, bw, sampleRate);
    double scale = amplitude;  // a sine has its peak by construction; the others are normalised to it
    if (wave != Wave::sine) {
        double top = 1e-12;
        for (double s : x) top = std::max(top, std::fabs(s));
        scale /= top;
    }
    std::vector<float> out(frames);
    for (size_t i = 0; i < frames; ++i) out[i] = static_cast<float>(x[i] * scale);
    return out;
}

Audio spread(std::vector<float> samples, double sampleRate, int channels) {
    return {sampleRate, std::vector<std::vector<float>>(static_cast<size_t>(channels), std::move(samples))};
}

std::vector<float> whiteNoise(size_t frames, float amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> out(frames);
    for (auto& v : out) v = dist(rng);
    return out;
}

Audio noise(double seconds, double sampleRate, int channels, float amplitude, uint32_t seed) {
    Audio a{sampleRate, {}};
    for (int c = 0; c < channels; ++c)
        a.channels.push_back(whiteNoise(static_cast<size_t>(std::llround(seconds * sampleRate)), amplitude, seed + c));
    return a;
}

namespace {
void put16(std::string& s, uint16_t v) { s.append(reinterpret_cast<const char*>(&v), 2); }
void put32(std::string& s, uint32_t v) { s.append(reinterpret_cast<const char*>(&v), 4); }
}  // namespace

bool writeWav(const std::string& path, const Audio& audio, int bits) {
    if (bits != 16 && bits != 32) return false;
    const auto channels = static_cast<uint16_t>(audio.channelCount());
    const auto frames = static_cast<size_t>(audio.frames());
    const uint32_t bytesPerFrame = channels * static_cast<uint32_t>(bits / 8);
    const auto dataBytes = static_cast<uint32_t>(frames * bytesPerFrame);
    const auto rate = static_cast<uint32_t>(std::lround(audio.sampleRate));
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    put32(out, 36 + dataBytes);
    out += "WAVEfmt ";
    put32(out, 16);
    put16(out, bits == 32 ? 3 : 1);  // IEEE float or integer PCM (little-endian hosts)
    put16(out, channels);
    put32(out, rate);
    put32(out, rate * bytesPerFrame);
    put16(out, static_cast<uint16_t>(bytesPerFrame));
    put16(out, static_cast<uint16_t>(bits));
    out += "data";
    put32(out, dataBytes);
    for (size_t i = 0; i < frames; ++i)
        for (const auto& ch : audio.channels) {
            if (bits == 32) {
                out.append(reinterpret_cast<const char*>(&ch[i]), 4);
            } else {
                const auto v = static_cast<int16_t>(std::lrint(std::clamp(ch[i], -1.0f, 32767.0f / 32768.0f) * 32768.0f));
                put16(out, static_cast<uint16_t>(v));
            }
        }
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(out.data(), static_cast<std::streamsize>(out.size()));
    return static_cast<bool>(f);
}

Audio readAudioFile(const std::string& path) {
    auto reader = AudioFileReader::open(path);
    Audio a;
    a.sampleRate = reader->format().sampleRate;
    a.channels.assign(static_cast<size_t>(reader->format().channels),
                      std::vector<float>(static_cast<size_t>(reader->frameLength())));
    std::vector<float*> p;
    for (auto& ch : a.channels) p.push_back(ch.data());
    reader->read(p.data(), static_cast<int>(reader->frameLength()));
    return a;
}

std::vector<float> readWavFloats(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    for (size_t at = 12; bytes.compare(0, 4, "RIFF") == 0 && at + 8 <= bytes.size();) {
        uint32_t size = 0;
        std::memcpy(&size, bytes.data() + at + 4, 4);
        if (bytes.compare(at, 4, "data") == 0) {
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

double rms(const std::vector<float>& samples, size_t from, size_t count) {
    const size_t end = std::min(samples.size(), count > samples.size() ? samples.size() : from + count);
    if (from >= end) return 0.0;
    double sum = 0.0;
    for (size_t i = from; i < end; ++i) sum += static_cast<double>(samples[i]) * samples[i];
    return std::sqrt(sum / static_cast<double>(end - from));
}

double peak(const std::vector<float>& samples) {
    double p = 0.0;
    for (float v : samples) p = std::max(p, static_cast<double>(std::fabs(v)));
    return p;
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

double fundamental(const std::vector<float>& s, double rate, size_t from, size_t count, double minHz, double maxHz) {
    const size_t maxLag = static_cast<size_t>(rate / minHz) + 2, minLag = static_cast<size_t>(rate / maxHz);
    if (from + maxLag + 2 >= s.size()) return 0;
    count = std::min(count, s.size() - from - maxLag - 1);
    std::vector<double> d(maxLag + 1, 0.0);
    for (size_t lag = 1; lag <= maxLag; ++lag) {
        double sum = 0;
        for (size_t i = from; i < from + count; ++i) {
            const double diff = static_cast<double>(s[i]) - s[i + lag];
            sum += diff * diff;
        }
        d[lag] = sum;
    }
    // Cumulative-mean normalisation, then the first clear dip.
    std::vector<double> nd(maxLag + 1, 1.0);
    double running = 0;
    for (size_t lag = 1; lag <= maxLag; ++lag) {
        running += d[lag];
        nd[lag] = running > 0 ? d[lag] * static_cast<double>(lag) / running : 1;
    }
    size_t best = std::max<size_t>(minLag, 2);
    for (size_t lag = best; lag < maxLag; ++lag) {
        if (nd[lag] < 0.2 && nd[lag] <= nd[lag - 1] && nd[lag] <= nd[lag + 1]) {
            best = lag;
            break;
        }
        if (nd[lag] < nd[best]) best = lag;
    }
    // Refine on the raw difference: it is a parabola around its minimum, where the
    // normalised one is tilted and may put its dip a lag off.
    while (best > 2 && d[best - 1] < d[best]) --best;
    while (best + 1 < maxLag && d[best + 1] < d[best]) ++best;
    const double a = d[best - 1], b = d[best], c = d[best + 1];
    const double denom = a - 2 * b + c;
    const double offset = denom != 0 ? 0.5 * (a - c) / denom : 0;
    return rate / (static_cast<double>(best) + offset);
}

double envelopeShiftSemitones(const std::vector<float>& before, const std::vector<float>& after, double rate,
                              size_t from, size_t count) {
    // Both envelopes on a fine log axis; the best shift maximises their correlation.
    constexpr double lo = 250, hi = 5000;
    constexpr int perSemitone = 20;
    const int bins = static_cast<int>(12 * std::log2(hi / lo) * perSemitone) + 1;
    const auto a = envelope(before, rate, from, count, lo, hi, bins);
    const auto b = envelope(after, rate, from, count, lo, hi, bins);
    double bestShift = 0, bestScore = -1e300;
    for (int shift = -8 * perSemitone; shift <= 8 * perSemitone; ++shift) {
        double meanA = 0, meanB = 0;
        int n = 0;
        for (int i = 0; i < bins; ++i) {
            const int j = i + shift;
            if (j < 0 || j >= bins) continue;
            meanA += a[static_cast<size_t>(i)];
            meanB += b[static_cast<size_t>(j)];
            ++n;
        }
        if (n < bins / 2) continue;
        meanA /= n;
        meanB /= n;
        double sab = 0, saa = 0, sbb = 0;
        for (int i = 0; i < bins; ++i) {
            const int j = i + shift;
            if (j < 0 || j >= bins) continue;
            const double x = a[static_cast<size_t>(i)] - meanA, y = b[static_cast<size_t>(j)] - meanB;
            sab += x * y;
            saa += x * x;
            sbb += y * y;
        }
        const double score = sab / std::sqrt(saa * sbb + 1e-30);
        if (score > bestScore) {
            bestScore = score;
            bestShift = static_cast<double>(shift) / perSemitone;
        }
    }
    return bestShift;
}

size_t loudestStart(const std::vector<float>& s, size_t length) {
    size_t best = 0;
    double bestRms = -1;
    for (size_t at = 0; at + length <= s.size(); at += length / 4)
        if (const double r = rms(s, at, length); r > bestRms) bestRms = r, best = at;
    return best;
}

TempFolder::TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "parlova-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ec;
    // Restore permissions tests may have taken away, so removal succeeds.
    for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec))
        if (it->is_directory(ec)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

bool haveTool(const std::string& tool) {
    return runQuiet("command -v " + shellQuote(tool)) == 0;
}

int runQuiet(const std::string& command) {
    const int status = std::system((command + " >/dev/null 2>&1").c_str());
    return status == -1 ? -1 : WEXITSTATUS(status);
}

int runCapture(const std::string& command, std::string* out) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    std::string text;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) text.append(buf, n);
    const int status = pclose(pipe);
    if (out) *out = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string shellQuote(const std::string& arg) {
    std::string q = "'";
    for (char c : arg) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

Audio speech(const std::string& text, double sampleRate, const std::string& args) {
    if (!haveTool("espeak-ng")) return {};
    TempFolder dir;
    const std::string spoken = dir.file("spoken.wav"), resampled = dir.file("resampled.wav");
    if (runQuiet("espeak-ng -v en-us " + args + " -w " + shellQuote(spoken) + " " + shellQuote(text)) != 0) return {};
    if (std::lround(sampleRate) == 22050) return readAudioFile(spoken);
    if (!haveTool("sox") || runQuiet("sox " + shellQuote(spoken) + " -r " + std::to_string(std::lround(sampleRate)) + " " +
                                     shellQuote(resampled)) != 0)
        return {};
    return readAudioFile(resampled);
}

}  // namespace parlova::testaudio
