#include "dsp/ClickSuppressor.h"

#include <algorithm>
#include <cmath>

namespace parlova {

namespace {
constexpr float kJump = 5.0f;        // a click is this much louder than the background (7 dB)...
constexpr float kFallBack = 5.0f;    // ...and back under that within the lookahead
constexpr float kSilence = 1e-9f;    // mean square taken as the background of digital silence
constexpr int kRampFrames = 8;       // the gain rises over this many samples after a click
}  // namespace

void ClickSuppressor::prepare(double sampleRate) {
    split_ = Equalizer::design(Equalizer::BandType::HighPass, sampleRate, static_cast<float>(kSplitHz), 0);
    z1_ = z2_ = 0;
    pending_.assign(kLookaheadBlocks + 1, Block{});
    newest_ = -1;
    filled_ = 0;
    history_.fill(0);
    historyPos_ = historyCount_ = 0;
    clickLeft_ = 0;
    clickLevel_ = 0;
    gain_ = 1;
    suppressed_ = 0;
}

void ClickSuppressor::measure(Block& block, const float* in) noexcept {
    float energy = 0;
    for (int i = 0; i < kBlockFrames; ++i) {
        const double x = in[i];
        const double y = split_.b0 * x + z1_;  // transposed direct form II
        z1_ = split_.b1 * x - split_.a1 * y + z2_;
        z2_ = split_.b2 * x - split_.a2 * y;
        block.samples[static_cast<size_t>(i)] = in[i];
        block.high[static_cast<size_t>(i)] = static_cast<float>(y);
        energy += static_cast<float>(y * y);
    }
    block.energy = energy / kBlockFrames;
}

float ClickSuppressor::background() const noexcept {
    float loudest = kSilence;
    for (int i = 0; i < historyCount_; ++i) loudest = std::max(loudest, history_[static_cast<size_t>(i)]);
    return loudest;
}

bool ClickSuppressor::startsClick(int oldest) const noexcept {
    const Block& block = pending_[static_cast<size_t>(oldest)];
    const float level = background();
    if (block.energy <= kJump * level) return false;
    for (int k = 1; k <= kLookaheadBlocks; ++k)
        if (pending_[static_cast<size_t>((oldest + k) % (kLookaheadBlocks + 1))].energy < kFallBack * level) return true;
    return false;
}

float ClickSuppressor::blockGain(const Block& block) const noexcept {
    return block.energy > clickLevel_ ? std::sqrt(clickLevel_ / block.energy) : 1.0f;
}

void ClickSuppressor::process(float* samples, int frames, float* delayedInput) noexcept {
    constexpr int ring = kLookaheadBlocks + 1;
    for (int at = 0; at + kBlockFrames <= frames; at += kBlockFrames) {
        float* out = samples + at;
        newest_ = (newest_ + 1) % ring;
        measure(pending_[static_cast<size_t>(newest_)], out);
        if (filled_ < ring && ++filled_ < ring) {
            std::fill_n(out, kBlockFrames, 0.0f);  // what came before the first sample
            if (delayedInput) std::fill_n(delayedInput + at, kBlockFrames, 0.0f);
            continue;
        }
        const int oldest = (newest_ + 1) % ring;
        const Block& block = pending_[static_cast<size_t>(oldest)];
        if (clickLeft_ == 0 && startsClick(oldest)) {
            clickLevel_ = background();
            // The click lasts until its loudness is back near the background.
            clickLeft_ = 1;
            while (clickLeft_ < ring &&
                   pending_[static_cast<size_t>((oldest + clickLeft_) % ring)].energy >= kFallBack * clickLevel_)
                ++clickLeft_;
        }
        float gain = 1;
        if (clickLeft_ > 0) {
            gain = blockGain(block);
            --clickLeft_;
            ++suppressed_;
        } else {
            history_[static_cast<size_t>(historyPos_)] = block.energy;
            historyPos_ = (historyPos_ + 1) % kHistory;
            historyCount_ = std::min(historyCount_ + 1, kHistory);
        }
        // Into a click the gain drops at once (the click's loudest samples
        // are its first); out of it, it glides back.
        const int ramp = gain > gain_ ? kRampFrames : 0;
        for (int i = 0; i < kBlockFrames; ++i) {
            const float g = i < ramp ? gain_ + (gain - gain_) * static_cast<float>(i + 1) / static_cast<float>(ramp) : gain;
            out[i] = block.samples[static_cast<size_t>(i)] - (1 - g) * block.high[static_cast<size_t>(i)];
        }
        gain_ = gain;
        if (delayedInput) std::copy(block.samples.begin(), block.samples.end(), delayedInput + at);
    }
}

}  // namespace parlova
