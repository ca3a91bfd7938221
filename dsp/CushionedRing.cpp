#include "dsp/CushionedRing.h"

#include <algorithm>
#include <cstdint>

namespace parlova {

CushionedRing::CushionedRing(size_t capacity, size_t cushion, TrimRule rule)
    : ring_(capacity), rule_(rule), cushion_(std::min(cushion, capacity)) {}

void CushionedRing::setCushion(size_t samples) noexcept {
    cushion_.store(std::min(samples, ring_.capacity()), std::memory_order_relaxed);
}

void CushionedRing::clear() noexcept { clearTo_.store(ring_.totalWritten() + 1, std::memory_order_release); }

void CushionedRing::write(const float* samples, size_t count) noexcept {
    const size_t room = ring_.writable();
    if (count > room) {
        // The reader stalled: keep the newest part of what arrives.
        dropped_.fetch_add(count - room, std::memory_order_relaxed);
        samples += count - room;
        count = room;
    }
    ring_.write(samples, count);
}

int CushionedRing::read(float* out, int frames) noexcept {
    frames = std::max(frames, 0);
    const size_t cushion = cushion_.load(std::memory_order_relaxed);
    bool primed = primed_.load(std::memory_order_relaxed);
    if (const uint64_t clearTo = clearTo_.exchange(0, std::memory_order_acq_rel); clearTo > 0) {
        const uint64_t read = ring_.totalRead();
        if (clearTo - 1 > read) ring_.skip(static_cast<size_t>(clearTo - 1 - read));
        primed = false;
        settle(0, cushion);
    }
    size_t held = ring_.readable();
    const auto above = static_cast<size_t>(rule_.aboveCushions * double(cushion)) + rule_.aboveExtra;
    const size_t limit = cushion > 0 || rule_.aboveExtra > 0 ? above : ring_.capacity();
    if (held > limit) {
        const size_t keep = static_cast<size_t>(rule_.toCushions * double(cushion)) + rule_.toExtra;
        const size_t skipped = ring_.skip(held - std::min(keep, held));
        held -= skipped;
        dropped_.fetch_add(skipped, std::memory_order_relaxed);
        trims_.fetch_add(1, std::memory_order_relaxed);
    }
    if (!primed && held >= std::max<size_t>(cushion, 1)) primed = true;
    int delivered = 0;
    if (primed) {
        delivered = static_cast<int>(ring_.read(out, static_cast<size_t>(frames)));
        if (delivered < frames) {
            primed = false;  // wait for a whole cushion again instead of stuttering
            underruns_.fetch_add(1, std::memory_order_relaxed);
        }
    }
    primed_.store(primed, std::memory_order_relaxed);
    std::fill(out + delivered, out + frames, 0.0f);
    if (rule_.settleSamples > 0) settle(primed ? static_cast<size_t>(delivered) : 0, cushion);
    return delivered;
}

void CushionedRing::settle(size_t read, size_t cushion) noexcept {
    if (read == 0) {  // unprimed or cleared: a new stretch starts with the next read
        settleRead_ = 0;
        settleLowest_ = SIZE_MAX;
        return;
    }
    // What the writer adds meanwhile only raises the figure: never more is skipped than lay unused.
    settleLowest_ = std::min(settleLowest_, ring_.readable());
    settleRead_ += read;
    if (settleRead_ < rule_.settleSamples) return;
    if (settleLowest_ > cushion + cushion / 2) {
        const size_t skipped = ring_.skip(settleLowest_ - cushion);
        dropped_.fetch_add(skipped, std::memory_order_relaxed);
        settles_.fetch_add(1, std::memory_order_relaxed);
    }
    settleRead_ = 0;
    settleLowest_ = SIZE_MAX;
}

}  // namespace parlova
