#pragma once
// Slow, stubborn estimate of a talker's typical fundamental frequency.
//
// The input is box-filter decimated to roughly 12 kHz and kept in a ring of
// 680 samples (a 480-sample window plus lags up to 200). Every 240 decimated
// samples the ring is analysed with a cumulative-mean-normalised difference
// function (integer lags 30..198, absolute threshold 0.15); accepted estimates
// are smoothed in log2(Hz) with a one-pole factor of 0.03. After 11 accepted
// detections, estimates more than 0.8 octave from the smoothed value are
// dropped. The arrays have their final size at construction: nothing is
// allocated afterwards, so analyze() is safe on the render thread.
#include <array>
#include <cstddef>
#include <cstdint>

namespace parlova {

class PitchTracker {
public:
    static constexpr int kWindow = 480;
    static constexpr int kMaxLag = 200;
    static constexpr int kMinLag = 30;
    static constexpr int kRingSize = kWindow + kMaxLag;  // 680
    static constexpr int kHop = 240;

    PitchTracker() = default;

    // Sets the decimation for `sampleRate` (round(sampleRate / 12000), at least 1)
    // and clears the counters and the published estimate.
    void reset(double sampleRate);

    // Consumes a block of mono samples; runs zero or more analyses.
    void analyze(const float* samples, int64_t frames) noexcept;

    // The smoothed estimate in Hz; 0 until the first accepted detection.
    float smoothedHz() const { return smoothedHz_; }

    int64_t decimation() const { return decimation_; }
    int64_t detections() const { return detections_; }
    float logPitch() const { return logPitch_; }
    int64_t filled() const { return filled_; }
    // Normalised difference of the last analysis at `lag` (1..200).
    float difference(int lag) const { return difference_[static_cast<size_t>(lag)]; }

private:
    void detect() noexcept;

    int64_t decimation_ = 4;
    float accumulator_ = 0.0f;
    int64_t accumulated_ = 0;
    std::array<float, kRingSize> ring_{};
    int64_t write_ = 0;
    int64_t filled_ = 0;
    int64_t sinceAnalysis_ = 0;
    std::array<float, kMaxLag + 1> difference_{};
    std::array<float, kRingSize> linear_{};  // the ring in time order, rebuilt by each analysis
    float logPitch_ = 0.0f;
    int64_t detections_ = 0;
    float smoothedHz_ = 0.0f;
};

}  // namespace parlova
