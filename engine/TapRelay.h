#pragma once
// Carries blocks of audio from a real-time thread to a tap thread without
// locks or allocation on the real-time side: the render thread fills fixed
// blocks of a preallocated single-producer/single-consumer ring, the tap thread
// polls it and runs the handler (recording, level metering) off the audio path.
// When the tap thread falls behind, blocks are dropped rather than waited for.
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace parlova {

class TapRelay {
public:
    using Handler = std::function<void(const float* const* channels, int channelCount, int frames)>;

    TapRelay(int channels, int blockFrames, Handler handler, int slots = 64);
    ~TapRelay();
    TapRelay(const TapRelay&) = delete;
    TapRelay& operator=(const TapRelay&) = delete;

    // Real-time thread: appends frames; every full block is handed over.
    void push(const float* const* channels, int frames) noexcept;

    uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    void run();

    int channels_;
    int blockFrames_;
    Handler handler_;
    std::vector<std::vector<float>> slots_;  // slot * channels_ + channel
    int filling_ = 0;                        // frames in the slot being filled
    std::atomic<uint64_t> written_{0};       // completed blocks (producer)
    std::atomic<uint64_t> read_{0};          // handled blocks (consumer)
    std::atomic<uint64_t> dropped_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace parlova
