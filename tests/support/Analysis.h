#pragma once
// Measurements of rendered audio: fundamental frequency to a fraction of a cent
// and the shift of the spectral envelope between two signals.
#include <cstddef>
#include <vector>

namespace parlova::analysis {

// Band-limited sawtooth (harmonics up to 0.45 of the rate), optionally passed
// through three vocal-tract style resonances so it has formants to move.
std::vector<float> sawtooth(double hz, double seconds, double sampleRate, float amplitude = 0.3f,
                            bool withFormants = false);

// Fundamental of a steady periodic signal over [from, from + count), from the
// difference function with parabolic interpolation; searches minHz..maxHz.
double fundamental(const std::vector<float>& samples, double sampleRate, size_t from, size_t count,
                   double minHz = 60, double maxHz = 600);

// Cents from `reference` to `hz`.
double cents(double hz, double reference);

// Cepstrally smoothed log-magnitude envelope (dB) at `bins` log-spaced points
// from loHz to hiHz, averaged over frames of [from, from + count).
std::vector<double> envelope(const std::vector<float>& samples, double sampleRate, size_t from, size_t count,
                             double loHz, double hiHz, int bins);

// The shift in semitones that best maps the envelope of `before` onto that of
// `after` (searched from -8 to +8 in 0.05 steps).
double envelopeShiftSemitones(const std::vector<float>& before, const std::vector<float>& after, double sampleRate,
                              size_t from, size_t count);

}  // namespace parlova::analysis
