#include "support/TestAudio.h"

#include "engine/AudioFile.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

namespace fs = std::filesystem;

namespace parlova::testaudio {

std::vector<const float*> Audio::pointers() const {
    std::vector<const float*> p;
    for (const auto& c : channels) p.push_back(c.data());
    return p;
}

std::vector<float> sine(double hz, double sampleRate, size_t frames, float amplitude) {
    std::vector<float> out(frames);
    const double step = 2.0 * M_PI * hz / sampleRate;
    for (size_t i = 0; i < frames; ++i) out[i] = amplitude * static_cast<float>(std::sin(step * static_cast<double>(i)));
    return out;
}

std::vector<float> whiteNoise(size_t frames, float amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> out(frames);
    for (auto& v : out) v = dist(rng);
    return out;
}

Audio tone(double hz, double seconds, double sampleRate, int channels, float amplitude) {
    const auto frames = static_cast<size_t>(std::llround(seconds * sampleRate));
    return {sampleRate, std::vector<std::vector<float>>(static_cast<size_t>(channels), sine(hz, sampleRate, frames, amplitude))};
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

double toneFrequency(const std::vector<float>& samples, double sampleRate, size_t from, size_t count) {
    const size_t end = std::min(samples.size(), count > samples.size() ? samples.size() : from + count);
    double first = -1.0, last = -1.0;
    int crossings = 0;
    for (size_t i = from + 1; i < end; ++i) {
        const float a = samples[i - 1], b = samples[i];
        if (a < 0.0f && b >= 0.0f) {  // rising crossing, placed by linear interpolation
            const double t = static_cast<double>(i - 1) + a / (a - b);
            if (first < 0.0) first = t;
            last = t;
            ++crossings;
        }
    }
    if (crossings < 2) return 0.0;
    return (crossings - 1) * sampleRate / (last - first);
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

std::string speak(const std::string& text, const std::string& folder, const std::string& name,
                  const std::string& voice, const std::string& args) {
    if (!haveTool("espeak-ng")) return {};
    const std::string path = folder + "/" + name;
    if (runQuiet("espeak-ng -v " + shellQuote(voice) + " " + args + " -w " + shellQuote(path) + " " + shellQuote(text)) != 0)
        return {};
    std::error_code ec;
    return fs::file_size(path, ec) > 44 && !ec ? path : std::string();
}

std::vector<float> speech(const std::string& text, double sampleRate, const std::string& args) {
    TempFolder dir;
    const std::string wav = speak(text, dir.path(), "speech.wav", "en-us", args), raw = dir.file("speech.f32");
    if (wav.empty() || !haveTool("sox") ||
        runQuiet("sox " + shellQuote(wav) + " -t raw -e floating-point -b 32 -c 1 -r " +
                 std::to_string(std::lround(sampleRate)) + " " + shellQuote(raw)) != 0)
        return {};
    std::ifstream in(raw, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<float> samples(bytes.size() / 4);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 4);
    return samples;
}

}  // namespace parlova::testaudio
