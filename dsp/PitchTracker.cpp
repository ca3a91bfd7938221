#include "dsp/PitchTracker.h"

#include <algorithm>
#include <cmath>

namespace parlova {

namespace {
constexpr float kEnergyGate = 0.00001f;
constexpr float kThreshold = 0.15f;
constexpr float kSmoothing = 0.03f;
constexpr float kOutlierOctaves = 0.8f;
constexpr int64_t kGateAfterDetections = 11;
// Lags are converted with the nominal analysis rate even where the real one
// (sampleRate / decimation) differs; at 44.1 kHz this reads about 8.8% high.
constexpr float kNominalRate = 12000.0f;
}  // namespace

void PitchTracker::reset(double sampleRate) {
    decimation_ = std::max<int64_t>(1, static_cast<int64_t>(std::llround(sampleRate / 12000.0)));
    accumulator_ = 0.0f;
    accumulated_ = 0;
    write_ = 0;
    filled_ = 0;
    sinceAnalysis_ = 0;
    detections_ = 0;
    smoothedHz_ = 0.0f;
    // ring_, difference_ and logPitch_ keep their contents: filled_ = 0 blocks
    // analysis until the ring is refilled, and the first detection overwrites
    // logPitch_.
}

void PitchTracker::analyze(const float* samples, int64_t frames) noexcept {
    if (samples == nullptr) return;
    for (int64_t n = 0; n < frames; ++n) {
        accumulator_ += samples[n];
        accumulated_ += 1;
        if (accumulated_ != decimation_) continue;

        ring_[static_cast<size_t>(write_)] = accumulator_ / static_cast<float>(accumulated_);
        write_ = (write_ + 1) % kRingSize;
        filled_ = std::min<int64_t>(filled_ + 1, kRingSize);
        accumulator_ = 0.0f;
        accumulated_ = 0;

        sinceAnalysis_ += 1;
        if (sinceAnalysis_ >= kHop && filled_ == kRingSize) {
            sinceAnalysis_ = 0;
            detect();
        }
    }
}

void PitchTracker::detect() noexcept {
    // ring_[write_] is the oldest sample. Unroll the ring into time order once,
    // so the difference loops below run over contiguous memory and vectorise.
    const auto oldest = static_cast<size_t>(write_);
    std::copy(ring_.begin() + static_cast<std::ptrdiff_t>(oldest), ring_.end(), linear_.begin());
    std::copy(ring_.begin(), ring_.begin() + static_cast<std::ptrdiff_t>(oldest),
              linear_.begin() + static_cast<std::ptrdiff_t>(kRingSize - oldest));
    const float* x = linear_.data();

    float energy = 0.0f;
    for (int i = 0; i < kWindow; ++i) energy += x[i] * x[i];
    if (!(energy / static_cast<float>(kWindow) > kEnergyGate)) return;

    float runningSum = 0.0f;
    int candidate = 0;
    bool searching = true;
    for (int lag = 1; lag <= kMaxLag; ++lag) {
        // Eight interleaved partial sums: independent lanes the compiler can
        // keep in one vector register (the window is a multiple of eight).
        float lanes[8] = {};
        const float* y = x + lag;
        for (int i = 0; i < kWindow; i += 8)
            for (int k = 0; k < 8; ++k) {
                const float diff = x[i + k] - y[i + k];
                lanes[k] += diff * diff;
            }
        const float d = ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + ((lanes[4] + lanes[5]) + (lanes[6] + lanes[7]));
        runningSum += d;
        difference_[static_cast<size_t>(lag)] =
            runningSum > 0.0f ? d * static_cast<float>(lag) / runningSum : 1.0f;

        // Look back one lag: a dip under the threshold that has stopped falling.
        if (searching && lag >= kMinLag + 1) {
            const float previous = difference_[static_cast<size_t>(lag - 1)];
            if (previous < kThreshold) {
                if (previous < difference_[static_cast<size_t>(lag)]) {
                    candidate = lag - 1;
                    searching = false;
                }
            } else if (lag == kMaxLag) {
                searching = false;
            }
        }
    }
    if (candidate < kMinLag) return;

    const float estimate = std::log2(kNominalRate / static_cast<float>(candidate));
    if (detections_ >= kGateAfterDetections && std::fabs(estimate - logPitch_) > kOutlierOctaves)
        return;

    detections_ += 1;
    if (detections_ == 1)
        logPitch_ = estimate;
    else
        logPitch_ += (estimate - logPitch_) * kSmoothing;
    smoothedHz_ = std::exp2(logPitch_);
}

}  // namespace parlova
