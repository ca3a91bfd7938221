#pragma once
// A mono queue of samples between two clocks (a microphone and an output, a
// speech worker and an output), on the one SPSC ring, with the one policy for
// keeping such a queue smooth and its delay bounded:
//
// - Priming: reading starts once a cushion of samples has gathered; until
//   then a read gives silence.
// - Underrun: a read that runs dry plays what there was, then silence, and
//   the queue waits for a whole cushion again, so a gap is one clean gap
//   instead of a stutter.
// - Trim: when more than `trimAbove` samples pile up (the reader fell behind,
//   the writer's clock runs fast, or a burst arrived), the reader skips the
//   oldest down to `trimTo`, keeping the newest audio. The margin between the
//   two keeps small bursts from trimming every time.
// - Settling (optional): a backlog under the trim limit that the reader never
//   needs (a burst at the start that both clocks then carry along) would add
//   its delay for good. Over each stretch of `settleSamples` read, the reader
//   notes the least the queue held after a read; when even that stayed above
//   one and a half cushions, it skips the oldest down to a cushion's margin.
// - A writer that finds no room keeps the newest part of what it brings.
//
// The writer thread calls write(); the reader thread read() and the trims;
// the cushion and a pending clear are atomics any thread may set, which the
// reader applies at its next read. Nothing allocates after construction.
#include "dsp/SpscRing.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace parlova {

class CushionedRing {
public:
    // How far the backlog may grow, from the cushion: trim when it exceeds
    // cushion x aboveCushions + aboveExtra, down to cushion x toCushions
    // (+ toExtra).
    struct TrimRule {
        double aboveCushions = 6;
        size_t aboveExtra = 0;
        double toCushions = 2;
        size_t toExtra = 0;
        size_t settleSamples = 0;  // the settling stretch; 0: no settling
    };

    CushionedRing(size_t capacity, size_t cushion, TrimRule rule);

    // Writer thread.
    void write(const float* samples, size_t count) noexcept;
    // Reader thread: fills `frames` samples of `out` (silence where unprimed
    // or dry) and returns how many came from the queue.
    int read(float* out, int frames) noexcept;

    // Any thread: the cushion applies from the next read.
    void setCushion(size_t samples) noexcept;
    size_t cushion() const noexcept { return cushion_.load(std::memory_order_relaxed); }
    // Any thread: everything written before the call is dropped at the next read.
    void clear() noexcept;

    // Observers on any thread (approximate while both sides run).
    size_t size() const noexcept { return ring_.size(); }
    size_t capacity() const { return ring_.capacity(); }
    bool isPrimed() const noexcept { return primed_.load(std::memory_order_relaxed); }
    // Reads that ran dry after priming.
    uint64_t underruns() const noexcept { return underruns_.load(std::memory_order_relaxed); }
    // Times a backlog was trimmed, and times an unneeded one settled.
    uint64_t trims() const noexcept { return trims_.load(std::memory_order_relaxed); }
    uint64_t settles() const noexcept { return settles_.load(std::memory_order_relaxed); }
    // Samples lost to trims and to a full ring.
    uint64_t dropped() const noexcept { return dropped_.load(std::memory_order_relaxed); }

private:
    // Reader thread: counts `read` samples into the settling stretch (0: start anew).
    void settle(size_t read, size_t cushion) noexcept;

    SpscRing<float> ring_;
    TrimRule rule_;
    std::atomic<size_t> cushion_;
    std::atomic<uint64_t> clearTo_{0};  // 1 + the writer's count when clear() was called; 0: none
    std::atomic<bool> primed_{false};   // stored by the reader only
    std::atomic<uint64_t> underruns_{0};
    std::atomic<uint64_t> trims_{0};
    std::atomic<uint64_t> settles_{0};
    std::atomic<uint64_t> dropped_{0};
    // The reader's settling stretch: samples read in it, and the least held after a read.
    size_t settleRead_ = 0;
    size_t settleLowest_ = SIZE_MAX;
};

}  // namespace parlova
