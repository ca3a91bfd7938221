#include "engine/TapRelay.h"

#include <chrono>

namespace parlova {

TapRelay::TapRelay(int blockFrames, Handler handler, int blocks, double sampleRate)
    : blockFrames_(blockFrames),
      sampleRate_(sampleRate),
      handler_(std::move(handler)),
      ring_(static_cast<size_t>(blockFrames) * static_cast<size_t>(blocks)),
      block_(static_cast<size_t>(blockFrames)) {
    thread_ = std::thread([this] { run(); });
}

TapRelay::~TapRelay() {
    stopping_.store(true);
    thread_.join();
}

void TapRelay::push(const float* mono, int frames) noexcept {
    if (frames <= 0) return;
    // All or nothing, so a block never has a hole in the middle.
    if (ring_.writable() < static_cast<size_t>(frames)) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    ring_.write(mono, static_cast<size_t>(frames));
}

void TapRelay::run() {
    const auto block = static_cast<size_t>(blockFrames_);
    // Sleep one block's time between looks: the thread wakes about once per
    // block (some 20 ms of audio) and takes whatever is complete. Waking when
    // the rest of a block is due would mostly find it one push short, since
    // the writer hands over a few hundred frames at a time; the ring holds
    // dozens of blocks, so a late look loses nothing.
    const auto pause = std::chrono::duration<double>(static_cast<double>(block) / sampleRate_);
    while (true) {
        if (ring_.readable() < block) {
            if (stopping_.load()) return;
            std::this_thread::sleep_for(pause);
            continue;
        }
        ring_.read(block_.data(), block);
        if (handler_) handler_(block_.data(), blockFrames_);
    }
}

}  // namespace parlova
