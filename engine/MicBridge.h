#pragma once
// A mono queue between the microphone's clock and the output's clock.
//
// The capture thread writes whatever the microphone delivers (mixed down to
// mono); the output render thread reads exactly the frames it needs. The
// queue is a CushionedRing: reading starts once a cushion has gathered, an
// underrun waits for a full cushion again, and when more than six cushions
// pile up (the output fell behind, a stall ended, or the microphone's clock
// runs fast) the oldest samples are skipped down to one cushion, the fill the
// route started with, which keeps the delay bounded without trimming on every
// small burst. A smaller backlog that the reader has not needed for
// kSettleSeconds (a burst from the microphone as the route starts, or after a
// stall) is skipped down to a cushion's margin, so it does not stay in the
// delay for the rest of the session. The writer never waits.
#include "dsp/AudioBuffers.h"
#include "dsp/CushionedRing.h"

#include <cstdint>
#include <memory>

namespace parlova {

class MicBridge final : public AudioSource {
public:
    static constexpr int kScratchCapacity = 16384;  // most frames one write takes
    static constexpr double kSettleSeconds = 2.0;

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
    int capacity() const { return static_cast<int>(queue_.capacity()); }
    int cushion() const { return static_cast<int>(queue_.cushion()); }
    // Any thread: a new cushion, from the next read.
    void setCushion(int frames) noexcept { queue_.setCushion(static_cast<size_t>(frames)); }

    // Observers on any thread (approximate while both sides run).
    // Samples waiting to be read, i.e. the delay the bridge adds, in frames.
    int count() const noexcept { return static_cast<int>(queue_.size()); }
    bool isPrimed() const noexcept { return queue_.isPrimed(); }
    // Reads that ran dry after the bridge had primed (each re-arms priming).
    uint64_t underruns() const noexcept { return queue_.underruns(); }
    // Times the backlog was trimmed from above six cushions down to two.
    uint64_t trims() const noexcept { return queue_.trims(); }
    // Times an unneeded backlog was skipped after kSettleSeconds.
    uint64_t settles() const noexcept { return queue_.settles(); }

private:
    double sampleRate_;
    CushionedRing queue_;
    std::unique_ptr<float[]> scratch_;  // writer's mix-down area
};

}  // namespace parlova
