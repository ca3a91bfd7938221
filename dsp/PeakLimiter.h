#pragma once
// Lookahead peak limiter protecting the end of the voice chain. The signal is
// delayed by the lookahead (5 ms) while the gain needed by every sample in that
// window is known in advance, so the gain can glide down before a peak arrives
// (about 1 ms attack) and recover slowly afterwards (80 ms release). The gain
// is linked across channels. Output never exceeds the ceiling of -0.1 dBFS;
// a signal that stays under the ceiling comes out bit-identical, only delayed
// by latencyFrames().
#include "dsp/InPlaceEffectUnit.h"

#include <array>
#include <vector>

namespace parlova {

class PeakLimiter : public InPlaceEffectUnit {
public:
    static constexpr double kLookaheadSeconds = 0.005;
    static constexpr double kAttackSeconds = 0.001;
    static constexpr double kReleaseSeconds = 0.08;
    static constexpr double kReleaseOvershoot = 1.01;
    static constexpr float kCeilingDb = -0.1f;
    static float ceiling();  // linear, 10^(-0.1/20)

    PeakLimiter() = default;

    // Delay of the output against the input, in frames at the prepared rate.
    int latencyFrames() const { return lookahead_; }
    // Current gain reduction factor (1 = none); for meters and tests.
    float currentGain() const { return static_cast<float>(gain_); }

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    int lookahead_ = 0;
    float ceiling_ = 1.0f;
    double attack_ = 0.0;   // one-pole coefficients per sample
    double release_ = 0.0;
    double gain_ = 1.0;

    // Per channel delay lines of `lookahead_` samples, sharing one position.
    std::array<std::vector<float>, kMaxChannels> delay_;
    std::vector<float> required_;  // gain each delayed frame needs, same ring
    int position_ = 0;
    // Sliding minimum of the required gains over the lookahead window: a
    // monotonic queue kept in a fixed ring of lookahead_ + 1 slots.
    std::vector<float> queueValue_;
    std::vector<int64_t> queueIndex_;
    int queueHead_ = 0;
    int queueSize_ = 0;
    int64_t frameIndex_ = 0;
};

}  // namespace parlova
