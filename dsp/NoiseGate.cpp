#include "dsp/NoiseGate.h"

#include <algorithm>
#include <cmath>

namespace parlova {

namespace {
float dbToPower(float db) { return std::pow(10.0f, db / 10.0f); }
}  // namespace

void NoiseGate::prepare(double sampleRate, const Timing& timing) {
    delay_.assign(static_cast<size_t>(std::max(0.0, std::round(timing.lookaheadSeconds * sampleRate))), 0.0f);
    detectorCoef_ = static_cast<float>(1.0 - std::exp(-1.0 / std::max(1.0, timing.detectorSeconds * sampleRate)));
    floorGain_ = std::pow(10.0f, timing.floorDb / 20.0f);
    // Linear ramps over the whole range from the floor to full level.
    attackStep_ = (1.0f - floorGain_) / static_cast<float>(std::max(1.0, timing.attackSeconds * sampleRate));
    releaseStep_ = (1.0f - floorGain_) / static_cast<float>(std::max(1.0, timing.releaseSeconds * sampleRate));
    holdFrames_ = static_cast<int>(timing.holdSeconds * sampleRate);
    hysteresisDb_ = timing.hysteresisDb;
    reset();
}

void NoiseGate::reset() noexcept {
    std::fill(delay_.begin(), delay_.end(), 0.0f);
    delayPos_ = 0;
    meanSquare_ = 0;
    gain_ = floorGain_;
    holdLeft_ = 0;
    open_ = false;
}

void NoiseGate::process(float* samples, int frames) noexcept {
    const float threshold = thresholdDb_.load(std::memory_order_relaxed);
    const float openPower = dbToPower(threshold);
    const float closePower = dbToPower(threshold - hysteresisDb_);
    const size_t delayLength = delay_.size();
    for (int i = 0; i < frames; ++i) {
        const float in = samples[i];
        // The detector sees the sample now; the gain is applied to the one
        // that entered lookaheadFrames() ago.
        meanSquare_ += detectorCoef_ * (in * in - meanSquare_);
        if (meanSquare_ > openPower) {
            open_ = true;
            holdLeft_ = holdFrames_;
        } else if (open_ && meanSquare_ < closePower) {
            if (holdLeft_ > 0)
                --holdLeft_;
            else
                open_ = false;
        } else if (open_) {
            holdLeft_ = holdFrames_;
        }
        gain_ = open_ ? std::min(1.0f, gain_ + attackStep_) : std::max(floorGain_, gain_ - releaseStep_);
        float delayed = in;
        if (delayLength > 0) {
            delayed = delay_[delayPos_];
            delay_[delayPos_] = in;
            delayPos_ = delayPos_ + 1 == delayLength ? 0 : delayPos_ + 1;
        }
        samples[i] = delayed * gain_;
    }
}

}  // namespace parlova
