#pragma once
// Test audio: synthesized tones and noise, WAV files, speech from espeak-ng,
// temporary folders and a few measurements. Shared by the tests of every
// subsystem; real tools are optional and reported missing, never faked.
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace parlova::testaudio {

// Planar float audio with its sample rate.
struct Audio {
    double sampleRate = 48000.0;
    std::vector<std::vector<float>> channels;

    int channelCount() const { return static_cast<int>(channels.size()); }
    int64_t frames() const { return channels.empty() ? 0 : static_cast<int64_t>(channels[0].size()); }
    double seconds() const { return static_cast<double>(frames()) / sampleRate; }
    std::vector<const float*> pointers() const;
};

// `frames` samples of a sine at `hz`, `amplitude` peak.
std::vector<float> sine(double hz, double sampleRate, size_t frames, float amplitude = 0.5f);
// Uniform white noise, repeatable for a seed.
std::vector<float> whiteNoise(size_t frames, float amplitude, uint32_t seed);
// A sine at `hz` on every channel (same phase), `amplitude` peak.
Audio tone(double hz, double seconds, double sampleRate, int channels = 1, float amplitude = 0.5f);
// White noise, a different but repeatable sequence per channel.
Audio noise(double seconds, double sampleRate, int channels = 1, float amplitude = 0.5f, uint32_t seed = 1);

// Writes a RIFF WAV: `bits` 16 (integer PCM) or 32 (IEEE float). False on I/O failure.
bool writeWav(const std::string& path, const Audio& audio, int bits = 32);
// Decodes any file the engine can read (throws the engine's error otherwise).
Audio readAudioFile(const std::string& path);
// Float samples of a 32-bit float WAV as parecord writes it (a header left
// unfinished by a stopped recorder is tolerated).
std::vector<float> readWavFloats(const std::string& path);

// Root-mean-square level of samples [from, from + count).
double rms(const std::vector<float>& samples, size_t from = 0, size_t count = SIZE_MAX);
// Largest absolute sample.
double peak(const std::vector<float>& samples);
inline double toDb(double ratio) { return 20.0 * std::log10(ratio > 1e-30 ? ratio : 1e-30); }
// Frequency of a steady tone from its zero crossings over [from, from + count).
double toneFrequency(const std::vector<float>& samples, double sampleRate, size_t from = 0, size_t count = SIZE_MAX);
// Start of the loudest stretch of `length` samples (skips silence around a tone).
size_t loudestStart(const std::vector<float>& samples, size_t length);

// A fresh folder under the system temporary folder, removed with its contents.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Whether `tool` is an executable on PATH.
bool haveTool(const std::string& tool);
// Runs a shell command with its output discarded; returns its exit status.
int runQuiet(const std::string& command);
// Runs a shell command; its standard output in *out; returns its exit status.
int runCapture(const std::string& command, std::string* out);
// Quotes one argument for the shell.
std::string shellQuote(const std::string& arg);

// Speaks `text` with espeak-ng into folder/name (a 22.05 kHz mono WAV) and
// returns its path, or "" when espeak-ng is missing or fails. `voice` is an
// espeak-ng voice such as "en-us" or "en+f3"; `args` more espeak-ng options.
std::string speak(const std::string& text, const std::string& folder, const std::string& name = "speech.wav",
                  const std::string& voice = "en-us", const std::string& args = "");
// Speech as mono samples at `sampleRate` (resampled with sox); empty when
// espeak-ng or sox is missing.
std::vector<float> speech(const std::string& text, double sampleRate, const std::string& args = "");

}  // namespace parlova::testaudio
