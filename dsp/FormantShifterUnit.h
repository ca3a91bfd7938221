#pragma once
// Shifts pitch and, independently, formants; with a target pitch it shifts by
// whatever brings the talker's typical pitch (from the tracker) onto the target.
#include "dsp/InPlaceEffectUnit.h"
#include "dsp/PitchTracker.h"
#include "dsp/shifter/parlova_shifter.h"

#include <atomic>
#include <vector>

namespace parlova {

// How long a block the shifter analyses and how often it advances. The output
// trails the input by one block; a shorter block cuts that delay but resolves
// the harmonics of a low voice less well.
struct ShifterTiming {
    double blockSeconds;
    double intervalSeconds;
    // The standard timing: 60 ms blocks every 15 ms.
    static constexpr ShifterTiming normal() { return {0.06, 0.015}; }
    // The low-delay timing: the shortest block found that keeps pitch and
    // formant shifts on real speech where the standard timing puts them and
    // a 100 Hz talker's voice as periodic. The longer interval matters as
    // much as the block: at a quarter of a short block, shifted low voices
    // turn rough.
    static constexpr ShifterTiming low() { return {0.05, 0.02}; }
    bool operator==(const ShifterTiming&) const = default;
};

class FormantShifterUnit : public InPlaceEffectUnit {
public:
    static constexpr const char* kSubtype = "frmt";
    static constexpr const char* kName = "Formant Shifter";
    // Auto pitch never moves a voice by more than this many semitones.
    static constexpr float kAutoLimit = 14.0f;
    // Formants follow this share of the automatic shift.
    static constexpr float kAutoFormantShare = 0.25f;

    FormantShifterUnit() = default;
    ~FormantShifterUnit() override;

    // Written by the chain's modulation at any time; read once per render.
    std::atomic<float> pitchSemitones{0};
    std::atomic<float> targetHz{0};
    std::atomic<float> vibratoSemitones{0};
    std::atomic<float> formantSemitones{0};
    // Written by the render thread: the tracker's last smoothed pitch, 0 = none yet.
    std::atomic<float> detectedHz{0};

    void deallocateRenderResources() override;

    // When every channel carries the same signal (a mono source fanned out),
    // shift the first channel only and copy it: identical output at half the
    // cost. Takes effect at the next allocateRenderResources().
    void setIdenticalChannels(bool identical) { identicalChannels_ = identical; }
    // Takes effect at the next allocateRenderResources().
    void setTiming(ShifterTiming timing) { timing_ = timing; }
    ShifterTiming timing() const { return timing_; }
    // The delay from input to output, in seconds, as the library reports it
    // once prepared (about one block); before that, one block.
    double latencySeconds() const { return latencySeconds_ > 0 ? latencySeconds_ : timing_.blockSeconds; }

    struct Shift {
        float pitch;
        float formant;
    };
    // The pitch and formant shift for the given settings and detected pitch.
    static Shift shiftFor(float pitchSemitones, float vibratoSemitones, float formantSemitones, float targetHz,
                          float detectedHz);

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    void release();

    bool identicalChannels_ = false;
    ShifterTiming timing_ = ShifterTiming::normal();
    double latencySeconds_ = 0;
    PitchTracker tracker_;
    ParlovaShifter* shifter_ = nullptr;
    std::vector<std::vector<float>> scratch_;
    std::vector<const float*> inputPointers_;
    std::vector<float*> outputPointers_;
};

static_assert(std::atomic<float>::is_always_lock_free);

}  // namespace parlova
