#include "support/Analysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace parlova::analysis {

namespace {

constexpr double kPi = std::numbers::pi;

void fft(std::vector<std::complex<double>>& a, bool inverse) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const double angle = 2 * kPi / static_cast<double>(len) * (inverse ? 1 : -1);
        const std::complex<double> step(std::cos(angle), std::sin(angle));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w(1);
            for (size_t k = 0; k < len / 2; ++k, w *= step) {
                const auto u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
        }
    }
    if (inverse)
        for (auto& x : a) x /= static_cast<double>(n);
}

// Two-pole resonator applied in place.
void resonate(std::vector<double>& x, double hz, double bandwidth, double rate) {
    const double r = std::exp(-kPi * bandwidth / rate);
    const double a1 = 2 * r * std::cos(2 * kPi * hz / rate), a2 = -r * r;
    double y1 = 0, y2 = 0;
    for (double& s : x) {
        const double y = (1 - r) * s + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        s = y;
    }
}

}  // namespace

std::vector<float> sawtooth(double hz, double seconds, double sampleRate, float amplitude, bool withFormants) {
    const size_t n = static_cast<size_t>(seconds * sampleRate);
    std::vector<double> x(n, 0.0);
    const int harmonics = static_cast<int>(0.45 * sampleRate / hz);
    for (int k = 1; k <= harmonics; ++k) {
        const double w = 2 * kPi * hz * k / sampleRate;
        for (size_t i = 0; i < n; ++i) x[i] += std::sin(w * static_cast<double>(i)) / k;
    }
    if (withFormants)
        for (auto [f, bw] : {std::pair{600.0, 90.0}, {1400.0, 120.0}, {2600.0, 160.0}}) resonate(x, f, bw, sampleRate);
    double peak = 1e-12;
    for (double s : x) peak = std::max(peak, std::fabs(s));
    std::vector<float> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<float>(x[i] / peak * amplitude);
    return out;
}

double fundamental(const std::vector<float>& s, double rate, size_t from, size_t count, double minHz, double maxHz) {
    const size_t maxLag = static_cast<size_t>(rate / minHz) + 2, minLag = static_cast<size_t>(rate / maxHz);
    count = std::min(count, s.size() - from - maxLag);
    std::vector<double> d(maxLag + 1, 0.0);
    for (size_t lag = 1; lag <= maxLag; ++lag) {
        double sum = 0;
        for (size_t i = from; i < from + count; ++i) {
            const double diff = static_cast<double>(s[i]) - s[i + lag];
            sum += diff * diff;
        }
        d[lag] = sum;
    }
    // Cumulative-mean normalisation, then the first clear dip.
    std::vector<double> nd(maxLag + 1, 1.0);
    double running = 0;
    for (size_t lag = 1; lag <= maxLag; ++lag) {
        running += d[lag];
        nd[lag] = running > 0 ? d[lag] * static_cast<double>(lag) / running : 1;
    }
    size_t best = std::max<size_t>(minLag, 2);
    for (size_t lag = best; lag < maxLag; ++lag) {
        if (nd[lag] < 0.2 && nd[lag] <= nd[lag - 1] && nd[lag] <= nd[lag + 1]) {
            best = lag;
            break;
        }
        if (nd[lag] < nd[best]) best = lag;
    }
    const double a = nd[best - 1], b = nd[best], c = nd[best + 1];
    const double denom = a - 2 * b + c;
    const double offset = denom != 0 ? 0.5 * (a - c) / denom : 0;
    return rate / (static_cast<double>(best) + offset);
}

double cents(double hz, double reference) { return 1200.0 * std::log2(hz / reference); }

std::vector<double> envelope(const std::vector<float>& s, double rate, size_t from, size_t count, double loHz,
                             double hiHz, int bins) {
    constexpr size_t n = 4096;
    std::vector<double> logSpectrum(n / 2 + 1, 0.0);
    int frames = 0;
    for (size_t start = from; start + n <= std::min(s.size(), from + count); start += n / 2, ++frames) {
        std::vector<std::complex<double>> a(n);
        for (size_t i = 0; i < n; ++i)
            a[i] = s[start + i] * (0.5 - 0.5 * std::cos(2 * kPi * static_cast<double>(i) / n));
        fft(a, false);
        for (size_t k = 0; k <= n / 2; ++k) logSpectrum[k] += std::log(std::abs(a[k]) + 1e-9);
    }
    for (auto& v : logSpectrum) v /= std::max(frames, 1);
    // Cepstral smoothing: keep the low quefrencies (the envelope), drop the harmonics.
    std::vector<std::complex<double>> c(n);
    for (size_t k = 0; k < n; ++k) c[k] = logSpectrum[k <= n / 2 ? k : n - k];
    fft(c, true);
    const size_t lifter = static_cast<size_t>(rate / 400.0);  // well below a 100 Hz period
    for (size_t q = lifter; q < n - lifter; ++q) c[q] = 0;
    fft(c, false);
    std::vector<double> out(static_cast<size_t>(bins));
    for (int b = 0; b < bins; ++b) {
        const double hz = loHz * std::pow(hiHz / loHz, static_cast<double>(b) / (bins - 1));
        const double pos = hz / rate * n;
        const size_t k = static_cast<size_t>(pos);
        const double frac = pos - static_cast<double>(k);
        out[static_cast<size_t>(b)] = 20 / std::log(10.0) * ((1 - frac) * c[k].real() + frac * c[k + 1].real());
    }
    return out;
}

double envelopeShiftSemitones(const std::vector<float>& before, const std::vector<float>& after, double rate,
                              size_t from, size_t count) {
    // Both envelopes on a fine log axis; the best shift maximises their correlation.
    constexpr double lo = 250, hi = 5000;
    constexpr int perSemitone = 20;
    const int bins = static_cast<int>(12 * std::log2(hi / lo) * perSemitone) + 1;
    const auto a = envelope(before, rate, from, count, lo, hi, bins);
    const auto b = envelope(after, rate, from, count, lo, hi, bins);
    double bestShift = 0, bestScore = -1e300;
    for (int shift = -8 * perSemitone; shift <= 8 * perSemitone; ++shift) {
        double meanA = 0, meanB = 0;
        int n = 0;
        for (int i = 0; i < bins; ++i) {
            const int j = i + shift;
            if (j < 0 || j >= bins) continue;
            meanA += a[static_cast<size_t>(i)];
            meanB += b[static_cast<size_t>(j)];
            ++n;
        }
        if (n < bins / 2) continue;
        meanA /= n;
        meanB /= n;
        double sab = 0, saa = 0, sbb = 0;
        for (int i = 0; i < bins; ++i) {
            const int j = i + shift;
            if (j < 0 || j >= bins) continue;
            const double x = a[static_cast<size_t>(i)] - meanA, y = b[static_cast<size_t>(j)] - meanB;
            sab += x * y;
            saa += x * x;
            sbb += y * y;
        }
        const double score = sab / std::sqrt(saa * sbb + 1e-30);
        if (score > bestScore) {
            bestScore = score;
            bestShift = static_cast<double>(shift) / perSemitone;
        }
    }
    return bestShift;
}

}  // namespace parlova::analysis
