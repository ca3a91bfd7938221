#pragma once
// Small-room reverb: a handful of early reflections from a tapped delay line,
// then a late tail from eight parallel damped feedback combs followed by four
// series allpass diffusers, one network per output side (left and right use
// different delay lengths, so the two sides are decorrelated). The comb
// feedback is derived from a 0.4 s decay time at the prepared sample rate.
// The wet/dry mix is in percent: 0 passes the input through bit for bit,
// 100 outputs only the room. Delay lines are made in prepare(); the render path
// does not allocate.
#include "dsp/InPlaceEffectUnit.h"

#include <array>
#include <atomic>
#include <vector>

namespace parlova {

class Reverb : public InPlaceEffectUnit {
public:
    static constexpr int kCombs = 8;
    static constexpr int kAllpasses = 4;
    static constexpr int kEarlyTaps = 6;
    static constexpr int kSides = 2;
    static constexpr double kDecaySeconds = 0.4;

    Reverb() = default;

    // 0..100 (clamped); written from any thread, read once per render call.
    void setWetDryMix(float percent);
    float wetDryMix() const { return mixPercent_.load(std::memory_order_relaxed); }

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    struct DelayLine {
        std::vector<float> buffer;
        int position = 0;
    };
    struct Comb {
        DelayLine line;
        float feedback = 0.0f;
        float damped = 0.0f;  // one-pole low-pass state inside the loop
    };
    struct Side {
        std::array<Comb, kCombs> combs;
        std::array<DelayLine, kAllpasses> allpasses;
        std::array<int, kEarlyTaps> earlyTaps{};
    };

    void clearState() noexcept;
    // Renders the wet left and right of a block of mono input into wet_.
    void renderWet(const float* input, int frames) noexcept;

    std::atomic<float> mixPercent_{0.0f};

    bool prepared_ = false;
    float appliedMix_ = 0.0f;  // render thread: the mix at the end of the last block
    std::array<Side, kSides> sides_;
    DelayLine early_;  // shared input history for the early reflections
    std::vector<float> wet_[kSides];
    std::vector<float> monoIn_;
    std::vector<float> tailIn_[kSides];
    std::vector<float> earlyOut_[kSides];
};

}  // namespace parlova
