#pragma once
// Audio sources for tests: planar samples from memory (then silence), and an
// endless sine; plus rendering prepared samples through a unit block by block.
#include "dsp/AudioBuffers.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <vector>

namespace parlova::testaudio {

class MemorySource : public AudioSource {
public:
    explicit MemorySource(std::vector<std::vector<float>> channels) : channels_(std::move(channels)) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        const size_t length = channels_.empty() ? 0 : channels_[0].size();
        for (int c = 0; c < out.count; ++c) {
            const auto& src = channels_[std::min(static_cast<size_t>(c), channels_.size() - 1)];
            for (int i = 0; i < frames; ++i) {
                const size_t at = position_ + static_cast<size_t>(i);
                out.data[c][i] = at < length ? src[at] : 0.0f;
            }
        }
        position_ += static_cast<size_t>(frames);
        return status::ok;
    }

private:
    std::vector<std::vector<float>> channels_;
    size_t position_ = 0;
};

// A sine on every channel; notes the largest slice asked for.
class SineSource : public AudioSource {
public:
    SineSource(double hz, double rate, float amplitude) : step_(2 * M_PI * hz / rate), amplitude_(amplitude) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        maxSlice = std::max(maxSlice.load(), frames);
        for (int i = 0; i < frames; ++i, phase_ += step_)
            for (int c = 0; c < out.count; ++c) out.data[c][i] = amplitude_ * static_cast<float>(std::sin(phase_));
        return status::ok;
    }
    std::atomic<int> maxSlice{0};

private:
    double phase_ = 0, step_;
    float amplitude_;
};

// Per-channel storage exposed as a BufferList.
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

// Renders all of `input` through a prepared unit in blocks of `block` frames.
template <class Unit>
Channels renderThrough(Unit& unit, Channels& input, int block = 512) {
    MemorySource source(input.data);
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

}  // namespace parlova::testaudio
