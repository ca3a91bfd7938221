#include "dsp/Reverb.h"

#include <algorithm>
#include <cmath>

namespace parlova {

namespace {
// Tunings in samples at 44.1 kHz, scaled to the prepared rate. The comb lengths
// (18 to 29 ms) are mutually prime so their echoes do not pile up; the right
// side uses its own set for a decorrelated stereo image.
constexpr int kCombTuning[2][Reverb::kCombs] = {
    {797, 863, 929, 1009, 1063, 1129, 1201, 1277},
    {821, 887, 953, 1031, 1091, 1151, 1223, 1297},
};
constexpr int kAllpassTuning[2][Reverb::kAllpasses] = {
    {139, 263, 379, 487},
    {151, 271, 389, 503},
};
// Early reflections: delay in samples at 44.1 kHz (3 to 23 ms) and gain.
constexpr int kEarlyTuning[2][Reverb::kEarlyTaps] = {
    {131, 307, 479, 661, 829, 1013},
    {173, 353, 523, 701, 877, 997},
};
constexpr float kEarlyGain[Reverb::kEarlyTaps] = {0.55f, 0.42f, 0.35f, 0.27f, 0.21f, 0.16f};
constexpr double kTuningRate = 44100.0;
constexpr float kAllpassFeedback = 0.5f;
constexpr float kDamping = 0.3f;        // share of the low-pass in each comb loop
constexpr float kTailInputGain = 0.05f; // keeps the wet level near the dry level
constexpr float kEarlyLevel = 0.35f;

int scaled(int samples, double sampleRate) {
    return std::max(1, static_cast<int>(std::lround(samples * sampleRate / kTuningRate)));
}
}  // namespace

void Reverb::setWetDryMix(float percent) {
    if (!std::isfinite(percent)) percent = 0.0f;
    mixPercent_.store(std::clamp(percent, 0.0f, 100.0f), std::memory_order_relaxed);
}

void Reverb::prepare(const AudioFormat& format, int maxFrames) {
    const double rate = format.sampleRate > 0.0 ? format.sampleRate : 48000.0;
    int longestEarly = 1;
    for (int s = 0; s < kSides; ++s) {
        Side& side = sides_[static_cast<size_t>(s)];
        for (int c = 0; c < kCombs; ++c) {
            Comb& comb = side.combs[static_cast<size_t>(c)];
            const int length = scaled(kCombTuning[s][c], rate);
            comb.line.buffer.assign(static_cast<size_t>(length), 0.0f);
            // Each pass through the loop loses 60 dB * length / (decay * rate).
            comb.feedback = static_cast<float>(std::pow(10.0, -3.0 * length / (kDecaySeconds * rate)));
        }
        for (int a = 0; a < kAllpasses; ++a)
            side.allpasses[static_cast<size_t>(a)].buffer.assign(static_cast<size_t>(scaled(kAllpassTuning[s][a], rate)), 0.0f);
        for (int t = 0; t < kEarlyTaps; ++t) {
            side.earlyTaps[static_cast<size_t>(t)] = scaled(kEarlyTuning[s][t], rate);
            longestEarly = std::max(longestEarly, side.earlyTaps[static_cast<size_t>(t)]);
        }
        wet_[s].assign(static_cast<size_t>(std::max(maxFrames, 1)), 0.0f);
        tailIn_[s].assign(static_cast<size_t>(std::max(maxFrames, 1)), 0.0f);
        earlyOut_[s].assign(static_cast<size_t>(std::max(maxFrames, 1)), 0.0f);
    }
    monoIn_.assign(static_cast<size_t>(std::max(maxFrames, 1)), 0.0f);
    early_.buffer.assign(static_cast<size_t>(longestEarly + std::max(maxFrames, 1)), 0.0f);
    clearState();
    appliedMix_ = mixPercent_.load(std::memory_order_relaxed) / 100.0f;
    prepared_ = true;
}

void Reverb::clearState() noexcept {
    for (Side& side : sides_) {
        for (Comb& comb : side.combs) {
            std::fill(comb.line.buffer.begin(), comb.line.buffer.end(), 0.0f);
            comb.line.position = 0;
            comb.damped = 0.0f;
        }
        for (DelayLine& line : side.allpasses) {
            std::fill(line.buffer.begin(), line.buffer.end(), 0.0f);
            line.position = 0;
        }
    }
    std::fill(early_.buffer.begin(), early_.buffer.end(), 0.0f);
    early_.position = 0;
}

void Reverb::renderWet(const float* input, int frames) noexcept {
    // Early reflections over the shared input history. The block goes into
    // the history first (it holds the longest tap plus a whole block, so
    // nothing a tap still needs is overwritten), then each tap adds its
    // delayed copy over the block in stretches that end where the history
    // wraps, tap by tap in the same order a sample-by-sample sum takes.
    const int historySize = static_cast<int>(early_.buffer.size());
    const int first = early_.position;
    for (int i = 0; i < frames;) {
        const int run = std::min(frames - i, historySize - early_.position);
        std::copy_n(input + i, run, early_.buffer.data() + early_.position);
        i += run;
        early_.position += run;
        if (early_.position == historySize) early_.position = 0;
    }
    for (int s = 0; s < kSides; ++s) {
        const Side& side = sides_[static_cast<size_t>(s)];
        float* early = earlyOut_[s].data();
        std::fill_n(early, frames, 0.0f);
        for (int t = 0; t < kEarlyTaps; ++t) {
            const float gain = kEarlyGain[t];
            int at = first - side.earlyTaps[static_cast<size_t>(t)];
            if (at < 0) at += historySize;
            for (int i = 0; i < frames;) {
                const int run = std::min(frames - i, historySize - at);
                const float* from = early_.buffer.data() + at;
                for (int k = 0; k < run; ++k) early[i + k] += gain * from[k];
                i += run;
                at += run;
                if (at == historySize) at = 0;
            }
        }
        float* feed = tailIn_[s].data();
        for (int i = 0; i < frames; ++i) feed[i] = (input[i] + early[i] * 0.5f) * kTailInputGain;
    }

    // The tail, two comb lines at a time over the whole block, in stretches
    // that end where a line wraps: the lines' states stay in registers, the
    // two recursions overlap, and no sample pays for a wrap test. Every sample
    // still sees the same arithmetic in the same order (comb by comb into the
    // sum) as a sample-by-sample loop would give it.
    static_assert(kCombs % 2 == 0);
    for (int s = 0; s < kSides; ++s) {
        Side& side = sides_[static_cast<size_t>(s)];
        float* tail = wet_[s].data();
        const float* feed = tailIn_[s].data();
        std::fill_n(tail, frames, 0.0f);
        for (int c = 0; c < kCombs; c += 2) {
            Comb& a = side.combs[static_cast<size_t>(c)];
            Comb& b = side.combs[static_cast<size_t>(c + 1)];
            float* lineA = a.line.buffer.data();
            float* lineB = b.line.buffer.data();
            const int lengthA = static_cast<int>(a.line.buffer.size());
            const int lengthB = static_cast<int>(b.line.buffer.size());
            int posA = a.line.position, posB = b.line.position;
            float dampedA = a.damped, dampedB = b.damped;
            const float feedbackA = a.feedback, feedbackB = b.feedback;
            for (int i = 0; i < frames;) {
                const int run = std::min({frames - i, lengthA - posA, lengthB - posB});
                float* la = lineA + posA;
                float* lb = lineB + posB;
                for (int k = 0; k < run; ++k) {
                    const float delayedA = la[k];
                    const float delayedB = lb[k];
                    dampedA = delayedA * (1.0f - kDamping) + dampedA * kDamping;
                    dampedB = delayedB * (1.0f - kDamping) + dampedB * kDamping;
                    la[k] = feed[i + k] + dampedA * feedbackA;
                    lb[k] = feed[i + k] + dampedB * feedbackB;
                    tail[i + k] = (tail[i + k] + delayedA) + delayedB;
                }
                i += run;
                posA += run;
                posB += run;
                if (posA == lengthA) posA = 0;
                if (posB == lengthB) posB = 0;
            }
            a.line.position = posA;
            b.line.position = posB;
            a.damped = dampedA;
            b.damped = dampedB;
        }
        for (DelayLine& allpass : side.allpasses) {
            float* line = allpass.buffer.data();
            const int length = static_cast<int>(allpass.buffer.size());
            int position = allpass.position;
            for (int i = 0; i < frames;) {
                const int run = std::min(frames - i, length - position);
                float* l = line + position;
                for (int k = 0; k < run; ++k) {
                    const float delayed = l[k];
                    l[k] = tail[i + k] + delayed * kAllpassFeedback;
                    tail[i + k] = delayed - tail[i + k];
                }
                i += run;
                position += run;
                if (position == length) position = 0;
            }
            allpass.position = position;
        }
        const float* early = earlyOut_[s].data();
        for (int i = 0; i < frames; ++i) tail[i] += early[i] * kEarlyLevel;
    }
}

void Reverb::process(BufferList& buffers, int frames) noexcept {
    const float target = mixPercent_.load(std::memory_order_relaxed) / 100.0f;
    const float start = appliedMix_;
    appliedMix_ = target;
    if (!prepared_ || frames <= 0 || frames > static_cast<int>(wet_[0].size())) return;
    if (start == 0.0f && target == 0.0f) return;  // dry only: leave the input untouched
    if (start == 0.0f) clearState();              // a fresh room, not a stale tail

    const int channels = std::min(buffers.count, kMaxChannels);
    int present = 0;
    for (int ch = 0; ch < channels; ++ch) present += buffers.data[ch] != nullptr ? 1 : 0;
    if (present == 0) return;

    float* mono = monoIn_.data();
    for (int i = 0; i < frames; ++i) {
        float sum = 0.0f;
        for (int ch = 0; ch < channels; ++ch)
            if (buffers.data[ch] != nullptr) sum += buffers.data[ch][i];
        mono[i] = sum / static_cast<float>(present);
    }
    renderWet(mono, frames);
    const float* wetLeft = wet_[0].data();
    const float* wetRight = wet_[1].data();

    // The mix glides from the last block's value to the new one over the block.
    const float step = (target - start) / static_cast<float>(frames);
    for (int ch = 0; ch < channels; ++ch) {
        float* data = buffers.data[ch];
        if (data == nullptr) continue;
        const float* wet = (ch % 2 == 0) ? wetLeft : wetRight;
        for (int i = 0; i < frames; ++i) {
            const float mix = i + 1 == frames ? target : start + step * static_cast<float>(i + 1);
            data[i] = data[i] * (1.0f - mix) + wet[i] * mix;
        }
    }
}

}  // namespace parlova
