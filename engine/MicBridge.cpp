#include "engine/MicBridge.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace parlova {

void SpinLock::lock() noexcept {
    for (int spins = 0;; ++spins) {
        if (!locked_.exchange(true, std::memory_order_acquire)) return;
        while (locked_.load(std::memory_order_relaxed)) {
            if (spins++ < 256) {
#if defined(__x86_64__) || defined(__i386__)
                _mm_pause();
#endif
            } else {
                // The holder was descheduled: give it the core instead of burning ours.
                std::this_thread::yield();
            }
        }
    }
}

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
    std::lock_guard guard(lock_);
    // Sequentially, every sample lands at (readIndex + count) mod capacity and
    // overwrites the oldest one once the ring is full. Only the newest
    // `capacity` samples of one write can survive, so copy just those.
    const int skip = std::max(0, n - capacity_);
    const float* src = mono + skip;
    int remaining = n - skip;
    int pos = static_cast<int>((static_cast<int64_t>(readIndex_) + count_ + skip) % capacity_);
    while (remaining > 0) {
        const int chunk = std::min(remaining, capacity_ - pos);
        std::memcpy(storage_.get() + pos, src, sizeof(float) * static_cast<size_t>(chunk));
        src += chunk;
        remaining -= chunk;
        pos = (pos + chunk) % capacity_;
    }
    const int64_t total = static_cast<int64_t>(count_) + n;
    if (total > capacity_) {
        readIndex_ = static_cast<int>((readIndex_ + (total - capacity_)) % capacity_);
        count_ = capacity_;
    } else {
        count_ = static_cast<int>(total);
    }
    // Latency trim: above six cushions, keep only the newest two.
    if (count_ > 6 * cushion_) {
        const int drop = count_ - 2 * cushion_;
        readIndex_ = (readIndex_ + drop) % capacity_;
        count_ = 2 * cushion_;
        trims_.fetch_add(1, std::memory_order_relaxed);
    }
}

void MicBridge::read(BufferList& out, int frames) noexcept {
    if (out.count <= 0 || !out.data[0] || frames <= 0) return;
    float* first = out.data[0];
    int delivered = 0;
    bool ranDry = false;
    {
        std::lock_guard guard(lock_);
        if (!primed_ && count_ >= cushion_) primed_ = true;
        if (primed_) {
            delivered = std::min(count_, frames);
            int remaining = delivered;
            float* dst = first;
            while (remaining > 0) {
                const int chunk = std::min(remaining, capacity_ - readIndex_);
                std::memcpy(dst, storage_.get() + readIndex_, sizeof(float) * static_cast<size_t>(chunk));
                dst += chunk;
                remaining -= chunk;
                readIndex_ = (readIndex_ + chunk) % capacity_;
            }
            count_ -= delivered;
            if (delivered < frames) {
                primed_ = false;
                ranDry = true;
            }
        }
    }
    if (ranDry) underruns_.fetch_add(1, std::memory_order_relaxed);
    if (delivered < frames) std::fill(first + delivered, first + frames, 0.0f);
    const int channels = std::min(out.count, kMaxChannels);
    for (int b = 1; b < channels; ++b)
        if (out.data[b] && out.data[b] != first)
            std::memcpy(out.data[b], first, sizeof(float) * static_cast<size_t>(frames));
}

int MicBridge::count() const noexcept {
    std::lock_guard guard(lock_);
    return count_;
}

bool MicBridge::isPrimed() const noexcept {
    std::lock_guard guard(lock_);
    return primed_;
}

void MicBridge::reset() noexcept {
    std::lock_guard guard(lock_);
    readIndex_ = 0;
    count_ = 0;
    primed_ = false;
}

}  // namespace parlova
