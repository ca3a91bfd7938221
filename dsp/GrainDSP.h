#pragma once
// Sample processing of the grain texture: vocal-fry creak (short amplitude
// pulses at 34..62 per second with jittered spacing), a soft tanh saturation
// and a breathy noise that follows the voice's loudness. One control, amount
// (0..1), fades all three in together; at or below 0.001 the block is copied
// through unchanged and the state does not move.
#include "dsp/AudioBuffers.h"

#include <cstdint>

namespace parlova {

class GrainDSP {
public:
    static constexpr uint32_t kInitialSeed = 0x9E3779B9u;

    // Clears the processing state for `sampleRate`; the random seed is kept so
    // the sequence continues across re-preparations.
    void prepare(double sampleRate);

    // Processes `frames` frames of min(inChannels, outChannels) channels.
    // `input` and `output` may be the same buffers (in place).
    void process(const float* const* input, float* const* output, int inChannels, int outChannels,
                 int frames, float amount) noexcept;
    void process(const BufferList& input, BufferList& output, int frames, float amount) noexcept;

    float sampleRate() const { return sampleRate_; }
    float envelope() const { return envelope_; }
    float creakEnvelope() const { return creakEnvelope_; }
    int64_t creakCountdown() const { return creakCountdown_; }
    float noiseState() const { return noiseState_; }
    uint32_t seed() const { return seed_; }
    void setSeed(uint32_t seed) { seed_ = seed; }

private:
    uint32_t nextRandom() noexcept;
    float unitRandom() noexcept;  // [0, 1]

    float sampleRate_ = 48000.0f;
    float envelope_ = 0.0f;
    float creakEnvelope_ = 1.0f;
    int64_t creakCountdown_ = 0;
    float noiseState_ = 0.0f;
    uint32_t seed_ = kInitialSeed;
};

}  // namespace parlova
