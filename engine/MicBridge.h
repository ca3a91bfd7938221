#pragma once
// A mono ring buffer between the microphone's clock and the output's clock.
//
// The capture thread writes whatever the microphone delivers (mixed down to
// mono); the output render thread reads exactly the frames it needs. Reading
// starts only once a cushion of samples has gathered ("primed"), and an
// underrun sends the bridge back to waiting for a full cushion. When more than
// six cushions pile up (the output fell behind, or the microphone's clock runs
// fast) the oldest samples are skipped down to two cushions, which keeps the
// delay bounded without trimming on every small burst.
//
// Lock-free single producer, single consumer. Each side owns one counter of
// samples ever passed through: the writer owns `written_`, the reader owns
// `read_`, and neither ever stores the other's. The writer copies samples into
// the ring, then publishes `written_` with release order; the reader loads it
// with acquire order, so every sample it counts is visible. The reader
// publishes `read_` with release order once it has copied, and the writer
// loads it with acquire order before reusing those slots. The writer never
// waits: when a stalled reader left no room, what does not fit is dropped.
// The reader owns priming and trimming: it notices a backlog and skips ahead
// to the newest two cushions.
#include "dsp/AudioBuffers.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace parlova {

class MicBridge final : public AudioSource {
public:
    static constexpr int kScratchCapacity = 16384;  // most frames one write takes

    // cushionSeconds of 0.02 at 48000 Hz gives a cushion of 960 frames and a
    // ring of max(8 x cushion, 0.5 s) = 24000 frames.
    MicBridge(double sampleRate, double cushionSeconds);
    ~MicBridge() override;
    MicBridge(const MicBridge&) = delete;
    MicBridge& operator=(const MicBridge&) = delete;

    // Writer thread. One interleaved buffer of `channels` channels; each frame
    // is the mean of its channels. At most kScratchCapacity frames are taken.
    void write(const float* interleaved, int channels, int frames) noexcept;
    // Writer thread. Non-interleaved buffers: each frame is the mean of the
    // same frame of every buffer (a single buffer is plain mono).
    void write(const BufferList& buffers, int frames) noexcept;

    // Reader thread. Fills exactly `frames` frames of every buffer of `out`
    // (silence where the bridge is unprimed or runs dry), mono fanned out to
    // every channel. Does nothing when `out` has no first buffer.
    void read(BufferList& out, int frames) noexcept;

    // As an audio source the bridge always succeeds: silence is a valid answer.
    int32_t pull(BufferList& out, int frames) noexcept override {
        read(out, frames);
        return status::ok;
    }

    // Reader thread: forgets everything held and waits for a new cushion.
    void reset() noexcept;

    double sampleRate() const { return sampleRate_; }
    int capacity() const { return capacity_; }
    int cushion() const { return cushion_; }

    // Observers on any thread (approximate while both sides run).
    // Samples waiting to be read, i.e. the delay the bridge adds, in frames.
    int count() const noexcept;
    bool isPrimed() const noexcept { return primed_.load(std::memory_order_relaxed); }
    // Reads that ran dry after the bridge had primed (each re-arms priming).
    uint64_t underruns() const noexcept { return underruns_.load(std::memory_order_relaxed); }
    // Times the backlog was trimmed from above six cushions down to two.
    uint64_t trims() const noexcept { return trims_.load(std::memory_order_relaxed); }

private:
    void append(const float* mono, int frames) noexcept;

    double sampleRate_;
    int capacity_;
    int cushion_;
    std::unique_ptr<float[]> storage_;
    std::unique_ptr<float[]> scratch_;  // writer's mix-down area
    std::atomic<uint64_t> written_{0};  // stored by the writer only
    std::atomic<uint64_t> read_{0};     // stored by the reader only
    std::atomic<bool> primed_{false};   // stored by the reader only
    std::atomic<uint64_t> underruns_{0};
    std::atomic<uint64_t> trims_{0};
};

}  // namespace parlova
