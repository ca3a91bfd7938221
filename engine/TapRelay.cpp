#include "engine/TapRelay.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace parlova {

TapRelay::TapRelay(int channels, int blockFrames, Handler handler, int slots)
    : channels_(channels),
      blockFrames_(blockFrames),
      handler_(std::move(handler)),
      slots_(static_cast<size_t>(slots * channels), std::vector<float>(static_cast<size_t>(blockFrames))) {
    thread_ = std::thread([this] { run(); });
}

TapRelay::~TapRelay() {
    stopping_.store(true);
    thread_.join();
}

void TapRelay::push(const float* const* channels, int frames) noexcept {
    const uint64_t slotCount = slots_.size() / static_cast<size_t>(channels_);
    int done = 0;
    while (done < frames) {
        const uint64_t written = written_.load(std::memory_order_relaxed);
        if (written - read_.load(std::memory_order_acquire) >= slotCount) {
            // The tap thread is behind: lose this block instead of waiting.
            dropped_.fetch_add(1, std::memory_order_relaxed);
            filling_ = 0;
            return;
        }
        const size_t slot = static_cast<size_t>(written % slotCount);
        const int n = std::min(frames - done, blockFrames_ - filling_);
        for (int c = 0; c < channels_; ++c)
            std::memcpy(slots_[slot * static_cast<size_t>(channels_) + static_cast<size_t>(c)].data() + filling_,
                        channels[c] + done, static_cast<size_t>(n) * sizeof(float));
        filling_ += n;
        done += n;
        if (filling_ == blockFrames_) {
            filling_ = 0;
            written_.store(written + 1, std::memory_order_release);
        }
    }
}

void TapRelay::run() {
    const uint64_t slotCount = slots_.size() / static_cast<size_t>(channels_);
    std::vector<const float*> pointers(static_cast<size_t>(channels_));
    while (true) {
        const uint64_t read = read_.load(std::memory_order_relaxed);
        if (read == written_.load(std::memory_order_acquire)) {
            if (stopping_.load()) return;
            // Blocks are about 20 ms of audio and the ring holds dozens: a relaxed
            // poll keeps this thread from waking the machine needlessly.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        const size_t slot = static_cast<size_t>(read % slotCount);
        for (int c = 0; c < channels_; ++c)
            pointers[static_cast<size_t>(c)] = slots_[slot * static_cast<size_t>(channels_) + static_cast<size_t>(c)].data();
        handler_(pointers.data(), channels_, blockFrames_);
        read_.store(read + 1, std::memory_order_release);
    }
}

}  // namespace parlova
