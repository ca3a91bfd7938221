#pragma once
// A gain that moves to a new value in a straight line instead of a step, so a
// volume change made while audio runs does not click. A new target starts a
// ramp from wherever the gain is at that moment (mid-ramp too) and arrives
// after the ramp length, however far it goes. Steady at unity, apply() leaves
// the samples untouched.
//
// Threads: the owner's render thread, or any thread before rendering starts.
// Nothing here allocates or locks; a value set from another thread reaches the
// ramp through the owner's own atomic, read once per block.
#include <algorithm>
#include <cmath>

namespace parlova {

class GainRamp {
public:
    // Ramps last `seconds` at `sampleRate` (at least one frame). Any ramp under
    // way ends at its target.
    void prepare(double sampleRate, double seconds) noexcept {
        rampFrames_ = std::max(1, static_cast<int>(std::lround(seconds * sampleRate)));
        jumpTo(target_);
    }

    // Ramps to `target` over the prepared length, or over `frames` frames.
    // The target already in force changes nothing.
    void setTarget(float target) noexcept { setTarget(target, rampFrames_); }
    void setTarget(float target, int frames) noexcept {
        if (target == target_) return;
        target_ = target;
        left_ = std::max(1, frames);
        step_ = (target_ - current_) / static_cast<float>(left_);
    }

    // Sets the gain at once, with no ramp.
    void jumpTo(float gain) noexcept {
        current_ = target_ = gain;
        step_ = 0.0f;
        left_ = 0;
    }

    float current() const noexcept { return current_; }
    float target() const noexcept { return target_; }
    bool isSteady() const noexcept { return left_ == 0; }

    // Scales `frames` samples by the gain and moves the ramp on.
    void apply(float* data, int frames) noexcept { apply(&data, 1, frames); }
    // Scales `count` channels (null ones are skipped) by the same curve, then
    // moves the ramp on once.
    void apply(float* const* channels, int count, int frames) noexcept {
        if (frames <= 0) return;
        const int ramped = std::min(left_, frames);
        for (int c = 0; c < count; ++c) {
            float* data = channels[c];
            if (data == nullptr) continue;
            for (int i = 0; i < ramped; ++i) data[i] *= current_ + step_ * static_cast<float>(i + 1);
            if (target_ == 1.0f) continue;  // unity after the ramp: leave the samples untouched
            for (int i = ramped; i < frames; ++i) data[i] *= target_;
        }
        left_ -= ramped;
        current_ = left_ > 0 ? current_ + step_ * static_cast<float>(ramped) : target_;
    }

private:
    float current_ = 1.0f, target_ = 1.0f, step_ = 0.0f;
    int left_ = 0;        // frames until the target is reached
    int rampFrames_ = 1;
};

}  // namespace parlova
