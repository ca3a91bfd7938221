#pragma once
// Four-band tone shaping with fixed band types (RBJ biquads) and a global gain:
//   band 0  high-pass, Butterworth (Q 0.7071)          - the low cut
//   band 1  low shelf (200 Hz in the voice chain)      - body
//   band 2  peaking, bandwidth 1.2 octaves (2400 Hz)   - presence
//   band 3  low-pass, Butterworth (Q 0.7071)           - the high cut
// Settings may be written from any thread at any time (atomics); the render
// thread picks them up once per render call and recomputes coefficients only
// when something changed. A change of the global gain ramps linearly from the
// gain in use to the new one over kGainRampSeconds, so an edit made while audio
// runs does not step. A bypassed band does not touch the signal; with every
// band bypassed and 0 dB global gain (no ramp under way) the output is
// bit-identical to the input.
#include "dsp/GainRamp.h"
#include "dsp/InPlaceEffectUnit.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace parlova {

class Equalizer : public InPlaceEffectUnit {
public:
    static constexpr int kBands = 4;
    enum class BandType { HighPass, LowShelf, Peaking, LowPass };
    static constexpr float kButterworthQ = 0.7071f;
    static constexpr float kPeakingBandwidthOctaves = 1.2f;
    static constexpr double kGainRampSeconds = 0.005;

    struct BandSettings {
        float frequency;
        float gainDb;
        bool bypass;
    };

    Equalizer();

    static BandType bandType(int index);

    // Out-of-range indices are ignored (band() returns a bypassed default).
    void setBand(int index, float frequencyHz, float gainDb, bool bypass);
    BandSettings band(int index) const;

    void setGlobalGain(float dB);
    float globalGain() const { return globalGainDb_.load(std::memory_order_relaxed); }

    // One band's biquad (RBJ cookbook, a0 normalised to 1); also used by
    // other units that need one of these filters.
    struct Coefficients {
        double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    };
    static Coefficients design(BandType type, double sampleRate, float frequency, float gainDb) noexcept;

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    struct State {
        double z1 = 0, z2 = 0;  // transposed direct form II
    };
    struct SharedBand {
        std::atomic<float> frequency;
        std::atomic<float> gainDb;
        std::atomic<bool> bypass;
    };
    struct ActiveBand {
        Coefficients coefficients;
        bool bypass = true;
    };

    void refreshIfChanged() noexcept;

    std::array<SharedBand, kBands> shared_;
    std::atomic<float> globalGainDb_{0.0f};
    std::atomic<uint32_t> version_{1};

    // Render-thread side.
    double sampleRate_ = 48000.0;
    uint32_t appliedVersion_ = 0;
    std::array<ActiveBand, kBands> active_{};
    GainRamp gain_;           // the global gain, linear
    bool gainKnown_ = false;  // false until the first render after prepare(): no ramp into the start
    std::array<std::array<State, kBands>, kMaxChannels> state_{};
};

}  // namespace parlova
