#include "dsp/FormantShifterUnit.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace parlova {

FormantShifterUnit::~FormantShifterUnit() { release(); }

void FormantShifterUnit::prepare(const AudioFormat& format, int maxFrames) {
    release();
    const int channels = identicalChannels_ ? 1 : std::clamp(format.channels, 1, kMaxChannels);
    shifter_ = parlova_shifter_create_timed(channels, format.sampleRate, timing_.blockSeconds, timing_.intervalSeconds);
    latencySeconds_ = parlova_shifter_latency(shifter_) / format.sampleRate;
    tracker_.reset(format.sampleRate);
    scratch_.assign(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(maxFrames), 0.0f));
    inputPointers_.assign(static_cast<size_t>(channels), nullptr);
    outputPointers_.assign(static_cast<size_t>(channels), nullptr);
}

void FormantShifterUnit::deallocateRenderResources() {
    InPlaceEffectUnit::deallocateRenderResources();
    release();
}

void FormantShifterUnit::release() {
    parlova_shifter_destroy(shifter_);
    shifter_ = nullptr;
    scratch_.clear();
    inputPointers_.clear();
    outputPointers_.clear();
}

FormantShifterUnit::Shift FormantShifterUnit::shiftFor(float pitch, float vibrato, float formant, float target,
                                                       float detected) {
    if (target > 0 && detected > 0) {
        // Auto pitch replaces the voice's fixed shift; only the vibrato rides on top.
        const float autoShift = std::clamp(12.0f * std::log2(target / detected), -kAutoLimit, kAutoLimit);
        return {vibrato + autoShift, formant + kAutoFormantShare * autoShift};
    }
    return {pitch, formant};
}

void FormantShifterUnit::process(BufferList& buffers, int frames) noexcept {
    if (shifter_ == nullptr || inputPointers_.empty() || outputPointers_.empty()) return;
    const int channels = std::min(static_cast<int>(scratch_.size()), buffers.count);
    for (int ch = 0; ch < channels; ++ch) {
        float* copy = scratch_[static_cast<size_t>(ch)].data();
        std::memcpy(copy, buffers.data[ch], static_cast<size_t>(frames) * sizeof(float));
        inputPointers_[static_cast<size_t>(ch)] = copy;
        outputPointers_[static_cast<size_t>(ch)] = buffers.data[ch];
    }
    for (size_t ch = static_cast<size_t>(std::max(channels, 0)); ch < outputPointers_.size(); ++ch) {
        inputPointers_[ch] = nullptr;  // the shim skips channels without buffers
        outputPointers_[ch] = nullptr;
    }
    if (channels <= 0) return;

    tracker_.analyze(scratch_[0].data(), frames);
    const float detected = tracker_.smoothedHz();
    detectedHz.store(detected, std::memory_order_relaxed);

    const Shift shift = shiftFor(pitchSemitones.load(std::memory_order_relaxed),
                                 vibratoSemitones.load(std::memory_order_relaxed),
                                 formantSemitones.load(std::memory_order_relaxed),
                                 targetHz.load(std::memory_order_relaxed), detected);
    parlova_shifter_set(shifter_, shift.pitch, shift.formant);
    parlova_shifter_process(shifter_, inputPointers_.data(), outputPointers_.data(), frames);
    if (identicalChannels_)
        for (int ch = 1; ch < buffers.count; ++ch)
            if (buffers.data[ch] != nullptr)
                std::memcpy(buffers.data[ch], buffers.data[0], static_cast<size_t>(frames) * sizeof(float));
}

}  // namespace parlova
