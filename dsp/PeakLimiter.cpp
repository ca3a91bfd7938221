#include "dsp/PeakLimiter.h"

#include <algorithm>
#include <cmath>

namespace parlova {

float PeakLimiter::ceiling() {
    static const float value = static_cast<float>(std::pow(10.0, kCeilingDb / 20.0));
    return value;
}

void PeakLimiter::prepare(const AudioFormat& format, int /*maxFrames*/) {
    const double rate = format.sampleRate > 0.0 ? format.sampleRate : 48000.0;
    lookahead_ = std::max(1, static_cast<int>(std::lround(kLookaheadSeconds * rate)));
    ceiling_ = ceiling();
    attack_ = std::exp(-1.0 / (kAttackSeconds * rate));
    release_ = std::exp(-1.0 / (kReleaseSeconds * rate));
    gain_ = 1.0;
    for (auto& line : delay_) line.assign(static_cast<size_t>(lookahead_), 0.0f);
    required_.assign(static_cast<size_t>(lookahead_), 1.0f);
    position_ = 0;
    queueValue_.assign(static_cast<size_t>(lookahead_ + 1), 1.0f);
    queueIndex_.assign(static_cast<size_t>(lookahead_ + 1), 0);
    queueHead_ = 0;
    queueSize_ = 0;
    frameIndex_ = 0;
}

void PeakLimiter::process(BufferList& buffers, int frames) noexcept {
    if (lookahead_ == 0) return;  // not prepared: pass through
    const int channels = std::min(buffers.count, kMaxChannels);
    const int capacity = lookahead_ + 1;

    for (int i = 0; i < frames; ++i) {
        // Peak of the incoming frame across channels (linked gain).
        float peak = 0.0f;
        for (int ch = 0; ch < channels; ++ch) {
            float* data = buffers.data[ch];
            if (data == nullptr) continue;
            if (!std::isfinite(data[i])) data[i] = 0.0f;  // never pass NaN or infinity on
            peak = std::max(peak, std::fabs(data[i]));
        }
        const float need = peak > ceiling_ ? ceiling_ / peak : 1.0f;

        // Push into the sliding minimum; drop entries that can never be the minimum.
        while (queueSize_ > 0) {
            const int back = (queueHead_ + queueSize_ - 1) % capacity;
            if (queueValue_[static_cast<size_t>(back)] < need) break;
            --queueSize_;
        }
        const int slot = (queueHead_ + queueSize_) % capacity;
        queueValue_[static_cast<size_t>(slot)] = need;
        queueIndex_[static_cast<size_t>(slot)] = frameIndex_;
        ++queueSize_;
        // The window is this frame and the lookahead_ frames still in the delay.
        while (queueIndex_[static_cast<size_t>(queueHead_)] < frameIndex_ - lookahead_) {
            queueHead_ = (queueHead_ + 1) % capacity;
            --queueSize_;
        }
        ++frameIndex_;
        const double target = queueValue_[static_cast<size_t>(queueHead_)];

        // Glide towards the window's minimum: fast down, slow up. The release
        // aims 1% past its target and stops there, so it lands exactly (and a
        // quiet signal is again passed bit for bit) instead of creeping forever.
        if (target < gain_) {
            gain_ = target + (gain_ - target) * attack_;
        } else if (gain_ < target) {
            const double aim = target * kReleaseOvershoot;
            gain_ = std::min(target, aim + (gain_ - aim) * release_);
        }

        // The frame leaving the delay gets at most the gain it needs itself.
        const float outgoingNeed = required_[static_cast<size_t>(position_)];
        required_[static_cast<size_t>(position_)] = need;
        const float g = std::min(static_cast<float>(gain_), outgoingNeed);
        for (int ch = 0; ch < channels; ++ch) {
            float* data = buffers.data[ch];
            if (data == nullptr) continue;
            float& stored = delay_[static_cast<size_t>(ch)][static_cast<size_t>(position_)];
            const float out = stored;
            stored = data[i];
            float y = g == 1.0f ? out : out * g;
            if (std::fabs(y) > ceiling_) y = std::copysign(ceiling_, y);  // rounding guard
            data[i] = y;
        }
        if (++position_ == lookahead_) position_ = 0;
    }
}

}  // namespace parlova
