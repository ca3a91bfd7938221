#pragma once
// A noise gate for speech: it lets the signal through while it is louder than
// the threshold and fades it down to a floor once it has stayed below the
// threshold less the hysteresis for the hold time. The detector runs a few
// milliseconds ahead of the signal it gates (lookahead), so the gate is fully
// open when the first syllable arrives instead of cutting its onset.
//
// The output trails the input by lookaheadFrames(). prepare() allocates;
// process() is real-time safe. The threshold may be changed from any thread.
#include <atomic>
#include <vector>

namespace parlova {

class NoiseGate {
public:
    struct Timing {
        double lookaheadSeconds = 0.0025;
        double detectorSeconds = 0.004;  // smoothing of the detector's level
        double attackSeconds = 0.002;    // closed to open
        double holdSeconds = 0.2;        // below the lower threshold before closing
        double releaseSeconds = 0.08;    // open to closed
        float hysteresisDb = 6.0f;
        float floorDb = -60.0f;          // what is left of the signal while closed
    };

    void prepare(double sampleRate, const Timing& timing);
    void prepare(double sampleRate) { prepare(sampleRate, Timing{}); }
    // Back to closed with an empty lookahead.
    void reset() noexcept;

    // Any thread: the level (dBFS) above which the gate opens.
    void setThresholdDb(float db) { thresholdDb_.store(db, std::memory_order_relaxed); }
    float thresholdDb() const { return thresholdDb_.load(std::memory_order_relaxed); }

    int lookaheadFrames() const { return static_cast<int>(delay_.size()); }
    bool isOpen() const { return open_; }

    // Audio thread: gates `frames` samples in place.
    void process(float* samples, int frames) noexcept;

private:
    std::atomic<float> thresholdDb_{-50.0f};
    std::vector<float> delay_;
    size_t delayPos_ = 0;
    float detectorCoef_ = 0, attackStep_ = 0, releaseStep_ = 0, floorGain_ = 0;
    float hysteresisDb_ = 6.0f;
    int holdFrames_ = 0;
    float meanSquare_ = 0, gain_ = 0;
    int holdLeft_ = 0;
    bool open_ = false;
};

}  // namespace parlova
