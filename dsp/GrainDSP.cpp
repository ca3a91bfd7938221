#include "dsp/GrainDSP.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace parlova {

void GrainDSP::prepare(double sampleRate) {
    sampleRate_ = static_cast<float>(sampleRate);
    envelope_ = 0.0f;
    creakEnvelope_ = 1.0f;
    creakCountdown_ = 0;
    noiseState_ = 0.0f;
}

// xorshift32: cheap, deterministic and allocation-free.
uint32_t GrainDSP::nextRandom() noexcept {
    seed_ ^= seed_ << 13;
    seed_ ^= seed_ >> 17;
    seed_ ^= seed_ << 5;
    return seed_;
}

float GrainDSP::unitRandom() noexcept {
    return static_cast<float>(nextRandom()) * (1.0f / 4294967296.0f);
}

void GrainDSP::process(const BufferList& input, BufferList& output, int frames, float amount) noexcept {
    process(input.data, output.data, input.count, output.count, frames, amount);
}

void GrainDSP::process(const float* const* input, float* const* output, int inChannels, int outChannels,
                       int frames, float amount) noexcept {
    const int channels = std::max(0, std::min(inChannels, outChannels));
    if (frames <= 0) return;

    float a = amount;
    if (!(a > 0.0f) || std::min(a, 1.0f) <= 0.001f) {
        for (int ch = 0; ch < channels; ++ch) {
            if (input[ch] != output[ch] && input[ch] != nullptr && output[ch] != nullptr)
                std::memcpy(output[ch], input[ch], static_cast<size_t>(frames) * sizeof(float));
        }
        return;
    }
    a = std::min(a, 1.0f);

    const float sr = sampleRate_;
    const float creakDecay = std::exp(-1.0f / (sr * 0.0035f));
    const float attack = std::exp(-1.0f / (sr * 0.002f));
    const float release = std::exp(-1.0f / (sr * 0.04f));
    const float drive = 1.0f + 7.0f * a;
    const float normaliser = 1.0f / std::tanh(drive);
    const float dryWeight = 1.0f - 0.55f * a;
    const float shapedWeight = 0.55f * a;
    const float gateDepth = 0.8f * a;
    const float noiseWeight = 0.5f * a;
    const float outputScale = 1.0f / (1.0f + 0.15f * a);
    const float channelDivisor = static_cast<float>(std::max(channels, 1));

    for (int i = 0; i < frames; ++i) {
        float sum = 0.0f;
        for (int ch = 0; ch < channels; ++ch) sum += input[ch][i];
        const float level = std::fabs(sum / channelDivisor);

        const float k = level > envelope_ ? attack : release;
        envelope_ += (level - envelope_) * (1.0f - k);

        if (creakCountdown_ < 1) {
            creakEnvelope_ = 1.0f;
            const float r1 = unitRandom();
            const float r2 = unitRandom();
            const float rate = (2.0f * r1 - 1.0f) * 14.0f + 48.0f;  // 34..62 Hz
            const float jitter = (2.0f * r2 - 1.0f) * 0.3f + 1.0f;  // 0.7..1.3
            creakCountdown_ = static_cast<int64_t>(sr / rate * jitter);
        }
        creakCountdown_ -= 1;
        creakEnvelope_ *= creakDecay;

        const float r3 = unitRandom();
        noiseState_ += ((2.0f * r3 - 1.0f) - noiseState_) * 0.45f;

        const float gate = 1.0f - gateDepth * (1.0f - creakEnvelope_);
        const float breath = gate * noiseWeight * envelope_ * noiseState_ * 2.2f;
        for (int ch = 0; ch < channels; ++ch) {
            const float x = input[ch][i];
            output[ch][i] = outputScale * (breath + gate * (dryWeight * x + shapedWeight * normaliser * std::tanh(drive * x)));
        }
    }
}

}  // namespace parlova
