#include "engine/MicBridge.h"

#include <algorithm>
#include <cstring>

namespace parlova {

MicBridge::MicBridge(double sampleRate, double cushionSeconds)
    : sampleRate_(sampleRate),
      capacity_(std::max(1, static_cast<int>(std::max(8.0 * cushionSeconds, 0.5) * sampleRate))),
      cushion_(static_cast<int>(sampleRate * cushionSeconds)),
      storage_(new float[static_cast<size_t>(capacity_)]()),
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
    append(mono, n);
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
    append(mono, n);
}

void MicBridge::append(const float* mono, int n) noexcept {
    const uint64_t written = written_.load(std::memory_order_relaxed);  // our own counter
    // Only the room the reader has given back may be written: its release
    // store of `read_` after copying orders its reads before our writes.
    const uint64_t held = written - read_.load(std::memory_order_acquire);
    const int room = capacity_ - static_cast<int>(std::min<uint64_t>(held, static_cast<uint64_t>(capacity_)));
    int remaining = std::min(n, room);  // a stalled reader: what does not fit is dropped
    const float* src = mono;
    int pos = static_cast<int>(written % static_cast<uint64_t>(capacity_));
    const int stored = remaining;
    while (remaining > 0) {
        const int chunk = std::min(remaining, capacity_ - pos);
        std::memcpy(storage_.get() + pos, src, sizeof(float) * static_cast<size_t>(chunk));
        src += chunk;
        remaining -= chunk;
        pos = (pos + chunk) % capacity_;
    }
    written_.store(written + static_cast<uint64_t>(stored), std::memory_order_release);  // publishes the samples
}

void MicBridge::read(BufferList& out, int frames) noexcept {
    if (out.count <= 0 || !out.data[0] || frames <= 0) return;
    float* first = out.data[0];
    const uint64_t written = written_.load(std::memory_order_acquire);
    uint64_t read = read_.load(std::memory_order_relaxed);  // our own counter
    uint64_t held = written - read;
    // Latency trim: above six cushions, keep only the newest two.
    const uint64_t limit = static_cast<uint64_t>(cushion_ > 0 ? 6 * cushion_ : capacity_);
    if (held > limit) {
        read = written - static_cast<uint64_t>(2 * cushion_);
        held = static_cast<uint64_t>(2 * cushion_);
        trims_.fetch_add(1, std::memory_order_relaxed);
    }
    bool primed = primed_.load(std::memory_order_relaxed);
    if (!primed && held >= static_cast<uint64_t>(cushion_)) primed = true;
    int delivered = 0;
    if (primed) {
        delivered = static_cast<int>(std::min<uint64_t>(held, static_cast<uint64_t>(frames)));
        int pos = static_cast<int>(read % static_cast<uint64_t>(capacity_));
        int remaining = delivered;
        float* dst = first;
        while (remaining > 0) {
            const int chunk = std::min(remaining, capacity_ - pos);
            std::memcpy(dst, storage_.get() + pos, sizeof(float) * static_cast<size_t>(chunk));
            dst += chunk;
            remaining -= chunk;
            pos = (pos + chunk) % capacity_;
        }
        read += static_cast<uint64_t>(delivered);
        if (delivered < frames) {
            primed = false;  // wait for a full cushion again instead of stuttering
            underruns_.fetch_add(1, std::memory_order_relaxed);
        }
    }
    read_.store(read, std::memory_order_release);
    primed_.store(primed, std::memory_order_relaxed);
    if (delivered < frames) std::fill(first + delivered, first + frames, 0.0f);
    const int channels = std::min(out.count, kMaxChannels);
    for (int b = 1; b < channels; ++b)
        if (out.data[b] && out.data[b] != first)
            std::memcpy(out.data[b], first, sizeof(float) * static_cast<size_t>(frames));
}

int MicBridge::count() const noexcept {
    const uint64_t read = read_.load(std::memory_order_acquire);
    const uint64_t written = written_.load(std::memory_order_acquire);
    return written > read ? static_cast<int>(std::min<uint64_t>(written - read, static_cast<uint64_t>(capacity_))) : 0;
}

void MicBridge::reset() noexcept {
    read_.store(written_.load(std::memory_order_acquire), std::memory_order_release);
    primed_.store(false, std::memory_order_relaxed);
}

}  // namespace parlova
