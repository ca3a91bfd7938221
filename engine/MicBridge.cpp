#include "engine/MicBridge.h"

#include <algorithm>
#include <cstring>

namespace parlova {

MicBridge::MicBridge(double sampleRate, double cushionSeconds)
    : sampleRate_(sampleRate),
      queue_(static_cast<size_t>(std::max(8.0 * cushionSeconds, 0.5) * sampleRate),
             static_cast<size_t>(sampleRate * cushionSeconds),
             CushionedRing::TrimRule{6, 0, 1, 0, static_cast<size_t>(kSettleSeconds * sampleRate)}),
      scratch_(new float[kScratchCapacity]()) {}

MicBridge::~MicBridge() = default;

void MicBridge::write(const float* interleaved, int channels, int frames) noexcept {
    if (!interleaved || frames <= 0) return;
    const int n = std::min(frames, kScratchCapacity);
    const int c = std::max(channels, 1);
    const float scale = 1.0f / static_cast<float>(c);
    float* mono = scratch_.get();
    if (c == 1) {
        std::memcpy(mono, interleaved, sizeof(float) * static_cast<size_t>(n));
    } else {
        for (int i = 0; i < n; ++i) {
            const float* frame = interleaved + static_cast<size_t>(i) * static_cast<size_t>(c);
            float sum = 0.0f;
            for (int ch = 0; ch < c; ++ch) sum += frame[ch];
            mono[i] = sum * scale;
        }
    }
    queue_.write(mono, static_cast<size_t>(n));
}

void MicBridge::write(const BufferList& buffers, int frames) noexcept {
    if (buffers.count <= 0 || frames <= 0) return;
    const int n = std::min(frames, kScratchCapacity);
    const int buffersUsed = std::min(buffers.count, kMaxChannels);
    const float scale = 1.0f / static_cast<float>(std::max(buffersUsed, 1));
    float* mono = scratch_.get();
    std::fill(mono, mono + n, 0.0f);
    for (int b = 0; b < buffersUsed; ++b) {
        const float* src = buffers.data[b];
        if (!src) continue;
        for (int i = 0; i < n; ++i) mono[i] += src[i];
    }
    if (buffersUsed > 1)
        for (int i = 0; i < n; ++i) mono[i] *= scale;
    queue_.write(mono, static_cast<size_t>(n));
}

void MicBridge::read(BufferList& out, int frames) noexcept {
    if (out.count <= 0 || !out.data[0] || frames <= 0) return;
    float* first = out.data[0];
    queue_.read(first, frames);
    const int channels = std::min(out.count, kMaxChannels);
    for (int b = 1; b < channels; ++b)
        if (out.data[b] && out.data[b] != first)
            std::memcpy(out.data[b], first, sizeof(float) * static_cast<size_t>(frames));
}

void MicBridge::reset() noexcept { queue_.clear(); }

}  // namespace parlova
