#pragma once
// The converted voice on its way from the clone worker to the output: a mono
// ring that the worker's reader thread fills and the output's audio thread
// drains.
//
// Reading starts once a cushion has gathered ("primed"); a read that empties
// the queue while a cushion is set sends it back to waiting for a full
// cushion, so an underrun is one clean gap instead of a stutter. A request for
// more than is held gives what is held followed by silence. When more than the
// cushion plus kBacklogSeconds piles up (the worker sent a burst, or the output
// fell behind) the reader skips the oldest audio down to one cushion: the
// newest audio is kept and the delay stays bounded. A writer that finds no
// room drops the oldest part of what it brings.
//
// Lock-free single producer, single consumer. The writer owns `written_`, the
// reader owns `read_`; each publishes its counter with release order after
// touching the samples and loads the other's with acquire order before using
// the samples or slots it covers. The cushion and a pending clear are atomics
// the main thread sets and the reader applies; the ring is allocated once,
// reads and writes allocate nothing.
#include <atomic>
#include <cstdint>
#include <memory>

#include "dsp/AudioBuffers.h"

namespace parlova {

class SampleQueue {
public:
    static constexpr double kBacklogSeconds = 0.5;

    SampleQueue(double seconds, double sampleRate);

    // Writer thread.
    void write(const float* samples, size_t count) noexcept;
    // Reader thread: fills `frames` frames of every buffer of `out`, each
    // sample multiplied by `gain`.
    void read(BufferList& out, int frames, float gain = 1.0f) noexcept;
    void read(float* mono, int frames, float gain = 1.0f) noexcept;

    // Any thread. The cushion applies from the next read; clear() empties the
    // audio written before the call at the next read.
    void setCushionSeconds(double seconds) noexcept;
    double cushionSeconds() const noexcept;
    void clear() noexcept { clearTo_.store(written_.load(std::memory_order_acquire) + 1, std::memory_order_release); }

    // Observers on any thread (approximate while both sides run).
    double seconds() const noexcept;
    size_t count() const noexcept;
    size_t capacity() const { return capacity_; }
    double sampleRate() const { return sampleRate_; }
    bool isPrimed() const noexcept { return primed_.load(std::memory_order_relaxed); }
    uint64_t underruns() const noexcept { return underruns_.load(std::memory_order_relaxed); }
    uint64_t dropped() const noexcept { return dropped_.load(std::memory_order_relaxed); }

private:
    size_t capacity_;
    double sampleRate_;
    std::unique_ptr<float[]> storage_;
    std::atomic<uint64_t> written_{0};  // stored by the writer only
    std::atomic<uint64_t> read_{0};     // stored by the reader only
    std::atomic<bool> primed_{false};   // stored by the reader only
    std::atomic<size_t> cushion_{0};    // samples; set by anyone, applied by the reader
    std::atomic<uint64_t> clearTo_{0};  // 1 + the writer's count when clear() was called; 0: none
    std::atomic<uint64_t> underruns_{0};
    std::atomic<uint64_t> dropped_{0};
};

}  // namespace parlova
