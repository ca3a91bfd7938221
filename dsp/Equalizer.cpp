#include "dsp/Equalizer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace parlova {

namespace {
constexpr float kDefaultFrequency[Equalizer::kBands] = {20.0f, 200.0f, 2400.0f, 20000.0f};
}

Equalizer::Equalizer() {
    for (int i = 0; i < kBands; ++i) {
        auto& band = shared_[static_cast<size_t>(i)];
        band.frequency.store(kDefaultFrequency[i], std::memory_order_relaxed);
        band.gainDb.store(0.0f, std::memory_order_relaxed);
        band.bypass.store(true, std::memory_order_relaxed);
    }
}

Equalizer::BandType Equalizer::bandType(int index) {
    switch (index) {
        case 0: return BandType::HighPass;
        case 1: return BandType::LowShelf;
        case 2: return BandType::Peaking;
        default: return BandType::LowPass;
    }
}

void Equalizer::setBand(int index, float frequencyHz, float gainDb, bool bypass) {
    if (index < 0 || index >= kBands) return;
    auto& band = shared_[static_cast<size_t>(index)];
    band.frequency.store(frequencyHz, std::memory_order_relaxed);
    band.gainDb.store(gainDb, std::memory_order_relaxed);
    band.bypass.store(bypass, std::memory_order_relaxed);
    version_.fetch_add(1, std::memory_order_release);
}

Equalizer::BandSettings Equalizer::band(int index) const {
    if (index < 0 || index >= kBands) return {0.0f, 0.0f, true};
    const auto& band = shared_[static_cast<size_t>(index)];
    return {band.frequency.load(std::memory_order_relaxed), band.gainDb.load(std::memory_order_relaxed),
            band.bypass.load(std::memory_order_relaxed)};
}

void Equalizer::setGlobalGain(float dB) {
    globalGainDb_.store(dB, std::memory_order_relaxed);
    version_.fetch_add(1, std::memory_order_release);
}

void Equalizer::prepare(const AudioFormat& format, int /*maxFrames*/) {
    sampleRate_ = format.sampleRate > 0.0 ? format.sampleRate : 48000.0;
    for (auto& channel : state_) channel.fill(State{});
    appliedVersion_ = 0;  // force a recompute at the first render
    gain_.prepare(sampleRate_, kGainRampSeconds);
    gainKnown_ = false;
    for (auto& band : active_) band = ActiveBand{};
}

