#include "cloning/SampleQueue.h"

#include <algorithm>
#include <cstring>

namespace parlova {

SampleQueue::SampleQueue(double seconds, double sampleRate)
    : capacity_(std::max<size_t>(1, size_t(seconds * sampleRate))),
      sampleRate_(sampleRate),
      storage_(new float[capacity_]()) {}

void SampleQueue::setCushionSeconds(double seconds) noexcept {
    cushion_.store(std::min(capacity_, size_t(std::max(0.0, seconds) * sampleRate_)), std::memory_order_relaxed);
}

double SampleQueue::cushionSeconds() const noexcept {
    return double(cushion_.load(std::memory_order_relaxed)) / sampleRate_;
}

size_t SampleQueue::count() const noexcept {
    const uint64_t written = written_.load(std::memory_order_acquire);
    const uint64_t read = read_.load(std::memory_order_acquire);
    return written > read ? size_t(written - read) : 0;
}

double SampleQueue::seconds() const noexcept { return double(count()) / sampleRate_; }

void SampleQueue::write(const float* samples, size_t count) noexcept {
    const uint64_t written = written_.load(std::memory_order_relaxed);
    // Acquire: the reader has finished copying out of every slot it released.
    const uint64_t read = read_.load(std::memory_order_acquire);
    const size_t room = capacity_ - size_t(written - read);
    if (count > room) {
        dropped_.fetch_add(count - room, std::memory_order_relaxed);
        samples += count - room;
        count = room;
    }
    size_t at = size_t(written % capacity_);
    const size_t first = std::min(count, capacity_ - at);
    std::memcpy(storage_.get() + at, samples, first * sizeof(float));
    std::memcpy(storage_.get(), samples + first, (count - first) * sizeof(float));
    // Release: the samples are in place before the reader can count them.
    written_.store(written + count, std::memory_order_release);
}

void SampleQueue::read(float* mono, int frames, float gain) noexcept {
    const uint64_t written = written_.load(std::memory_order_acquire);
    uint64_t read = read_.load(std::memory_order_relaxed);
    const size_t cushion = cushion_.load(std::memory_order_relaxed);
    if (const uint64_t clearTo = clearTo_.exchange(0, std::memory_order_acq_rel); clearTo > 0) {
        read = std::max(read, std::min(clearTo - 1, written));
        primed_.store(false, std::memory_order_relaxed);
    }
    size_t held = size_t(written - read);
    // Keep the newest audio: a backlog beyond the cushion is skipped.
    const size_t backlog = cushion + size_t(kBacklogSeconds * sampleRate_);
    if (held > backlog) {
        dropped_.fetch_add(held - cushion, std::memory_order_relaxed);
        read += held - cushion;
        held = cushion;
    }
    bool primed = primed_.load(std::memory_order_relaxed);
    if (!primed && held >= std::max<size_t>(cushion, 1)) primed = true;
    size_t n = 0;
    if (primed) {
        n = std::min(size_t(std::max(frames, 0)), held);
        const size_t at = size_t(read % capacity_);
        const size_t first = std::min(n, capacity_ - at);
        for (size_t i = 0; i < first; ++i) mono[i] = storage_[at + i] * gain;
        for (size_t i = first; i < n; ++i) mono[i] = storage_[i - first] * gain;
        read += n;
        if (n == held && cushion > 0) {
            // Ran dry: wait for a whole cushion again.
            primed = false;
            if (size_t(frames) > n) underruns_.fetch_add(1, std::memory_order_relaxed);
        }
    }
    std::fill(mono + n, mono + std::max(frames, 0), 0.0f);
    primed_.store(primed, std::memory_order_relaxed);
    // Release: the copies above are done before the writer may reuse the slots.
    read_.store(read, std::memory_order_release);
}

void SampleQueue::read(BufferList& out, int frames, float gain) noexcept {
    if (out.count < 1 || !out.data[0]) return;
    read(out.data[0], frames, gain);
    for (int c = 1; c < out.count; ++c)
        if (out.data[c]) std::memcpy(out.data[c], out.data[0], size_t(frames) * sizeof(float));
}

}  // namespace parlova
