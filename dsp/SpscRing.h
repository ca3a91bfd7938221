#pragma once
// The one lock-free single-producer/single-consumer ring of the house: one
// thread writes, one other thread reads, neither ever waits or allocates
// after construction. Every queue of samples between threads is built on it
// (the microphone bridge, the monitor bridge, the cloned voice's queues, the
// recording and meter taps).
//
// Memory order. Each side owns one counter of elements ever passed through
// and is the only one to store it: the writer owns `written_`, the reader owns
// `read_`. The writer copies elements into the slots, then stores `written_`
// with release order; the reader loads `written_` with acquire order, so every
// element it counts is visible to it. Symmetrically, the reader copies
// elements out, then stores `read_` with release order; the writer loads
// `read_` with acquire order before reusing those slots, so it never
// overwrites an element still being read. Each side loads its own counter
// relaxed. Observers on other threads load both with acquire order and get an
// approximate count.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

namespace parlova {

template <class T>
class SpscRing {
    static_assert(std::is_trivially_copyable_v<T>, "the ring copies elements with memcpy");

public:
    explicit SpscRing(size_t capacity)
        : capacity_(std::max<size_t>(1, capacity)), slots_(new T[capacity_]()) {}
    SpscRing(const SpscRing&) = delete;
    SpscRing& operator=(const SpscRing&) = delete;

    size_t capacity() const { return capacity_; }

    // Writer thread: the room left.
    size_t writable() const noexcept {
        return capacity_ - held(written_.load(std::memory_order_relaxed), read_.load(std::memory_order_acquire));
    }
    // Writer thread: copies the first min(count, writable()) elements of
    // `elements` in and returns how many.
    size_t write(const T* elements, size_t count) noexcept {
        const uint64_t written = written_.load(std::memory_order_relaxed);
        count = std::min(count, capacity_ - held(written, read_.load(std::memory_order_acquire)));
        const size_t at = static_cast<size_t>(written % capacity_);
        const size_t first = std::min(count, capacity_ - at);
        std::memcpy(slots_.get() + at, elements, first * sizeof(T));
        std::memcpy(slots_.get(), elements + first, (count - first) * sizeof(T));
        written_.store(written + count, std::memory_order_release);
        return count;
    }

    // Reader thread: the elements waiting.
    size_t readable() const noexcept {
        return held(written_.load(std::memory_order_acquire), read_.load(std::memory_order_relaxed));
    }
    // Reader thread: copies the oldest min(count, readable()) elements out and
    // returns how many.
    size_t read(T* elements, size_t count) noexcept {
        const uint64_t read = read_.load(std::memory_order_relaxed);
        count = std::min(count, held(written_.load(std::memory_order_acquire), read));
        const size_t at = static_cast<size_t>(read % capacity_);
        const size_t first = std::min(count, capacity_ - at);
        std::memcpy(elements, slots_.get() + at, first * sizeof(T));
        std::memcpy(elements + first, slots_.get(), (count - first) * sizeof(T));
        read_.store(read + count, std::memory_order_release);
        return count;
    }
    // Reader thread: drops the oldest min(count, readable()) elements.
    size_t skip(size_t count) noexcept {
        const uint64_t read = read_.load(std::memory_order_relaxed);
        count = std::min(count, held(written_.load(std::memory_order_acquire), read));
        read_.store(read + count, std::memory_order_release);
        return count;
    }

    // Any thread: elements ever written (a mark for "everything up to now").
    uint64_t totalWritten() const noexcept { return written_.load(std::memory_order_acquire); }
    // Reader thread: elements ever read or skipped.
    uint64_t totalRead() const noexcept { return read_.load(std::memory_order_relaxed); }
    // Any thread: the elements waiting (approximate while both sides run).
    size_t size() const noexcept {
        const uint64_t read = read_.load(std::memory_order_acquire);
        return held(written_.load(std::memory_order_acquire), read);
    }

private:
    size_t held(uint64_t written, uint64_t read) const noexcept {
        return written > read ? static_cast<size_t>(std::min<uint64_t>(written - read, capacity_)) : 0;
    }

    size_t capacity_;
    std::unique_ptr<T[]> slots_;
    std::atomic<uint64_t> written_{0};  // stored by the writer only
    std::atomic<uint64_t> read_{0};     // stored by the reader only
};

}  // namespace parlova
