#pragma once
// A noise gate for speech, behind a denoiser. The detector measures the level
// in 1 ms blocks and opens only for sound that lasts: at least half of the
// last 20 ms above the threshold in the denoised signal, and as long standing
// out of the room's noise floor in the signal as it was before denoising
// (where a key click is still a few milliseconds long; denoising smears it
// over tens). Speech does both within a syllable; a key click, a knock or a
// mouse button does not. Once open it stays open while lasting sound goes on
// above the threshold less the hysteresis, and for the hold time after, then
// fades down to a floor.
//
// The gate does not touch the audio itself: it gives the gain for every
// sample, decided lookaheadFrames() later than the sample arrived, so the
// gain has already risen when the first syllable is played. The caller
// applies the gains where the audio is that much later anyway (behind the
// voice stage's own delay).
//
// prepare() allocates; analyse() is real-time safe. The threshold may be
// changed from any thread.
#include <atomic>
#include <vector>

namespace parlova {

class NoiseGate {
public:
    struct Timing {
        double blockSeconds = 0.001;
        int windowBlocks = 20;       // the detector's memory
        int openBlocks = 10;         // blocks above the threshold in the window to open
        double lookaheadSeconds = 0.03;  // leaves room for a stage delay known only roughly
        double attackSeconds = 0.005;  // closed to open
        double holdSeconds = 0.2;      // sound below the lower threshold before closing
        double releaseSeconds = 0.08;  // open to closed
        float hysteresisDb = 6.0f;
        float aboveRoomDb = 6.0f;      // how far lasting sound stands out of the room's noise
        float roomRiseDbPerSecond = 20.0f;  // how fast the noise floor follows a louder room
        float floorDb = -60.0f;        // what is left of the signal while closed
    };

    void prepare(double sampleRate, const Timing& timing);
    void prepare(double sampleRate) { prepare(sampleRate, Timing{}); }
    // Back to closed, with an empty detector.
    void reset() noexcept;

    // Any thread: the level (dBFS) above which the gate opens.
    void setThresholdDb(float db) { thresholdDb_.store(db, std::memory_order_relaxed); }

    int lookaheadFrames() const { return lookahead_; }
    float floorGain() const { return floorGain_; }
    bool isOpen() const { return open_; }

    // Audio thread: takes `frames` samples, denoised (`in`) and as they were
    // before (`raw`, the same samples; null when there was no denoiser), and
    // writes one gain per sample into `gains`; gains[i] belongs to the sample
    // lookaheadFrames() before in[i].
    void analyse(const float* in, const float* raw, float* gains, int frames) noexcept;

private:
    void endBlock() noexcept;

    std::atomic<float> thresholdDb_{-45.0f};
    int blockFrames_ = 48, windowBlocks_ = 20, openBlocks_ = 10, holdBlocks_ = 200, lookahead_ = 0;
    float attackStep_ = 0, releaseStep_ = 0, floorGain_ = 0, hysteresisDb_ = 6.0f;
    float aboveRoomDb_ = 6.0f, roomRisePerBlock_ = 0;
    // The detector: energies of the block being measured, the room's noise
    // floor (dB, before denoising) and the last window's verdicts.
    float blockEnergy_ = 0, rawEnergy_ = 0, roomDb_ = 0;
    bool roomKnown_ = false;
    std::vector<float> rawWindow_;  // the last window's block levels before denoising, and their sum
    double rawWindowSum_ = 0;
    long rawBlocks_ = 0;
    int blockFill_ = 0;
    std::vector<unsigned char> aboveOpen_, aboveClose_, aboveRoom_;
    int windowPos_ = 0, countOpen_ = 0, countClose_ = 0, countRoom_ = 0;
    int holdLeft_ = 0;
    bool open_ = false;
    float gain_ = 0;
};

}  // namespace parlova