// RBJ audio-EQ cookbook biquads, normalised so that a0 = 1.
Equalizer::Coefficients Equalizer::design(BandType type, double sampleRate, float frequency,
                                          float gainDb) noexcept {
    const double nyquistGuard = 0.49 * sampleRate;
    const double f0 = std::clamp(static_cast<double>(frequency), 1.0, nyquistGuard);
    const double w0 = 2.0 * std::numbers::pi * f0 / sampleRate;
    const double cosw = std::cos(w0), sinw = std::sin(w0);
    const double A = std::pow(10.0, static_cast<double>(gainDb) / 40.0);
    double b0 = 1, b1 = 0, b2 = 0, a0 = 1, a1 = 0, a2 = 0;
    switch (type) {
        case BandType::HighPass: {
            const double alpha = sinw / (2.0 * kButterworthQ);
            b0 = (1.0 + cosw) / 2.0;
            b1 = -(1.0 + cosw);
            b2 = b0;
            a0 = 1.0 + alpha;
            a1 = -2.0 * cosw;
            a2 = 1.0 - alpha;
            break;
        }
        case BandType::LowPass: {
            const double alpha = sinw / (2.0 * kButterworthQ);
            b0 = (1.0 - cosw) / 2.0;
            b1 = 1.0 - cosw;
            b2 = b0;
            a0 = 1.0 + alpha;
            a1 = -2.0 * cosw;
            a2 = 1.0 - alpha;
            break;
        }
        case BandType::LowShelf: {
            // Shelf slope S = 1: the steepest slope without overshoot.
            const double alpha = sinw / 2.0 * std::sqrt(2.0);
            const double twoSqrtAAlpha = 2.0 * std::sqrt(A) * alpha;
            b0 = A * ((A + 1) - (A - 1) * cosw + twoSqrtAAlpha);
            b1 = 2 * A * ((A - 1) - (A + 1) * cosw);
            b2 = A * ((A + 1) - (A - 1) * cosw - twoSqrtAAlpha);
            a0 = (A + 1) + (A - 1) * cosw + twoSqrtAAlpha;
            a1 = -2 * ((A - 1) + (A + 1) * cosw);
            a2 = (A + 1) + (A - 1) * cosw - twoSqrtAAlpha;
            break;
        }
        case BandType::Peaking: {
            const double alpha =
                sinw * std::sinh(std::numbers::ln2 / 2.0 * kPeakingBandwidthOctaves * w0 / sinw);
            b0 = 1.0 + alpha * A;
            b1 = -2.0 * cosw;
            b2 = 1.0 - alpha * A;
            a0 = 1.0 + alpha / A;
            a1 = -2.0 * cosw;
            a2 = 1.0 - alpha / A;
            break;
        }
    }
    return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

void Equalizer::refreshIfChanged() noexcept {
    // The version is read before the settings: a write racing with this read
    // bumps the version again and is picked up at the next render call.
    const uint32_t version = version_.load(std::memory_order_acquire);
    if (version == appliedVersion_) return;
    appliedVersion_ = version;

    for (int i = 0; i < kBands; ++i) {
        const BandSettings settings = band(i);
        auto& active = active_[static_cast<size_t>(i)];
        const bool finite = std::isfinite(settings.frequency) && std::isfinite(settings.gainDb);
        const bool bypass = settings.bypass || !finite;
        if (active.bypass && !bypass) {
            // Coming back from bypass: start from silence, not from a stale tail.
            for (auto& channel : state_) channel[static_cast<size_t>(i)] = State{};
        }
        active.bypass = bypass;
        if (!bypass) active.coefficients = design(bandType(i), sampleRate_, settings.frequency, settings.gainDb);
    }
    const float gainDb = globalGainDb_.load(std::memory_order_relaxed);
    const bool unity = gainDb == 0.0f || !std::isfinite(gainDb);
    const float target = unity ? 1.0f : static_cast<float>(std::pow(10.0, static_cast<double>(gainDb) / 20.0));
    if (!gainKnown_) {
        gainKnown_ = true;
        gain_.jumpTo(target);
    } else {
        gain_.setTarget(target);
    }
}

namespace {
// Flush denormal-range residue so a silent tail costs nothing.
double flushed(double z) { return std::fabs(z) < 1e-30 ? 0.0 : z; }

// One sample through one band, transposed direct form II.
template <typename C>
inline float biquad(const C& c, double x, double& z1, double& z2) {
    const double y = c.b0 * x + z1;
    z1 = c.b1 * x - c.a1 * y + z2;
    z2 = c.b2 * x - c.a2 * y;
    return static_cast<float>(y);
}
}  // namespace

void Equalizer::process(BufferList& buffers, int frames) noexcept {
    refreshIfChanged();
    const int channels = std::min(buffers.count, kMaxChannels);
    // Channels go through the bands two at a time: each filter's recursion
    // waits on its previous sample, so a second, independent one in the same
    // loop runs in the gaps. Each channel's arithmetic is unchanged.
    for (int ch = 0; ch < channels; ch += 2) {
        float* left = buffers.data[ch];
        float* right = ch + 1 < channels ? buffers.data[ch + 1] : nullptr;
        for (int b = 0; b < kBands; ++b) {
            const auto& active = active_[static_cast<size_t>(b)];
            if (active.bypass) continue;
            const Coefficients& c = active.coefficients;
            if (left && right) {
                State& sl = state_[static_cast<size_t>(ch)][static_cast<size_t>(b)];
                State& sr = state_[static_cast<size_t>(ch + 1)][static_cast<size_t>(b)];
                double l1 = sl.z1, l2 = sl.z2, r1 = sr.z1, r2 = sr.z2;
                for (int i = 0; i < frames; ++i) {
                    left[i] = biquad(c, left[i], l1, l2);
                    right[i] = biquad(c, right[i], r1, r2);
                }
                sl = {flushed(l1), flushed(l2)};
                sr = {flushed(r1), flushed(r2)};
                continue;
            }
            for (int side = 0; side < 2; ++side) {
                float* data = side == 0 ? left : right;
                if (data == nullptr) continue;
                State& s = state_[static_cast<size_t>(ch + side)][static_cast<size_t>(b)];
                double z1 = s.z1, z2 = s.z2;
                for (int i = 0; i < frames; ++i) data[i] = biquad(c, data[i], z1, z2);
                s = {flushed(z1), flushed(z2)};
            }
        }
    }
    // Every channel gets the same gain curve.
    gain_.apply(buffers.data, channels, frames);
}

}  // namespace parlova
