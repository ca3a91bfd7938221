#pragma once
// Test audio: synthesized tones and noise, WAV files, speech from espeak-ng,
// temporary folders, the engine's error sentences, and the measurements tests
// make on rendered audio (level, fundamental to a fraction of a cent, formant
// shift). Shared by the tests of every subsystem; real tools are optional and
// reported missing, never faked.
#include "common/VoiceEngineError.h"

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

// The shape of a test tone: a pure sine, a band-limited sawtooth (harmonics
// up to 0.45 of the rate), or that sawtooth through three vocal-tract style
// resonances so it has formants to move.
enum class Wave { sine, saw, vowel };

// `frames` samples of a periodic wave at `hz`, `amplitude` peak.
std::vector<float> tone(double hz, double sampleRate, size_t frames, float amplitude = 0.5f, Wave wave = Wave::sine);
// The same samples on `channels` channels.
Audio spread(std::vector<float> samples, double sampleRate, int channels = 1);
// Uniform white noise, repeatable for a seed.
std::vector<float> whiteNoise(size_t frames, float amplitude, uint32_t seed);
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
// The middle value (0 for none): a level or error that one glitched window cannot move.
double median(std::vector<double> values);
inline double toDb(double ratio) { return 20.0 * std::log10(ratio > 1e-30 ? ratio : 1e-30); }
// Fundamental of a steady periodic signal over [from, from + count), from the
// cumulative-mean-normalised difference function (the first clear dip between
// minHz and maxHz), refined by parabolic interpolation: a fraction of a cent on
// sines and sawtooths alike.
double fundamental(const std::vector<float>& samples, double sampleRate, size_t from = 0, size_t count = SIZE_MAX,
                   double minHz = 50, double maxHz = 1500);
// Cents from `reference` to `hz`.
inline double cents(double hz, double reference) { return 1200.0 * std::log2(hz / reference); }
// The shift in semitones that best maps the spectral envelope (cepstrally
// smoothed, 250 Hz to 5 kHz) of `before` onto that of `after` over
// [from, from + count); searched from -8 to +8 in 0.05 steps.
double envelopeShiftSemitones(const std::vector<float>& before, const std::vector<float>& after, double sampleRate,
                              size_t from, size_t count);
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

// The sentence of the engine error `action` throws, or `none` when it throws none.
template <typename Action>
std::string errorOf(Action action, const std::string& none = "(no error)") {
    try {
        action();
    } catch (const VoiceEngineError& e) {
        return e.errorDescription();
    }
    return none;
}

// `text` spoken by espeak-ng in en-us (`args`: more espeak-ng options such as "-p 80"
// or "-v en+f3" to override the voice), read back through the engine's reader as mono audio at
// `sampleRate` (espeak-ng's own 22.05 kHz file, resampled with sox for any
// other rate). No channels when espeak-ng, or sox where needed, is missing.
Audio speech(const std::string& text, double sampleRate = 22050, const std::string& args = "");

}  // namespace parlova::testaudio
