#pragma once
// Carries mono audio from a real-time thread to a tap thread without locks or
// allocation on the real-time side: the render thread writes into a
// preallocated SPSC ring, the tap thread takes it out in fixed blocks and runs
// the handler (recording, level metering) off the audio path. When the tap
// thread falls behind, what does not fit is dropped rather than waited for.
#include "dsp/SpscRing.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace parlova {

class TapRelay {
public:
    using Handler = std::function<void(const float* mono, int frames)>;

    // The ring holds `blocks` blocks of `blockFrames`. Audio arrives at
    // `sampleRate` frames a second; the tap thread looks once per block's time.
    TapRelay(int blockFrames, Handler handler, int blocks = 64, double sampleRate = 48000);
    ~TapRelay();
    TapRelay(const TapRelay&) = delete;
    TapRelay& operator=(const TapRelay&) = delete;

    // Real-time thread: hands `frames` samples over, all or none.
    void push(const float* mono, int frames) noexcept;

    // Pushes that found no room and were dropped.
    uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    void run();

    int blockFrames_;
    double sampleRate_;
    Handler handler_;
    SpscRing<float> ring_;
    std::vector<float> block_;  // the tap thread's block
    std::atomic<uint64_t> dropped_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace parlova
