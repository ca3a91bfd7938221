#pragma once
// The converted voice on its way from the clone worker to the output (and the
// microphone on its way to the worker): a CushionedRing measured in seconds.
//
// Reading starts once the cushion has gathered and an underrun waits for a
// whole cushion again; when more than the cushion plus kBacklogSeconds piles
// up (the worker sent a burst, or the output fell behind) the reader skips the
// oldest audio down to one cushion, so the newest audio is kept and the delay
// stays bounded. A writer that finds no room drops the oldest part of what it
// brings. One writer thread, one reader thread; the cushion and clear() may
// be set from any thread.
#include "dsp/AudioBuffers.h"
#include "dsp/CushionedRing.h"

#include <cstddef>
#include <cstdint>

namespace parlova {

class SampleQueue {
public:
    static constexpr double kBacklogSeconds = 0.5;

    SampleQueue(double seconds, double sampleRate);

    // Writer thread.
    void write(const float* samples, size_t count) noexcept { queue_.write(samples, count); }
    // Reader thread: fills `frames` frames of every buffer of `out`, each
    // sample multiplied by `gain`.
    void read(BufferList& out, int frames, float gain = 1.0f) noexcept;
    void read(float* mono, int frames, float gain = 1.0f) noexcept;

    // Any thread. The cushion applies from the next read; clear() empties the
    // audio written before the call at the next read.
    void setCushionSeconds(double seconds) noexcept;
    double cushionSeconds() const noexcept { return double(queue_.cushion()) / sampleRate_; }
    void clear() noexcept { queue_.clear(); }

    // Observers on any thread (approximate while both sides run).
    double seconds() const noexcept { return double(count()) / sampleRate_; }
    size_t count() const noexcept { return queue_.size(); }
    size_t capacity() const { return queue_.capacity(); }
    double sampleRate() const { return sampleRate_; }
    bool isPrimed() const noexcept { return queue_.isPrimed(); }
    uint64_t underruns() const noexcept { return queue_.underruns(); }
    uint64_t dropped() const noexcept { return queue_.dropped(); }

private:
    double sampleRate_;
    CushionedRing queue_;
};

}  // namespace parlova
