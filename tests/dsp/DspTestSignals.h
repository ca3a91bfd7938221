#pragma once
// Signal generators and measurements shared by the DSP unit tests.
#include "dsp/AudioBuffers.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace parlova::testsignals {

constexpr double kPi = 3.14159265358979323846;

inline std::vector<float> sine(double hz, double sampleRate, size_t frames, float amplitude = 0.5f,
                               double phase = 0.0) {
    std::vector<float> out(frames);
    for (size_t i = 0; i < frames; ++i)
        out[i] = amplitude * static_cast<float>(std::sin(2.0 * kPi * hz * static_cast<double>(i) / sampleRate + phase));
    return out;
}

inline std::vector<float> noise(size_t frames, float amplitude, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> out(frames);
    for (auto& v : out) v = dist(rng);
    return out;
}

inline double rms(const float* data, size_t frames) {
    double sum = 0.0;
    for (size_t i = 0; i < frames; ++i) sum += static_cast<double>(data[i]) * data[i];
    return frames ? std::sqrt(sum / static_cast<double>(frames)) : 0.0;
}
inline double rms(const std::vector<float>& v, size_t from = 0) {
    return from < v.size() ? rms(v.data() + from, v.size() - from) : 0.0;
}

inline double peak(const std::vector<float>& v) {
    double p = 0.0;
    for (float x : v) p = std::max(p, static_cast<double>(std::fabs(x)));
    return p;
}

inline double toDb(double ratio) { return 20.0 * std::log10(std::max(ratio, 1e-30)); }

// Owns per-channel storage and exposes it as a BufferList.
struct Channels {
    std::vector<std::vector<float>> data;
    Channels(int channels, size_t frames) : data(static_cast<size_t>(channels), std::vector<float>(frames, 0.0f)) {}
    BufferList list(size_t offset = 0, int frames = 0) {
        BufferList l;
        l.count = static_cast<int>(data.size());
        for (int c = 0; c < l.count; ++c) {
            l.data[c] = data[static_cast<size_t>(c)].data() + offset;
            l.byteSize[c] = static_cast<uint32_t>(frames) * 4u;
        }
        return l;
    }
    std::vector<float>& operator[](size_t c) { return data[c]; }
};

// Serves prepared channel data block by block, as the chain's upstream node would.
struct ChannelSource : AudioSource {
    Channels* source = nullptr;
    size_t at = 0;
    int32_t pull(BufferList& out, int frames) noexcept override {
        for (int c = 0; c < out.count; ++c) {
            const auto& channel = (*source)[std::min(static_cast<size_t>(c), source->data.size() - 1)];
            for (int i = 0; i < frames; ++i) {
                const size_t n = at + static_cast<size_t>(i);
                out.data[c][i] = n < channel.size() ? channel[n] : 0.0f;
            }
        }
        at += static_cast<size_t>(frames);
        return status::ok;
    }
};

// Renders all of `input` through a prepared unit in blocks of `block` frames
// and returns the output; the unit's input is pointed at a local source.
template <class Unit>
Channels renderThrough(Unit& unit, Channels& input, int block = 512) {
    ChannelSource source;
    source.source = &input;
    unit.setInput(&source);
    const size_t frames = input[0].size();
    Channels output(static_cast<int>(input.data.size()), frames);
    for (size_t at = 0; at < frames; at += static_cast<size_t>(block)) {
        const int n = static_cast<int>(std::min<size_t>(static_cast<size_t>(block), frames - at));
        BufferList list = output.list(at, n);
        unit.pull(list, n);
    }
    unit.setInput(nullptr);
    return output;
}

// Speech from the espeak-ng synthesiser as mono float samples at `sampleRate`
// (resampled with sox). Empty when either tool is missing or fails.
inline std::vector<float> synthesizedSpeech(const std::string& text, double sampleRate, const std::string& extraArgs = "") {
    if (std::system("command -v espeak-ng >/dev/null 2>&1 && command -v sox >/dev/null 2>&1") != 0) return {};
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() /
                         ("parlova-dsp-speech-" + std::to_string(reinterpret_cast<uintptr_t>(&text)) + "-" +
                          std::to_string(std::random_device{}()));
    fs::create_directories(dir);
    const fs::path wav = dir / "speech.wav";
    const fs::path raw = dir / "speech.f32";
    const std::string synth = "espeak-ng " + extraArgs + " -w '" + wav.string() + "' '" + text + "' >/dev/null 2>&1";
    const std::string convert = "sox '" + wav.string() + "' -t raw -e floating-point -b 32 -c 1 -r " +
                                std::to_string(static_cast<long>(sampleRate)) + " '" + raw.string() + "' >/dev/null 2>&1";
    std::vector<float> samples;
    if (std::system(synth.c_str()) == 0 && std::system(convert.c_str()) == 0) {
        std::ifstream in(raw, std::ios::binary | std::ios::ate);
        const auto bytes = static_cast<size_t>(in.tellg());
        samples.resize(bytes / sizeof(float));
        in.seekg(0);
        in.read(reinterpret_cast<char*>(samples.data()), static_cast<std::streamsize>(samples.size() * sizeof(float)));
    }
    std::error_code ec;
    fs::remove_all(dir, ec);
    return samples;
}

}  // namespace parlova::testsignals
